#include "library/TrackMetadata.h"

MusicMetadata musicMetadata(const Track& track) {
    return MusicMetadata{track.title(),       track.artist(), track.album(), track.albumArtist(),
                         track.trackNumber(), track.year(),   track.genre(), track.comment()};
}

#include "playback/NowPlayingPublisher.h"

NowPlayingInfo nowPlayingInfo(const Track& track, double duration, double elapsed, bool isPlaying) {
    NowPlayingInfo info;
    info.trackId = track.id;
    info.url = track.url();
    info.title = displayTitle(track);
    info.artist = displayArtist(track);
    info.album = displayAlbum(track);
    info.duration = duration;
    info.elapsed = elapsed;
    info.rate = isPlaying ? 1.0 : 0.0;
    info.track = track;
    return info;
}

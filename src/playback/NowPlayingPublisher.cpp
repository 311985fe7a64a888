#include "playback/NowPlayingPublisher.h"

#include <QFileInfo>

QString displayName(const Track& track) {
    if (!track.title.isEmpty())
        return track.title;
    return QFileInfo(track.url.fileName()).completeBaseName();
}

NowPlayingInfo nowPlayingInfo(const Track& track, double duration, double elapsed, bool isPlaying) {
    NowPlayingInfo info;
    info.trackId = track.id;
    info.url = track.url;
    info.title = displayName(track);
    info.artist = track.artist.isEmpty() ? QStringLiteral("Unknown artist") : track.artist;
    info.album = track.album.isEmpty() ? QStringLiteral("Unknown album") : track.album;
    info.duration = duration;
    info.elapsed = elapsed;
    info.rate = isPlaying ? 1.0 : 0.0;
    info.artwork = track.artwork;
    return info;
}

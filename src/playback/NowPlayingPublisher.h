#pragma once

#include "library/Track.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

// What the engine tells the desktop about the song it has loaded.
struct NowPlayingInfo {
    QUuid trackId; // the playlist entry's id: stable while the entry stays in the playlist
    QUrl url;
    QString title;       // the song's title, or its file name without extension when the title is empty
    QString artist;      // "Unknown artist" when empty
    QString album;       // "Unknown album" when empty
    double duration = 0; // seconds
    double elapsed = 0;  // seconds, the position at the moment of publishing
    double rate = 0;     // 1.0 while playing, 0.0 otherwise
    // The playlist entry itself, for its picture: a publisher reads it (TrackArtwork.h) off the main thread
    // and shows it only when it decodes as an image.
    Track track;

    friend bool operator==(const NowPlayingInfo&, const NowPlayingInfo&) = default;
};

enum class NowPlayingState { Playing = 1, Paused = 2 };

// Builds the information for `track` with the fallbacks above.
NowPlayingInfo nowPlayingInfo(const Track& track, double duration, double elapsed, bool isPlaying);

// Receives the engine's now-playing updates (the desktop's media controls, MPRIS on Linux).
//
// The engine calls it on the main thread after every successful start of a song, every resume, every
// pause and every seek (including skips, Previous restarting a song and the rewind at the end of the list),
// never on the position ticks: between calls the position advances at `rate` by itself.
// clear() comes when the queue loses the current song and on stop().
//
// Attach with PlayerEngine::setNowPlayingPublisher(). The engine does not own the publisher; a publisher
// that goes away before the engine detaches itself with setNowPlayingPublisher(nullptr).
class NowPlayingPublisher {
public:
    virtual ~NowPlayingPublisher() = default;

    // The song's information, then the playback state.
    virtual void publish(const NowPlayingInfo& info, NowPlayingState state) = 0;
    // Nothing is loaded any more; the playback state is left as it was.
    virtual void clear() = 0;
};

#pragma once

#include <QFuture>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

// One loaded song in the audio back end: the only playback operations the engine uses.
//
// Threads: every method is called on the main thread, and every signal is emitted on the main thread
// (back ends whose library reports on a thread of its own post those reports to the main thread first).
// A player that has been destroyed emits nothing more, so a report for a song that is no longer loaded
// never reaches the engine.
//
// Units: times are seconds as double; volume is 0 (silent) to 1 (full), applied at once.
class AudioPlayer : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;
    ~AudioPlayer() override = default;

    // Readies the output so that play() starts without delay, and starts the reports (the signals below):
    // until then the player posts nothing, so a player nobody took may be destroyed on any thread. Called
    // once after creation.
    virtual void prepareToPlay() = 0;
    // Starts or resumes.
    virtual void play() = 0;
    // Pauses, keeping the position.
    virtual void pause() = 0;
    // Stops; the player is dropped afterwards.
    virtual void stop() = 0;

    virtual void setVolume(float volume) = 0;

    // The position now, read from the back end (no cached value).
    virtual double currentTime() const = 0;
    // Seeks. Callers clamp to 0 ... duration(); the position reads back at once.
    virtual void setCurrentTime(double seconds) = 0;
    // The song's length as the back end reports it; 0 when it does not know.
    virtual double duration() const = 0;
    // Whether audio is actually running (not paused, not finished).
    virtual bool isPlaying() const = 0;

signals:
    // The song reached its end. `successfully` is false when it ended because of an error.
    void finished(bool successfully);
    // Decoding failed partway through; `description` is a readable sentence, or empty when the back end
    // gave none. No finished() follows for the same song.
    void decodeError(const QString& description);
};

// The outcome of opening a file: a ready player, or why not: nothing at the path, or a readable sentence
// (e.g. "The file isn't in a format Orvelle can play.").
struct AudioPlayerCreation {
    std::unique_ptr<AudioPlayer> player;
    QString error;        // set exactly when `player` is null and the file is not missing
    bool missing = false; // nothing exists at the URL's path
};

// Opens a file URL. Called on the main thread and returns at once: opening may wait on a disk, a decoder or
// the sound output, so it runs elsewhere. The future finishes within a bounded wait whatever the file is (a
// FIFO, a file on a stalled mount), with a player that belongs to the calling thread. A back end that knows
// the outcome at once returns a finished future. Nobody may be waiting any more: a result no one takes is
// destroyed with the future.
using AudioPlayerFactory = std::function<QFuture<AudioPlayerCreation>(const QUrl& url)>;

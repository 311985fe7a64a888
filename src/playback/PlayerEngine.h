#pragma once

#include "library/Track.h"
#include "playback/AudioPlayer.h"

#include <QFutureWatcher>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>

#include <memory>
#include <optional>

class NowPlayingPublisher;
class QRandomGenerator;
class QSettings;

// The repeat setting, persisted as "off", "all" or "one".
enum class RepeatMode { Off, All, One };

QString toString(RepeatMode mode);
std::optional<RepeatMode> repeatModeFromString(const QString& text);

// Plays the one playlist: holds the queue, loads one song at a time through the injected audio player
// factory (off the main thread: the song is current while it opens and starts once it is open), decides what
// plays next (playlist or shuffled order; repeat off, all or one), turns every way a song can fail into a
// sentence in `playbackError`, and stops after five failures in a row.
//
// Lives on the main thread; every operation is called there and every signal is emitted there. Volume,
// shuffle and repeat are kept in the injected settings under "player.volume", "player.shuffle" and
// "player.repeatMode". Operations given an index out of range do nothing.
class PlayerEngine : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<Track> queue READ queue NOTIFY queueChanged)
    Q_PROPERTY(int currentIndex READ currentIndex NOTIFY currentIndexChanged)
    Q_PROPERTY(std::optional<Track> currentTrack READ currentTrack NOTIFY currentTrackChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
    Q_PROPERTY(QString playbackError READ playbackError NOTIFY playbackErrorChanged)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(bool isShuffling READ isShuffling WRITE setShuffling NOTIFY isShufflingChanged)
    Q_PROPERTY(RepeatMode repeatMode READ repeatMode WRITE setRepeatMode NOTIFY repeatModeChanged)

public:
    // Reads the three preferences from `settings` (which must outlive the engine) without writing them.
    PlayerEngine(QSettings* settings, AudioPlayerFactory factory, QObject* parent = nullptr);
    ~PlayerEngine() override;

    QList<Track> queue() const { return m_queue; }
    int currentIndex() const { return m_currentIndex; } // -1 when nothing is loaded
    std::optional<Track> currentTrack() const;
    bool isPlaying() const { return m_isPlaying; }
    double currentTime() const { return m_currentTime; }      // seconds, refreshed every 0.2 s while playing
    double duration() const { return m_duration; }            // seconds
    QString playbackError() const { return m_playbackError; } // null when there is none
    float volume() const { return m_volume; }
    bool isShuffling() const { return m_isShuffling; }
    RepeatMode repeatMode() const { return m_repeatMode; }

    // The order songs play in (queue indices) and the position in it of the song being played.
    QList<int> playOrder() const { return m_playOrder; }
    int orderPosition() const { return m_orderPosition; }
    bool hasAudioPlayer() const { return m_player != nullptr; }

    // Replaces the queue, keeping the loaded song playing when a song with its id is still present;
    // otherwise stops. Always rebuilds the play order.
    void setQueue(const QList<Track>& tracks);
    // Loads the song at `index` and starts it once open; on failure tries the next song of the play order.
    // A song still opening is dropped.
    void playTrackAt(int index);
    // Plays the first song of the queue with this id; nothing when there is none.
    void playTrack(const QUuid& id);
    // Starts or resumes; with a current song but no player (after a failure) loads that song again. Nothing
    // while a song opens.
    void play();
    // Pauses; a song still opening is dropped (play() opens it again).
    void pause();
    void togglePlayPause();
    // Drops the player (or the song opening) and clears now playing; keeps the current song, the queue and
    // the order.
    void stop();
    // Moves `delta` places through the play order. Past the end it wraps when repeating all or when the
    // user asked; otherwise the last song stays loaded, paused at its start.
    void advance(int delta, bool userInitiated);
    void next() { advance(1, true); }
    // Restarts the song when more than 3 s in; otherwise goes one place back in the order.
    void previous();
    // Seeks to `seconds` clamped to 0 ... duration.
    void seek(double seconds);
    // Seeks by `seconds` from the player's own position (Skip Forward/Back pass +10 and -10).
    void skip(double seconds);
    // Sets the volume as given (not clamped), applies and persists it.
    void setVolume(float volume);
    // Changes the volume by `delta`, clamped to 0 ... 1.
    void adjustVolume(float delta);
    void setShuffling(bool on);
    void setRepeatMode(RepeatMode mode);

    // Attaches the desktop's now-playing display (not owned); nullptr detaches it.
    void setNowPlayingPublisher(NowPlayingPublisher* publisher);
    // Replaces the secure system source the shuffle draws from. For tests that need a fixed order only.
    void setRandomGenerator(QRandomGenerator* generator);

signals:
    void queueChanged();
    void currentIndexChanged();
    void currentTrackChanged();
    void isPlayingChanged();
    void currentTimeChanged();
    void durationChanged();
    void playbackErrorChanged();
    void volumeChanged();
    void isShufflingChanged();
    void repeatModeChanged();
    // The position jumped (a seek, a skip, Previous restarting the song, the rewind at the end of the list).
    void seeked(double seconds);

private:
    void rebuildPlayOrder();
    void reshufflePlayOrder();
    QList<int> shuffled(int count);
    void handlePlaybackFailure(int index);
    void startOpenedSong(AudioPlayerCreation created);
    void failLoading(int index, const AudioPlayerCreation& failure);
    void trackDidFinish(bool successfully);
    void decodeErrorOccurred(const QString& description);
    void resume();
    void dropPlayer();
    void startTicker();
    void stopTicker();
    void updateNowPlaying();

    void setCurrentIndex(int index);
    void setIsPlaying(bool playing);
    void setCurrentTime(double seconds);
    void setDuration(double seconds);
    void setPlaybackError(const QString& message);

    QSettings* m_settings;
    AudioPlayerFactory m_factory;
    NowPlayingPublisher* m_nowPlaying = nullptr;
    QRandomGenerator* m_random;

    QList<Track> m_queue;
    int m_currentIndex = -1;
    bool m_isPlaying = false;
    double m_currentTime = 0;
    double m_duration = 0;
    QString m_playbackError;
    float m_volume = 0.7f;
    bool m_isShuffling = false;
    RepeatMode m_repeatMode = RepeatMode::Off;

    std::unique_ptr<AudioPlayer> m_player;
    // The song being opened (it is already current); replacing or resetting it drops the late result.
    std::unique_ptr<QFutureWatcher<AudioPlayerCreation>> m_opening;
    QTimer m_ticker;
    QList<int> m_playOrder;
    int m_orderPosition = 0;
    int m_consecutiveFailures = 0;
};

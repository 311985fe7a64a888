#pragma once

#include "playback/ArtworkFileCache.h"
#include "playback/NowPlayingPublisher.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QElapsedTimer>
#include <QPointer>
#include <QVariantMap>

#include <QHash>

#include <functional>
#include <memory>
#include <optional>

class PlayerEngine;

// org.mpris.MediaPlayer2.Player: the loaded song and the transport, over the engine.
//
// The song and the playback status change only when the engine publishes (publish()/clear()); a cover not
// yet written as a file is read and written on the global pool and follows in a second announcement.
// Position is worked out when a client asks, from the last published position and rate. Volume, Shuffle,
// LoopStatus and the Can* flags follow the engine's own change signals. Every change is announced with
// org.freedesktop.DBus.Properties.PropertiesChanged, and every jump of the position with Seeked.
//
// Commands from the bus answer at once and run on the main thread just after, and only while the engine
// exists. Positions on the bus are microseconds; the engine counts seconds.
class MprisPlayer : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(QString LoopStatus READ loopStatus WRITE setLoopStatus)
    Q_PROPERTY(double Rate READ rate)
    Q_PROPERTY(double MinimumRate READ rate)
    Q_PROPERTY(double MaximumRate READ rate)
    Q_PROPERTY(bool Shuffle READ shuffle WRITE setShuffle)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(bool CanGoNext READ canGoNext)
    Q_PROPERTY(bool CanGoPrevious READ canGoPrevious)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ canPause)
    Q_PROPERTY(bool CanSeek READ canSeek)
    Q_PROPERTY(bool CanControl READ canControl)

public:
    // `parent` is the object exported at /org/mpris/MediaPlayer2 on `bus`. `engine` may go first:
    // the adaptor then leaves it alone.
    MprisPlayer(QObject* parent, PlayerEngine* engine, const QDBusConnection& bus);

    // Where OpenUri's file goes (the window); without one OpenUri does nothing.
    void setOpenHandler(std::function<void(const QUrl&)> handler) { m_open = std::move(handler); }

    // The engine's now-playing updates.
    void publish(const NowPlayingInfo& info, NowPlayingState state);
    void clear();

    QString playbackStatus() const;
    QString loopStatus() const;
    void setLoopStatus(const QString& status);
    double rate() const { return 1.0; }
    bool shuffle() const;
    void setShuffle(bool on);
    QVariantMap metadata() const { return m_metadata; }
    double volume() const;
    void setVolume(double volume);
    qlonglong position() const;
    bool canGoNext() const { return m_capabilities.canGoNext; }
    bool canGoPrevious() const { return m_capabilities.canGoPrevious; }
    bool canPlay() const { return m_capabilities.canPlay; }
    bool canPause() const { return m_capabilities.canPause; }
    bool canSeek() const { return m_capabilities.canSeek; }
    bool canControl() const { return true; }

public slots:
    void Next();
    void Previous();
    void Pause();
    void PlayPause();
    void Stop();
    void Play();
    void Seek(qlonglong offset);
    void SetPosition(const QDBusObjectPath& trackId, qlonglong position);
    void OpenUri(const QString& uri);

signals:
    void Seeked(qlonglong position);

private:
    struct Capabilities {
        bool canGoNext = false;
        bool canGoPrevious = false;
        bool canPlay = false;
        bool canPause = false;
        bool canSeek = false;
        friend bool operator==(const Capabilities&, const Capabilities&) = default;
    };

    Capabilities capabilities() const;
    // Adds the flags that differ from the last announced ones to `changed` and remembers them.
    void refreshCapabilities(QVariantMap& changed);
    void announce(const QVariantMap& changed);
    void runOnEngine(std::function<void(PlayerEngine&)> action);
    // The cover file of the published song: known at once, or written in the background (then announced).
    std::optional<QUrl> artUrl(const Track& track);

    QPointer<PlayerEngine> m_engine;
    std::function<void(const QUrl&)> m_open;
    QDBusConnection m_bus;
    std::shared_ptr<ArtworkFileCache> m_artwork;      // shared with the writes in flight
    QHash<QByteArray, std::optional<QUrl>> m_artUrls; // artwork key -> its file (none: not an image)

    std::optional<NowPlayingInfo> m_info; // none when nothing is loaded
    NowPlayingState m_state = NowPlayingState::Paused;
    QElapsedTimer m_sincePublished;
    QVariantMap m_metadata;
    Capabilities m_capabilities;
    bool m_jumpAnnounced = false; // the engine reported a seek since the last publication
};

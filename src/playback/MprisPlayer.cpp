#include "playback/MprisPlayer.h"

#include "library/TrackArtwork.h"
#include "playback/MprisMetadata.h"
#include "playback/PlayerEngine.h"

#include <QDBusMessage>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cstdlib>

static const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

static QVariantMap noTrackMetadata() {
    return {{QStringLiteral("mpris:trackid"), QVariant::fromValue(mprisNoTrack())}};
}

MprisPlayer::MprisPlayer(QObject* parent, PlayerEngine* engine, const QDBusConnection& bus)
    : QDBusAbstractAdaptor(parent)
    , m_engine(engine)
    , m_bus(bus)
    , m_artwork(std::make_shared<ArtworkFileCache>())
    , m_metadata(noTrackMetadata())
    , m_capabilities(capabilities()) {
    connect(engine, &PlayerEngine::volumeChanged, this, [this] {
        announce({{QStringLiteral("Volume"), volume()}});
    });
    connect(engine, &PlayerEngine::isShufflingChanged, this, [this] {
        announce({{QStringLiteral("Shuffle"), shuffle()}});
    });
    connect(engine, &PlayerEngine::repeatModeChanged, this, [this] {
        announce({{QStringLiteral("LoopStatus"), loopStatus()}});
    });
    connect(engine, &PlayerEngine::queueChanged, this, [this] {
        QVariantMap changed;
        refreshCapabilities(changed);
        announce(changed);
    });
    connect(engine, &PlayerEngine::seeked, this, [this](double seconds) {
        m_jumpAnnounced = true;
        emit Seeked(toMicroseconds(seconds));
    });
}

void MprisPlayer::publish(const NowPlayingInfo& info, NowPlayingState state) {
    const QString statusBefore = playbackStatus();
    const bool sameSong = m_info && m_info->trackId == info.trackId;
    const qlonglong expected = position();
    m_info = info;
    m_state = state;
    m_sincePublished.start();

    QVariantMap changed;
    const QVariantMap metadata = mprisMetadata(info, artUrl(info.track));
    if (metadata != m_metadata) {
        m_metadata = metadata;
        changed.insert(QStringLiteral("Metadata"), m_metadata);
    }
    if (playbackStatus() != statusBefore)
        changed.insert(QStringLiteral("PlaybackStatus"), playbackStatus());
    refreshCapabilities(changed);
    announce(changed);

    // The song starting over (repeat one, or chosen again) is a jump the engine does not report as a seek,
    // yet clients that keep their own clock must hear of it. A second of slack absorbs the engine's
    // position being a tick old.
    constexpr qlonglong slack = 1000000;
    if (sameSong && !m_jumpAnnounced && std::abs(toMicroseconds(info.elapsed) - expected) > slack)
        emit Seeked(toMicroseconds(info.elapsed));
    m_jumpAnnounced = false;
}

std::optional<QUrl> MprisPlayer::artUrl(const Track& track) {
    const QByteArray key = artworkKey(track);
    if (key.isEmpty())
        return std::nullopt;
    const auto known = m_artUrls.constFind(key);
    if (known != m_artUrls.cend())
        return *known;
    m_artUrls.insert(key, std::nullopt); // until written: one write per picture
    QtConcurrent::run([cache = m_artwork, track]() -> std::optional<QUrl> {
        const std::optional<QByteArray> bytes = loadArtwork(track);
        return bytes ? cache->fileFor(*bytes) : std::nullopt;
    }).then(this, [this, key](const std::optional<QUrl>& url) {
        m_artUrls.insert(key, url);
        if (!url || !m_info || artworkKey(m_info->track) != key)
            return;
        m_metadata = mprisMetadata(*m_info, url);
        announce({{QStringLiteral("Metadata"), m_metadata}});
    });
    return std::nullopt;
}

void MprisPlayer::clear() {
    if (!m_info)
        return;
    m_info.reset();
    m_metadata = noTrackMetadata();
    QVariantMap changed{{QStringLiteral("Metadata"), m_metadata},
                        {QStringLiteral("PlaybackStatus"), playbackStatus()}};
    refreshCapabilities(changed);
    announce(changed);
}

QString MprisPlayer::playbackStatus() const {
    if (!m_info)
        return QStringLiteral("Stopped");
    return m_state == NowPlayingState::Playing ? QStringLiteral("Playing") : QStringLiteral("Paused");
}

QString MprisPlayer::loopStatus() const {
    switch (m_engine ? m_engine->repeatMode() : RepeatMode::Off) {
    case RepeatMode::Off:
        break;
    case RepeatMode::All:
        return QStringLiteral("Playlist");
    case RepeatMode::One:
        return QStringLiteral("Track");
    }
    return QStringLiteral("None");
}

void MprisPlayer::setLoopStatus(const QString& status) {
    static const QHash<QString, RepeatMode> modes{{QStringLiteral("None"), RepeatMode::Off},
                                                  {QStringLiteral("Playlist"), RepeatMode::All},
                                                  {QStringLiteral("Track"), RepeatMode::One}};
    const auto mode = modes.constFind(status);
    if (mode != modes.cend() && m_engine)
        m_engine->setRepeatMode(*mode);
}

bool MprisPlayer::shuffle() const {
    return m_engine && m_engine->isShuffling();
}

void MprisPlayer::setShuffle(bool on) {
    if (m_engine)
        m_engine->setShuffling(on);
}

double MprisPlayer::volume() const {
    return m_engine ? m_engine->volume() : 0.0;
}

void MprisPlayer::setVolume(double volume) {
    if (m_engine)
        m_engine->setVolume(float(std::clamp(volume, 0.0, 1.0)));
}

// The position advances by itself at the published rate between two publications, as the engine
// publishes only at events, never on its ticks.
qlonglong MprisPlayer::position() const {
    if (!m_info)
        return 0;
    double seconds = m_info->elapsed;
    if (m_state == NowPlayingState::Playing)
        seconds += m_info->rate * double(m_sincePublished.elapsed()) / 1000.0;
    if (m_info->duration > 0)
        seconds = std::min(seconds, m_info->duration);
    return toMicroseconds(seconds);
}

void MprisPlayer::Next() {
    runOnEngine([](PlayerEngine& engine) { engine.next(); });
}

void MprisPlayer::Previous() {
    runOnEngine([](PlayerEngine& engine) { engine.previous(); });
}

void MprisPlayer::Pause() {
    runOnEngine([](PlayerEngine& engine) { engine.pause(); });
}

void MprisPlayer::PlayPause() {
    runOnEngine([](PlayerEngine& engine) { engine.togglePlayPause(); });
}

void MprisPlayer::Stop() {
    runOnEngine([](PlayerEngine& engine) { engine.stop(); });
}

void MprisPlayer::Play() {
    runOnEngine([](PlayerEngine& engine) { engine.play(); });
}

void MprisPlayer::Seek(qlonglong offset) {
    runOnEngine([by = toSeconds(offset)](PlayerEngine& engine) { engine.skip(by); });
}

// A request for a song that is no longer loaded is late (the song changed meanwhile): it is dropped
// rather than applied to another song.
void MprisPlayer::SetPosition(const QDBusObjectPath& trackId, qlonglong position) {
    if (position < 0)
        return;
    runOnEngine([trackId, to = toSeconds(position)](PlayerEngine& engine) {
        const std::optional<Track> current = engine.currentTrack();
        if (current && mprisTrackId(current->id) == trackId)
            engine.seek(to);
    });
}

void MprisPlayer::OpenUri(const QString& uri) {
    const QUrl url(uri);
    if (!url.isLocalFile() || !m_open)
        return;
    QMetaObject::invokeMethod(
        this, [open = m_open, url] { open(url); }, Qt::QueuedConnection);
}

MprisPlayer::Capabilities MprisPlayer::capabilities() const {
    const bool hasQueue = m_engine && !m_engine->queue().isEmpty();
    return {.canGoNext = hasQueue,
            .canGoPrevious = hasQueue,
            .canPlay = hasQueue,
            .canPause = m_info.has_value(),
            .canSeek = m_info && m_info->duration > 0};
}

void MprisPlayer::refreshCapabilities(QVariantMap& changed) {
    const Capabilities now = capabilities();
    const auto note = [&](const char* name, bool before, bool after) {
        if (before != after)
            changed.insert(QString::fromLatin1(name), after);
    };
    note("CanGoNext", m_capabilities.canGoNext, now.canGoNext);
    note("CanGoPrevious", m_capabilities.canGoPrevious, now.canGoPrevious);
    note("CanPlay", m_capabilities.canPlay, now.canPlay);
    note("CanPause", m_capabilities.canPause, now.canPause);
    note("CanSeek", m_capabilities.canSeek, now.canSeek);
    m_capabilities = now;
}

void MprisPlayer::announce(const QVariantMap& changed) {
    if (changed.isEmpty() || !m_bus.isConnected())
        return;
    QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/mpris/MediaPlayer2"),
                                                     QStringLiteral("org.freedesktop.DBus.Properties"),
                                                     QStringLiteral("PropertiesChanged"));
    signal << playerInterface << changed << QStringList();
    m_bus.send(signal);
}

// The reply goes back before the engine acts, so a command that loads a file never holds up the caller.
void MprisPlayer::runOnEngine(std::function<void(PlayerEngine&)> action) {
    if (!m_engine)
        return;
    // The engine is the timer's context: a command still pending when the engine goes is dropped.
    QTimer::singleShot(0, m_engine.data(),
                       [engine = m_engine.data(), action = std::move(action)] { action(*engine); });
}

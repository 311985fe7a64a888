#include "playback/PlayerEngine.h"

#include "playback/NowPlayingPublisher.h"
#include "playback/PlaybackLog.h"

#include <QRandomGenerator>
#include <QSettings>

#include <algorithm>
#include <numeric>

namespace {

const QString volumeKey = QStringLiteral("player.volume");
const QString shuffleKey = QStringLiteral("player.shuffle");
const QString repeatModeKey = QStringLiteral("player.repeatMode");

// Previous restarts the song when the player is further in than this (seconds).
constexpr double restartThreshold = 3.0;
// The fifth failure in a row stops trying.
constexpr int failureLimit = 4;
constexpr int tickMilliseconds = 200;

} // namespace

QString toString(RepeatMode mode) {
    switch (mode) {
    case RepeatMode::All:
        return QStringLiteral("all");
    case RepeatMode::One:
        return QStringLiteral("one");
    case RepeatMode::Off:
        break;
    }
    return QStringLiteral("off");
}

std::optional<RepeatMode> repeatModeFromString(const QString& text) {
    for (RepeatMode mode : {RepeatMode::Off, RepeatMode::All, RepeatMode::One}) {
        if (toString(mode) == text)
            return mode;
    }
    return std::nullopt;
}

PlayerEngine::PlayerEngine(QSettings* settings, AudioPlayerFactory factory, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_factory(std::move(factory))
    , m_random(QRandomGenerator::system()) {
    bool ok = false;
    const float storedVolume = m_settings->value(volumeKey).toFloat(&ok);
    m_volume = ok ? storedVolume : 0.7f;
    m_isShuffling = m_settings->value(shuffleKey, false).toBool();
    m_repeatMode =
        repeatModeFromString(m_settings->value(repeatModeKey).toString()).value_or(RepeatMode::Off);

    m_ticker.setInterval(tickMilliseconds);
    connect(&m_ticker, &QTimer::timeout, this, [this] {
        if (m_player && m_player->isPlaying())
            setCurrentTime(m_player->currentTime());
    });
}

PlayerEngine::~PlayerEngine() = default;

std::optional<Track> PlayerEngine::currentTrack() const {
    if (m_currentIndex >= 0 && m_currentIndex < m_queue.size())
        return m_queue.at(m_currentIndex);
    return std::nullopt;
}

void PlayerEngine::setQueue(const QList<Track>& tracks) {
    const std::optional<Track> previous = currentTrack();
    m_queue = tracks;
    emit queueChanged();
    if (previous) {
        const auto found = std::find_if(m_queue.cbegin(), m_queue.cend(),
                                        [&](const Track& track) { return track.id == previous->id; });
        if (found != m_queue.cend()) {
            setCurrentIndex(int(found - m_queue.cbegin()));
        } else {
            stop();
            setCurrentIndex(-1);
        }
    } else if (m_queue.isEmpty()) {
        setCurrentIndex(-1);
    }
    // The song under currentIndex may be a different value now even when the index stayed.
    emit currentTrackChanged();
    rebuildPlayOrder();
}

void PlayerEngine::rebuildPlayOrder() {
    QList<int> order;
    if (m_isShuffling) {
        order = shuffled(int(m_queue.size()));
        const qsizetype current = order.indexOf(m_currentIndex);
        if (m_currentIndex >= 0 && current >= 0)
            order.swapItemsAt(0, current);
    } else {
        order.resize(m_queue.size());
        std::iota(order.begin(), order.end(), 0);
    }
    m_playOrder = order;
    const qsizetype position = m_currentIndex >= 0 ? m_playOrder.indexOf(m_currentIndex) : -1;
    m_orderPosition = position >= 0 ? int(position) : 0;
}

void PlayerEngine::reshufflePlayOrder() {
    m_playOrder = shuffled(int(m_queue.size()));
}

QList<int> PlayerEngine::shuffled(int count) {
    QList<int> order(count);
    std::iota(order.begin(), order.end(), 0);
    // Forward Fisher-Yates: position i takes a uniformly drawn element of the positions not yet fixed.
    for (int i = 0; i + 1 < count; ++i) {
        const int j = int(m_random->bounded(quint32(count - i)));
        order.swapItemsAt(i, i + j);
    }
    return order;
}

void PlayerEngine::playTrackAt(int index) {
    if (index < 0 || index >= m_queue.size())
        return;
    const Track track = m_queue.at(index);
    stopTicker();
    dropPlayer();

    if (track.isMissing) {
        failLoading(index, AudioPlayerCreation{nullptr, QString(), true});
        return;
    }
    // The song is current while it opens, so that a change of the queue meanwhile follows it or stops it.
    setCurrentIndex(index);
    QFuture<AudioPlayerCreation> opening = m_factory(track.url());
    if (opening.isFinished()) {
        startOpenedSong(opening.takeResult());
        return;
    }
    m_opening = std::make_unique<QFutureWatcher<AudioPlayerCreation>>();
    connect(m_opening.get(), &QFutureWatcherBase::finished, this, [this] {
        QFuture<AudioPlayerCreation> opened = m_opening->future();
        m_opening.release()->deleteLater(); // it is still emitting
        startOpenedSong(opened.takeResult());
    });
    m_opening->setFuture(opening);
}

void PlayerEngine::startOpenedSong(AudioPlayerCreation created) {
    const int index = m_currentIndex;
    if (!created.player) {
        failLoading(index, created);
        return;
    }
    m_player = std::move(created.player);
    // The connections die with the player, so a dropped player's reports never arrive.
    connect(m_player.get(), &AudioPlayer::finished, this, &PlayerEngine::trackDidFinish);
    connect(m_player.get(), &AudioPlayer::decodeError, this, &PlayerEngine::decodeErrorOccurred);
    m_player->setVolume(m_volume);
    m_player->prepareToPlay();

    const qsizetype position = m_playOrder.indexOf(index);
    if (position >= 0)
        m_orderPosition = int(position);
    setDuration(m_player->duration());
    setCurrentTime(0);
    setPlaybackError(QString());
    m_consecutiveFailures = 0;

    m_player->play();
    setIsPlaying(true);
    startTicker();
    updateNowPlaying();
}

void PlayerEngine::failLoading(int index, const AudioPlayerCreation& failure) {
    const Track& track = m_queue.at(index);
    const QString message =
        failure.missing
            ? displayTitle(track) + QStringLiteral(" isn't where the playlist says it is.")
            : QStringLiteral("Can't play ") + displayTitle(track) + QStringLiteral(": ") + failure.error;
    qCDebug(lcPlayback) << "Could not start" << track.url() << message;
    setPlaybackError(message);
    setCurrentIndex(index);
    setIsPlaying(false);
    // The desktop shows the song that failed, paused, rather than the one played before it.
    updateNowPlaying();
    handlePlaybackFailure(index);
}

void PlayerEngine::handlePlaybackFailure(int index) {
    ++m_consecutiveFailures;
    if (m_consecutiveFailures > failureLimit) {
        m_consecutiveFailures = 0;
        setPlaybackError(QStringLiteral("Stopped \u2014 several files in a row couldn't be played."));
        return;
    }
    const qsizetype position = m_playOrder.indexOf(index);
    // A failure at the end of the order does not wrap, whatever the repeat mode.
    if (position < 0 || position + 1 >= m_playOrder.size())
        return;
    playTrackAt(m_playOrder.at(position + 1));
}

void PlayerEngine::playTrack(const QUuid& id) {
    const auto found =
        std::find_if(m_queue.cbegin(), m_queue.cend(), [&](const Track& track) { return track.id == id; });
    if (found != m_queue.cend())
        playTrackAt(int(found - m_queue.cbegin()));
}

void PlayerEngine::play() {
    if (m_opening)
        return; // the song starts once it is open
    if (m_currentIndex < 0 && !m_playOrder.isEmpty())
        playTrackAt(m_playOrder.first());
    else if (m_player)
        resume();
    else if (currentTrack())
        playTrackAt(m_currentIndex); // the current song failed or was stopped: try it again
}

void PlayerEngine::resume() {
    m_player->play();
    setIsPlaying(true);
    startTicker();
    updateNowPlaying();
}

void PlayerEngine::pause() {
    m_opening.reset(); // a song still opening stays unstarted; play() opens it again
    if (m_player)
        m_player->pause();
    setIsPlaying(false);
    stopTicker();
    updateNowPlaying();
}

void PlayerEngine::togglePlayPause() {
    if (m_isPlaying)
        pause();
    else if (!m_player)
        play();
    else
        resume();
}

void PlayerEngine::stop() {
    dropPlayer();
    setIsPlaying(false);
    setCurrentTime(0);
    setDuration(0);
    stopTicker();
    if (m_nowPlaying)
        m_nowPlaying->clear();
}

void PlayerEngine::dropPlayer() {
    m_opening.reset(); // what it opens now arrives for nobody
    if (!m_player)
        return;
    m_player->stop();
    m_player.reset();
}

void PlayerEngine::advance(int delta, bool userInitiated) {
    const int count = int(m_playOrder.size());
    if (count == 0)
        return;
    int position = m_orderPosition + delta;
    if (position < 0) {
        // Stepping back from the first position goes to the last, in every repeat mode.
        position = count - 1;
    } else if (position >= count) {
        if (m_repeatMode != RepeatMode::All && !userInitiated) {
            // The list ran out by itself: keep the last song loaded, paused at its start.
            pause();
            if (m_player)
                seek(0);
            return;
        }
        if (m_isShuffling && m_repeatMode == RepeatMode::All)
            reshufflePlayOrder();
        position = 0;
    }
    m_orderPosition = position;
    playTrackAt(m_playOrder.at(position));
}

void PlayerEngine::trackDidFinish(bool successfully) {
    if (successfully && m_repeatMode == RepeatMode::One && m_currentIndex >= 0)
        playTrackAt(m_currentIndex);
    else
        advance(1, false);
}

void PlayerEngine::decodeErrorOccurred(const QString& description) {
    setPlaybackError(description.isEmpty() ? QStringLiteral("The file stopped decoding partway through.")
                                           : description);
    advance(1, false);
}

void PlayerEngine::previous() {
    if (m_player && m_player->currentTime() > restartThreshold)
        seek(0);
    else
        advance(-1, true);
}

void PlayerEngine::seek(double seconds) {
    if (!m_player)
        return;
    m_player->setCurrentTime(std::max(std::min(seconds, m_player->duration()), 0.0));
    setCurrentTime(m_player->currentTime());
    emit seeked(m_currentTime);
    updateNowPlaying();
}

void PlayerEngine::skip(double seconds) {
    if (m_player)
        seek(m_player->currentTime() + seconds);
}

void PlayerEngine::setVolume(float volume) {
    if (volume != m_volume) {
        m_volume = volume;
        emit volumeChanged();
    }
    if (m_player)
        m_player->setVolume(m_volume);
    m_settings->setValue(volumeKey, m_volume);
}

void PlayerEngine::adjustVolume(float delta) {
    setVolume(std::clamp(m_volume + delta, 0.0f, 1.0f));
}

void PlayerEngine::setShuffling(bool on) {
    if (on != m_isShuffling) {
        m_isShuffling = on;
        emit isShufflingChanged();
    }
    m_settings->setValue(shuffleKey, m_isShuffling);
    rebuildPlayOrder();
}

void PlayerEngine::setRepeatMode(RepeatMode mode) {
    if (mode != m_repeatMode) {
        m_repeatMode = mode;
        emit repeatModeChanged();
    }
    m_settings->setValue(repeatModeKey, toString(m_repeatMode));
}

void PlayerEngine::setNowPlayingPublisher(NowPlayingPublisher* publisher) {
    m_nowPlaying = publisher;
}

void PlayerEngine::setRandomGenerator(QRandomGenerator* generator) {
    m_random = generator;
}

void PlayerEngine::startTicker() {
    m_ticker.start();
}

void PlayerEngine::stopTicker() {
    m_ticker.stop();
}

void PlayerEngine::updateNowPlaying() {
    if (!m_nowPlaying)
        return;
    const std::optional<Track> track = currentTrack();
    if (!track) {
        m_nowPlaying->clear();
        return;
    }
    m_nowPlaying->publish(nowPlayingInfo(*track, m_duration, m_currentTime, m_isPlaying),
                          m_isPlaying ? NowPlayingState::Playing : NowPlayingState::Paused);
}

void PlayerEngine::setCurrentIndex(int index) {
    if (index == m_currentIndex)
        return;
    m_currentIndex = index;
    emit currentIndexChanged();
    emit currentTrackChanged();
}

void PlayerEngine::setIsPlaying(bool playing) {
    if (playing == m_isPlaying)
        return;
    m_isPlaying = playing;
    emit isPlayingChanged();
}

void PlayerEngine::setCurrentTime(double seconds) {
    if (seconds == m_currentTime)
        return;
    m_currentTime = seconds;
    emit currentTimeChanged();
}

void PlayerEngine::setDuration(double seconds) {
    if (seconds == m_duration)
        return;
    m_duration = seconds;
    emit durationChanged();
}

void PlayerEngine::setPlaybackError(const QString& message) {
    // A null string means no error; compare nullness too so clearing an empty message still notifies.
    if (message == m_playbackError && message.isNull() == m_playbackError.isNull())
        return;
    m_playbackError = message;
    emit playbackErrorChanged();
}

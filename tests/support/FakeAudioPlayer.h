#pragma once

#include "library/Track.h"
#include "playback/AudioPlayer.h"

#include <QFile>
#include <QHash>
#include <QPointer>
#include <QPromise>

#include <deque>
#include <memory>

// A scripted audio player for testing the engine's rules and what it publishes, without decoding.
// Header only: it is used by the playback tests, which link the playback library.
namespace fixtures {

// A playlist entry for the file at `path` (new id), created empty first when `create` is set.
inline Track trackAt(const QString& path, const QString& title = {}, bool create = false) {
    if (create)
        QFile(path).open(QIODevice::WriteOnly);
    Track track;
    track.id = QUuid::createUuid();
    track.setUrl(QUrl::fromLocalFile(path));
    track.setTitle(title);
    return track;
}

// Tests move the position and emit finished() or decodeError() as a real back end would; the engine may
// destroy the player in response.
class FakeAudioPlayer : public AudioPlayer {
public:
    explicit FakeAudioPlayer(double duration)
        : m_duration(duration) {}

    void prepareToPlay() override {}
    void play() override { m_playing = true; }
    void pause() override { m_playing = false; }
    void stop() override { m_playing = false; }
    void setVolume(float volume) override { m_volume = volume; }
    double currentTime() const override { return m_time; }
    void setCurrentTime(double seconds) override { m_time = seconds; }
    double duration() const override { return m_duration; }
    bool isPlaying() const override { return m_playing; }

    double m_time = 0;
    double m_duration;
    bool m_playing = false;
    float m_volume = -1;
};

// Opens every file that exists unless told that it is unreadable, and remembers what it opened. Answers at
// once, or, when `deferred`, when the test calls answer().
struct FakeAudioBackend {
    QHash<QString, QString> unreadable; // local path -> error sentence
    int opened = 0;
    QPointer<FakeAudioPlayer> current; // the player last created
    double duration = 100;             // seconds, for every file
    bool deferred = false;
    // Openings not answered yet, oldest first.
    std::deque<std::pair<QString, QPromise<AudioPlayerCreation>>> waiting;

    AudioPlayerFactory factory() {
        return [this](const QUrl& url) {
            ++opened;
            waiting.emplace_back(url.toLocalFile(), QPromise<AudioPlayerCreation>());
            waiting.back().second.start();
            QFuture<AudioPlayerCreation> future = waiting.back().second.future();
            if (!deferred)
                answer(waiting.size() - 1);
            return future;
        };
    }

    // Answers the deferred opening `age` places after the oldest.
    void answer(std::size_t age = 0) {
        auto [path, promise] = std::move(waiting.at(age));
        waiting.erase(waiting.begin() + qsizetype(age));
        AudioPlayerCreation created;
        if (!QFile::exists(path)) {
            created.missing = true;
        } else if (unreadable.contains(path)) {
            created.error = unreadable.value(path);
        } else {
            created.player = std::make_unique<FakeAudioPlayer>(duration);
            current = static_cast<FakeAudioPlayer*>(created.player.get());
        }
        promise.addResult(std::move(created));
        promise.finish();
    }
};

// A factory that opens nothing: for benchmarks and tests that drive the store without sound.
inline QFuture<AudioPlayerCreation> noAudioPlayer(const QUrl&) {
    return QtFuture::makeReadyFuture(AudioPlayerCreation{nullptr, QStringLiteral("No audio output here.")});
}

} // namespace fixtures

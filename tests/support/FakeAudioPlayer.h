#pragma once

#include "playback/AudioPlayer.h"

#include <QHash>
#include <QList>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

// A scripted audio player for testing the engine's rules and what it publishes, without decoding.
// Header only: it is used by the playback tests, which link the playback library.
namespace fixtures {

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

    // What a real back end would report; the engine may destroy this player in response.
    void end(bool successfully) { emit finished(successfully); }
    void failDecoding(const QString& description) { emit decodeError(description); }

    double m_time = 0; // the position, moved by the test as playback would
    double m_duration;
    bool m_playing = false;
    float m_volume = -1;
};

// Opens every file unless told that it is unreadable, and remembers what it opened.
struct FakeAudioBackend {
    QHash<QString, QString> unreadable; // local path -> error sentence
    QList<QString> opened;              // file names, in order
    QPointer<FakeAudioPlayer> current;  // the player last created
    double duration = 100;              // seconds, for every file

    AudioPlayerFactory factory() {
        return [this](const QUrl& url) {
            opened.append(url.fileName());
            if (unreadable.contains(url.toLocalFile()))
                return AudioPlayerCreation{nullptr, unreadable.value(url.toLocalFile())};
            auto player = std::make_unique<FakeAudioPlayer>(duration);
            current = player.get();
            return AudioPlayerCreation{std::move(player), QString()};
        };
    }
};

} // namespace fixtures

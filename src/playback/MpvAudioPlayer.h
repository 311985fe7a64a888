#pragma once

#include "playback/AudioPlayer.h"

#include <chrono>
#include <optional>

struct mpv_handle;
class QDeadlineTimer;

// Plays one local file through libmpv, audio only (no video, no configuration files, no terminal, no
// input bindings). The audio output is mpv's default, or the `ao` named by ORVELLE_AUDIO_OUTPUT
// ("null" decodes in real time without a sound card).
//
// mpv reports on a thread of its own; its wake-ups are posted to this object on the main thread, where the
// events are read. Once the player is destroyed nothing more is delivered. The player never polls: while
// paused, mpv and this object stay asleep.
class MpvAudioPlayer final : public AudioPlayer {
    Q_OBJECT

public:
    // How long open() waits at most for mpv to load the file or to give up on it.
    static constexpr std::chrono::milliseconds defaultOpenTimeout{2000};

    // Opens `url` paused on a thread of its own; the future finishes on the calling thread once mpv has
    // loaded the file and started its sound output, or has failed, or after `timeout`. Files that aren't
    // regular files (FIFOs, devices, folders) are refused before mpv sees them.
    static QFuture<AudioPlayerCreation> open(const QUrl& url,
                                             std::chrono::milliseconds timeout = defaultOpenTimeout);
    // A factory for the engine that calls open().
    static AudioPlayerFactory factory();

    ~MpvAudioPlayer() override;

    void prepareToPlay() override;
    void play() override;
    void pause() override;
    void stop() override;
    void setVolume(float volume) override;
    double currentTime() const override;
    void setCurrentTime(double seconds) override;
    double duration() const override;
    bool isPlaying() const override;

private:
    explicit MpvAudioPlayer(mpv_handle* handle);
    // The blocking part of open(), until `deadline`; nothing when the deadline passed first.
    static std::optional<AudioPlayerCreation> openNow(const QUrl& url, const QDeadlineTimer& deadline);
    void readEvents();
    bool flag(const char* property) const;
    double number(const char* property) const;

    mpv_handle* m_handle;
    bool m_atEnd = false;
    bool m_ended = false; // mpv unloaded the file; nothing more is reported
    // A seek mpv has accepted but not carried out yet: the position reads back as its target meanwhile.
    std::optional<double> m_pendingSeek;
};

#include "playback/MpvAudioPlayer.h"

#include "playback/PlaybackLog.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>

#include <mpv/client.h>

#include <algorithm>
#include <clocale>
#include <thread>

namespace {

// mpv's own numbers, as ids for the properties watched.
constexpr quint64 eofReachedReply = 1;
constexpr quint64 outputReply = 2;

QString sentenceFor(int mpvError) {
    switch (mpvError) {
    case MPV_ERROR_UNKNOWN_FORMAT:
        return QStringLiteral("The file isn't in a format Orvelle can play.");
    case MPV_ERROR_NOTHING_TO_PLAY:
        return QStringLiteral("The file has no sound in it.");
    case MPV_ERROR_AO_INIT_FAILED:
        return QStringLiteral("The sound output couldn't be started.");
    case MPV_ERROR_LOADING_FAILED:
        return QStringLiteral("The file couldn't be opened.");
    default:
        return QStringLiteral("The file couldn't be played (%1).")
            .arg(QString::fromUtf8(mpv_error_string(mpvError)));
    }
}

// Refuses what mpv should never be handed: a FIFO or a device would block its reader for good.
std::optional<QString> refusal(const QUrl& url) {
    if (!url.isLocalFile())
        return QStringLiteral("Only files on this computer can be played.");
    const QFileInfo info(url.toLocalFile());
    if (!info.exists())
        return QStringLiteral("The file doesn't exist.");
    if (!info.isFile())
        return QStringLiteral("It isn't a regular file.");
    if (!info.isReadable())
        return QStringLiteral("You don't have permission to read the file.");
    return std::nullopt;
}

// Tears a handle down off the main thread: mpv waits for its audio output to close.
void destroyLater(mpv_handle* handle) {
    mpv_set_wakeup_callback(handle, nullptr, nullptr);
    QThreadPool::globalInstance()->start([handle] { mpv_terminate_destroy(handle); });
}

// A handle that never finished opening may be stuck in a read: its own thread, which quitting the program
// does not wait for.
void abandon(mpv_handle* handle) {
    std::thread([handle] { mpv_terminate_destroy(handle); }).detach();
}

mpv_handle* createHandle() {
    // libmpv refuses to start unless numbers are formatted the C way. Set once: setlocale races with
    // threads that format numbers, and nothing else in the program depends on LC_NUMERIC.
    static const bool numericLocaleSet = std::setlocale(LC_NUMERIC, "C") != nullptr;
    Q_UNUSED(numericLocaleSet);
    mpv_handle* handle = mpv_create();
    if (!handle)
        return nullptr;
    const QByteArray output = qgetenv("ORVELLE_AUDIO_OUTPUT");
    const std::initializer_list<std::pair<const char*, const char*>> options = {
        {"vid", "no"},
        {"config", "no"},
        {"terminal", "no"},
        {"input-default-bindings", "no"},
        {"input-vo-keyboard", "no"},
        {"load-scripts", "no"},
        {"ytdl", "no"},
        {"audio-display", "no"},
        {"sub-auto", "no"},
        {"audio-file-auto", "no"},
        {"cover-art-auto", "no"},
        {"access-references", "no"},
        {"resume-playback", "no"},
        {"idle", "yes"},
        // At the end the file stays loaded and paused, so the last song can be rewound and played again.
        {"keep-open", "yes"},
        {"pause", "yes"},
        {"audio-client-name", "Orvelle"},
    };
    for (const auto& [name, value] : options) {
        if (mpv_set_option_string(handle, name, value) < 0)
            qCDebug(lcPlayback) << "mpv has no option" << name;
    }
    if (!output.isEmpty())
        mpv_set_option_string(handle, "ao", output.constData());
    if (mpv_initialize(handle) < 0) {
        mpv_terminate_destroy(handle);
        return nullptr;
    }
    return handle;
}

} // namespace

AudioPlayerCreation MpvAudioPlayer::open(const QUrl& url, std::chrono::milliseconds timeout) {
    if (std::optional<QString> reason = refusal(url))
        return {nullptr, *reason};
    mpv_handle* handle = createHandle();
    if (!handle)
        return {nullptr, QStringLiteral("The sound system couldn't be started.")};

    // Ready means loaded and with its sound output running: an output that cannot start ends the file just
    // after loading, and is refused here rather than reported as a decode error of every song in turn.
    mpv_observe_property(handle, outputReply, "current-ao", MPV_FORMAT_STRING);
    const QByteArray path = QFile::encodeName(url.toLocalFile());
    const char* command[] = {"loadfile", path.constData(), "replace", nullptr};
    if (int error = mpv_command(handle, command); error < 0) {
        destroyLater(handle);
        return {nullptr, sentenceFor(error)};
    }

    const QDeadlineTimer deadline(timeout);
    bool loaded = false;
    bool outputRunning = false;
    while (!deadline.hasExpired()) {
        const mpv_event* event = mpv_wait_event(handle, double(deadline.remainingTime()) / 1000.0);
        loaded = loaded || event->event_id == MPV_EVENT_FILE_LOADED;
        outputRunning =
            outputRunning ||
            (event->event_id == MPV_EVENT_PROPERTY_CHANGE && event->reply_userdata == outputReply &&
             static_cast<const mpv_event_property*>(event->data)->format == MPV_FORMAT_STRING);
        if (loaded && outputRunning) {
            mpv_unobserve_property(handle, outputReply);
            return {std::unique_ptr<AudioPlayer>(new MpvAudioPlayer(handle)), QString()};
        }
        if (event->event_id == MPV_EVENT_END_FILE) {
            // The event belongs to the handle: read it before the handle goes.
            const auto* end = static_cast<const mpv_event_end_file*>(event->data);
            const QString error =
                sentenceFor(end->reason == MPV_END_FILE_REASON_ERROR ? end->error : MPV_ERROR_UNKNOWN_FORMAT);
            destroyLater(handle);
            return {nullptr, error};
        }
    }
    qCInfo(lcPlayback) << "Gave up opening" << url << "after" << timeout.count() << "ms";
    abandon(handle);
    return {nullptr, QStringLiteral("The file took too long to open.")};
}

AudioPlayerFactory MpvAudioPlayer::factory() {
    return [](const QUrl& url) { return open(url); };
}

MpvAudioPlayer::MpvAudioPlayer(mpv_handle* handle)
    : m_handle(handle) {
    mpv_observe_property(m_handle, eofReachedReply, "eof-reached", MPV_FORMAT_FLAG);
    // Called on mpv's thread (and once at once, which reads what came while the file was opening): only
    // post to the main thread. Posted calls die with this object.
    mpv_set_wakeup_callback(
        m_handle,
        [](void* context) {
            auto* self = static_cast<MpvAudioPlayer*>(context);
            QMetaObject::invokeMethod(self, &MpvAudioPlayer::readEvents, Qt::QueuedConnection);
        },
        this);
}

MpvAudioPlayer::~MpvAudioPlayer() {
    // Clearing the callback waits for a running one to return, so nothing is posted to a dead object.
    destroyLater(m_handle);
}

void MpvAudioPlayer::readEvents() {
    const QPointer<MpvAudioPlayer> alive(this);
    while (alive) {
        const mpv_event* event = mpv_wait_event(m_handle, 0);
        if (event->event_id == MPV_EVENT_NONE)
            return;
        if (m_ended)
            continue;
        switch (event->event_id) {
        case MPV_EVENT_PLAYBACK_RESTART:
            m_pendingSeek.reset();
            break;
        case MPV_EVENT_PROPERTY_CHANGE: {
            const auto* property = static_cast<const mpv_event_property*>(event->data);
            if (event->reply_userdata != eofReachedReply || property->format != MPV_FORMAT_FLAG)
                break;
            const bool atEnd = *static_cast<const int*>(property->data) != 0;
            const bool reachedEnd = atEnd && !m_atEnd;
            m_atEnd = atEnd;
            if (reachedEnd)
                emit finished(true); // the receiver may destroy this player
            break;
        }
        case MPV_EVENT_END_FILE: {
            const auto* end = static_cast<const mpv_event_end_file*>(event->data);
            m_ended = true;
            if (end->reason == MPV_END_FILE_REASON_ERROR)
                emit decodeError(end->error == MPV_ERROR_AO_INIT_FAILED ? sentenceFor(end->error)
                                                                        : QString());
            else
                emit finished(end->reason == MPV_END_FILE_REASON_EOF);
            break;
        }
        default:
            break;
        }
    }
}

void MpvAudioPlayer::prepareToPlay() {
    // open() returns with the file loaded and its decoder running, paused: nothing is left to prepare.
}

void MpvAudioPlayer::play() {
    int paused = 0;
    mpv_set_property(m_handle, "pause", MPV_FORMAT_FLAG, &paused);
}

void MpvAudioPlayer::pause() {
    int paused = 1;
    mpv_set_property(m_handle, "pause", MPV_FORMAT_FLAG, &paused);
}

void MpvAudioPlayer::stop() {
    pause();
    m_ended = true;
}

void MpvAudioPlayer::setVolume(float volume) {
    double percent = double(volume) * 100.0;
    mpv_set_property(m_handle, "volume", MPV_FORMAT_DOUBLE, &percent);
}

double MpvAudioPlayer::currentTime() const {
    // MP3s report a hair below zero at their start (the encoder's delay).
    return m_pendingSeek ? *m_pendingSeek : std::max(number("time-pos"), 0.0);
}

void MpvAudioPlayer::setCurrentTime(double seconds) {
    if (mpv_set_property(m_handle, "time-pos", MPV_FORMAT_DOUBLE, &seconds) >= 0)
        m_pendingSeek = seconds;
}

double MpvAudioPlayer::duration() const {
    return number("duration");
}

bool MpvAudioPlayer::isPlaying() const {
    return !m_ended && !flag("pause") && !flag("eof-reached");
}

bool MpvAudioPlayer::flag(const char* property) const {
    int value = 0;
    mpv_get_property(m_handle, property, MPV_FORMAT_FLAG, &value);
    return value != 0;
}

double MpvAudioPlayer::number(const char* property) const {
    double value = 0;
    return mpv_get_property(m_handle, property, MPV_FORMAT_DOUBLE, &value) >= 0 ? value : 0.0;
}

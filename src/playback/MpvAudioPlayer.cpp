#include "playback/MpvAudioPlayer.h"

#include "playback/PlaybackLog.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QPointer>
#include <QPromise>
#include <QThread>
#include <QTimer>

#include <mpv/client.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <memory>
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

// Answers at once for what mpv should never be handed: nothing at the path (a URL that names no local file
// has none), or a FIFO or a device, which would block its reader for good.
std::optional<AudioPlayerCreation> refusal(const QUrl& url) {
    const QFileInfo info(url.toLocalFile());
    if (!url.isLocalFile() || !info.exists())
        return AudioPlayerCreation{nullptr, QString(), true};
    if (!info.isFile())
        return AudioPlayerCreation{nullptr, QStringLiteral("It isn't a regular file.")};
    if (!info.isReadable())
        return AudioPlayerCreation{nullptr, QStringLiteral("You don't have permission to read the file.")};
    return std::nullopt;
}

// Tears a handle down on a thread of its own, which quitting the program does not wait for: mpv waits for
// its audio output to close, and a handle that never finished opening may be stuck in a read.
void destroyLater(mpv_handle* handle) {
    mpv_set_wakeup_callback(handle, nullptr, nullptr);
    std::thread([handle] { mpv_terminate_destroy(handle); }).detach();
}

// At the start of playback, already at the end and without a sound output: the file holds no sound. (An
// output that fails to start leaves eof-reached unset, and mpv then ends the file with its own error.)
bool endedSilently(mpv_handle* handle) {
    int atEnd = 0;
    char* output = nullptr;
    if (mpv_get_property(handle, "current-ao", MPV_FORMAT_STRING, &output) >= 0) {
        mpv_free(output);
        return false;
    }
    return mpv_get_property(handle, "eof-reached", MPV_FORMAT_FLAG, &atEnd) >= 0 && atEnd;
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

// One opening, answered once: by the thread that opens, or by the deadline, whichever comes first.
class Opening {
public:
    explicit Opening(QThread* caller)
        : m_caller(caller) {
        m_promise.start();
    }

    QFuture<AudioPlayerCreation> future() { return m_promise.future(); }

    // False when the opening was answered already; a player made too late goes with `creation`.
    bool answer(AudioPlayerCreation creation) {
        if (m_answered.test_and_set())
            return false;
        if (creation.player)
            creation.player->moveToThread(m_caller);
        m_promise.addResult(std::move(creation));
        m_promise.finish();
        return true;
    }

private:
    QThread* m_caller;
    QPromise<AudioPlayerCreation> m_promise;
    std::atomic_flag m_answered;
};

} // namespace

QFuture<AudioPlayerCreation> MpvAudioPlayer::open(const QUrl& url, std::chrono::milliseconds timeout) {
    auto opening = std::make_shared<Opening>(QThread::currentThread());
    QFuture<AudioPlayerCreation> result = opening->future();
    const auto tooLong = [url, timeout](Opening& unanswered) {
        if (unanswered.answer({nullptr, QStringLiteral("The file took too long to open.")}))
            qCInfo(lcPlayback) << "Gave up opening" << url << "after" << timeout.count() << "ms";
    };
    // Whatever the opening thread is stuck in, the caller hears back in time. Once that thread has answered,
    // nothing here holds the result any more.
    QTimer::singleShot(timeout, [unanswered = std::weak_ptr(opening), tooLong] {
        if (const std::shared_ptr<Opening> opening = unanswered.lock())
            tooLong(*opening);
    });
    // Looking at the file, starting mpv and loading may each block (a stalled mount, a slow disk): a thread
    // of its own, which quitting the program does not wait for.
    std::thread([opening = std::move(opening), url, tooLong, deadline = QDeadlineTimer(timeout)] {
        if (std::optional<AudioPlayerCreation> created = openNow(url, deadline))
            opening->answer(std::move(*created));
        else
            tooLong(*opening);
    }).detach();
    return result;
}

std::optional<AudioPlayerCreation> MpvAudioPlayer::openNow(const QUrl& url, const QDeadlineTimer& deadline) {
    if (std::optional<AudioPlayerCreation> refused = refusal(url))
        return refused;
    mpv_handle* handle = createHandle();
    if (!handle)
        return AudioPlayerCreation{nullptr, QStringLiteral("The sound system couldn't be started.")};

    // Ready means loaded and with its sound output running: an output that cannot start ends the file just
    // after loading, and is refused here rather than reported as a decode error of every song in turn.
    mpv_observe_property(handle, outputReply, "current-ao", MPV_FORMAT_STRING);
    const QByteArray path = QFile::encodeName(url.toLocalFile());
    const char* command[] = {"loadfile", path.constData(), "replace", nullptr};
    if (int error = mpv_command(handle, command); error < 0) {
        destroyLater(handle);
        return AudioPlayerCreation{nullptr, sentenceFor(error)};
    }

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
            return AudioPlayerCreation{std::unique_ptr<AudioPlayer>(new MpvAudioPlayer(handle)), QString()};
        }
        if (event->event_id == MPV_EVENT_END_FILE) {
            // The event belongs to the handle: read it before the handle goes.
            const auto* end = static_cast<const mpv_event_end_file*>(event->data);
            const QString error =
                sentenceFor(end->reason == MPV_END_FILE_REASON_ERROR ? end->error : MPV_ERROR_UNKNOWN_FORMAT);
            destroyLater(handle);
            return AudioPlayerCreation{nullptr, error};
        }
        if (event->event_id == MPV_EVENT_PLAYBACK_RESTART && endedSilently(handle)) {
            // A stream without a single sample never opens an output, and mpv waits at its end for good.
            destroyLater(handle);
            return AudioPlayerCreation{nullptr, sentenceFor(MPV_ERROR_NOTHING_TO_PLAY)};
        }
    }
    destroyLater(handle);
    return std::nullopt;
}

AudioPlayerFactory MpvAudioPlayer::factory() {
    return [](const QUrl& url) { return open(url); };
}

MpvAudioPlayer::MpvAudioPlayer(mpv_handle* handle)
    : m_handle(handle) {
    mpv_observe_property(m_handle, eofReachedReply, "eof-reached", MPV_FORMAT_FLAG);
}

MpvAudioPlayer::~MpvAudioPlayer() {
    // Clearing the callback waits for a running one to return, so nothing is posted to a dead object.
    destroyLater(m_handle);
}

void MpvAudioPlayer::prepareToPlay() {
    // The file is loaded and its decoder running, paused. Reports start now, on the thread the player
    // belongs to: a player made for nobody never posts anything, so it may go on any thread. The callback
    // runs on mpv's thread (and once at once, which reads what came while the file was opening): it only
    // posts to this object. Posted calls die with it.
    mpv_set_wakeup_callback(
        m_handle,
        [](void* context) {
            auto* self = static_cast<MpvAudioPlayer*>(context);
            QMetaObject::invokeMethod(self, &MpvAudioPlayer::readEvents, Qt::QueuedConnection);
        },
        this);
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

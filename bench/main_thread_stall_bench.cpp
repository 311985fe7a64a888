// The longest stall of the main thread while the program works on files: adding a folder of 2,000 songs,
// opening a playlist of 100,000 entries, writing a session of 10,000 songs, and starting songs (a real one
// through mpv, and a FIFO named like a song). A 1 ms timer on the main thread records the largest gap
// between its ticks while each operation runs, from the call until its result is in. Target: 50 ms each.
// On a busy machine a gap also holds time the thread waited for a processor, so the main thread's own
// processor time between two ticks (what it spent working) is shown beside it.

#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/MusicFolder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>

namespace {

constexpr int runs = 3;

double threadCpuNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

// Milliseconds: the longest gap between two ticks, and the most processor time spent between two ticks.
struct Stall {
    double gap = 0;
    double busy = 0;
};

// Ticks every millisecond on the main thread and keeps the longest gap between two ticks.
class StallProbe {
public:
    StallProbe() {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(1);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { tick(); });
    }

    // The longest stall while `operation` runs (it returns once its result is in).
    Stall longestStall(const std::function<void()>& operation) {
        m_longest = {};
        m_clock.start();
        m_last = 0;
        m_lastCpu = threadCpuNanoseconds();
        m_timer.start();
        operation();
        tick();
        m_timer.stop();
        return {m_longest.gap / 1e6, m_longest.busy / 1e6};
    }

private:
    void tick() {
        const double now = double(m_clock.nsecsElapsed());
        const double cpu = threadCpuNanoseconds();
        m_longest = {std::max(m_longest.gap, now - m_last), std::max(m_longest.busy, cpu - m_lastCpu)};
        m_last = now;
        m_lastCpu = cpu;
    }

    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_last = 0;
    double m_lastCpu = 0;
    Stall m_longest;
};

// Runs the event loop until `signal` of `sender` comes (at most 30 s).
template <typename Sender, typename Signal> void waitFor(Sender* sender, Signal signal) {
    QEventLoop loop;
    QObject::connect(sender, signal, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    loop.exec();
}

void waitUntilPlaying(PlayerEngine* engine) {
    if (!engine->isPlaying())
        waitFor(engine, &PlayerEngine::isPlayingChanged);
}

QByteArray playlistOf(int entries) {
    QByteArray text = "#EXTM3U\n";
    for (int i = 0; i < entries; ++i)
        text += "#EXTINF:61,Artist - Song " + QByteArray::number(i) + "\n/nonexistent/" +
                QByteArray::number(i) + ".mp3\n";
    return text;
}

QList<Track> sessionOf(int count) {
    QList<Track> tracks;
    for (int i = 0; i < count; ++i) {
        Track track;
        track.id = QUuid::createUuid();
        track.setUrl(QUrl::fromLocalFile(QStringLiteral("/music/Album %1/Song %2.mp3").arg(i / 10).arg(i)));
        track.setTitle(QStringLiteral("Song %1").arg(i));
        tracks.append(track);
    }
    return tracks;
}

void report(const char* operation, StallProbe& probe, const std::function<void()>& prepare,
            const std::function<void()>& operationItself) {
    QList<double> gaps;
    QList<double> busy;
    for (int i = 0; i < runs; ++i) {
        prepare();
        const Stall stall = probe.longestStall(operationItself);
        gaps.append(stall.gap);
        busy.append(stall.busy);
    }
    std::sort(gaps.begin(), gaps.end());
    std::sort(busy.begin(), busy.end());
    std::printf("%-44s longest stall: median %6.1f ms (runs %5.1f %5.1f %5.1f); working: median %5.1f ms\n",
                operation, gaps[runs / 2], gaps[0], gaps[1], gaps[2], busy[runs / 2]);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
        qputenv("ORVELLE_AUDIO_OUTPUT", "null");
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);

    fixtures::MusicFolder music;
    for (int i = 0; i < 2000; ++i) {
        if (music.addSong(QStringLiteral("library/Album %1/%2 Song.mp3").arg(i / 10).arg(i % 10 + 1))
                .isEmpty()) {
            std::fprintf(stderr, "Couldn't make the songs (is ffmpeg installed?)\n");
            return 1;
        }
    }
    music.addFile("big.m3u8", playlistOf(100000));
    const QString fifo = music.filePath("fifo.mp3");
    ::mkfifo(QFile::encodeName(fifo).constData(), 0600);

    LibraryStore store(&settings, MpvAudioPlayer::factory(), [](const QString&) { return std::nullopt; });
    PlayerEngine* engine = store.engine();
    StallProbe probe;
    const auto clear = [&] { store.clear(); };

    report(
        "nothing (the machine's own noise)", probe, [] {},
        [] {
            QEventLoop idle;
            QTimer::singleShot(1000, &idle, &QEventLoop::quit);
            idle.exec();
        });
    report("add a folder of 2,000 songs", probe, clear,
           [&] { fixtures::await(store.addURLs({music.url("library")})); });
    report("open a playlist of 100,000 entries", probe, clear,
           [&] { fixtures::await(store.openPlaylist(music.url("big.m3u8"), true)); });

    store.setTracks(sessionOf(10000));
    waitFor(&store, &LibraryStore::sessionSaved);
    report(
        "write a session of 10,000 songs", probe, [] {},
        [&] {
            store.scheduleSessionSave();
            waitFor(&store, &LibraryStore::sessionSaved);
        });

    Track song;
    song.id = QUuid::createUuid();
    song.setUrl(music.url("library/Album 0/1 Song.mp3"));
    Track pipe = song;
    pipe.id = QUuid::createUuid();
    pipe.setUrl(QUrl::fromLocalFile(fifo));
    const auto queue = [&](const QList<Track>& tracks) {
        return [&store, engine, tracks] {
            engine->stop();
            store.setTracks(tracks);
        };
    };
    report("start a song (mpv opens it)", probe, queue({song}), [&] {
        engine->playTrackAt(0);
        waitUntilPlaying(engine);
    });
    report("start a FIFO named .mp3, then the next song", probe, queue({pipe, song}), [&] {
        engine->playTrackAt(0);
        waitUntilPlaying(engine);
    });
    std::printf("(target 50 ms each; figures from a machine shared with other work)\n");
    return 0;
}

// Plays a 60 s MP3 through the engine and the mpv player, then pauses it.
// Targets: under 2% of one core while playing; no wake-ups from the program while paused.
// The audio output is ORVELLE_AUDIO_OUTPUT, or mpv's null output (paced in real time) when unset.

#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"

#include "support/Fixtures.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>
#include <map>

namespace {

constexpr int playSeconds = 15;
constexpr int pausedSeconds = 10;

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Context switches of every thread of the process, by thread name: each one is the thread waking up.
std::map<QString, long long> switchesByThread() {
    std::map<QString, long long> switches;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        QFile status(tasks.filePath(task + QStringLiteral("/status")));
        if (!comm.open(QIODevice::ReadOnly) || !status.open(QIODevice::ReadOnly))
            continue;
        const QString name = QString::fromUtf8(comm.readAll().trimmed()) + QLatin1Char('/') + task;
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches") || line.startsWith("nonvoluntary_ctxt_switches"))
                switches[name] += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
        }
    }
    return switches;
}

void runFor(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
        qputenv("ORVELLE_AUDIO_OUTPUT", "null");
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString song = dir.filePath(QStringLiteral("sixty.mp3"));
    // 192 kb/s, as a typical bought or ripped MP3.
    if (!dir.isValid() ||
        !fixtures::makeAudio(song, 60.0, {QStringLiteral("-b:a"), QStringLiteral("192k")})) {
        std::fprintf(stderr, "could not make the test song with ffmpeg\n");
        return 1;
    }

    QSettings settings(dir.filePath(QStringLiteral("bench.ini")), QSettings::IniFormat);
    PlayerEngine engine(&settings, MpvAudioPlayer::factory());
    Track track;
    track.id = QUuid::createUuid();
    track.setUrl(QUrl::fromLocalFile(song));
    engine.setQueue({track});

    engine.play();
    QEventLoop opening; // the song opens off the main thread: it plays, or fails with a message
    QObject::connect(&engine, &PlayerEngine::isPlayingChanged, &opening, &QEventLoop::quit);
    QObject::connect(&engine, &PlayerEngine::playbackErrorChanged, &opening, &QEventLoop::quit);
    opening.exec();
    if (!engine.isPlaying()) {
        std::fprintf(stderr, "could not play: %s\n", qPrintable(engine.playbackError()));
        return 1;
    }
    runFor(1000); // past the start-up of the decoder and the output
    const double startPosition = engine.currentTime();
    const double startCpu = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    runFor(playSeconds * 1000);
    const double cpu = cpuSeconds() - startCpu;
    const double elapsed = wall.nsecsElapsed() / 1e9;
    const double played = engine.currentTime() - startPosition;
    std::printf("audio output: %s\n", qgetenv("ORVELLE_AUDIO_OUTPUT").constData());
    std::printf(
        "playing: %.3f s of CPU over %.2f s (%.2f%% of one core; target < 2%%), %.2f s of audio played\n",
        cpu, elapsed, 100.0 * cpu / elapsed, played);

    engine.pause();
    runFor(3000); // let the output drain and the threads settle
    const auto before = switchesByThread();
    const double pausedCpu = cpuSeconds();
    runFor(pausedSeconds * 1000);
    const auto after = switchesByThread();
    long long total = 0;
    for (const auto& [name, count] : after) {
        const auto earlier = before.find(name);
        const long long woke = count - (earlier == before.end() ? 0 : earlier->second);
        total += woke;
        if (woke > 0)
            std::printf("  paused: thread %s woke %lld times\n", qPrintable(name), woke);
    }
    // The benchmark's own end-of-wait timer wakes the main thread once.
    std::printf("paused: %.2f wake-ups/s over %d s (%lld in all, 1 of them the benchmark's own timer), "
                "%.4f s of CPU\n",
                double(total) / pausedSeconds, pausedSeconds, total, cpuSeconds() - pausedCpu);
    return 0;
}

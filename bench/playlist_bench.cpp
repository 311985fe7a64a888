// Reads and writes a 100,000-entry M3U8 whose files all exist, as a large library's session file would be.
// Targets: reading under 0.5 s, writing (with relative paths) under 0.2 s. Then reads lines of 10 MB (a
// path, a duration, a PLS key), which must take time in proportion to their length.

#include "library/PlaylistFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <ctime>
#include <functional>

namespace {

constexpr int entryCount = 100000;
constexpr int folderCount = 500;
constexpr int runs = 5;

struct Timing {
    double wall = 1e9; // seconds
    double cpu = 1e9;  // seconds of processor time, which a busy machine disturbs less
};

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// The fastest of a few runs.
Timing fastest(const std::function<void()>& work) {
    Timing best;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        const double cpuStart = cpuSeconds();
        work();
        best.cpu = std::min(best.cpu, cpuSeconds() - cpuStart);
        best.wall = std::min(best.wall, timer.nsecsElapsed() / 1e9);
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;

    QByteArray text = "#EXTM3U\n";
    for (int i = 0; i < entryCount; ++i) {
        const QString folder = QStringLiteral("Artist %1/Album").arg(i % folderCount);
        const QString name =
            QStringLiteral("%1 Song number %2.mp3").arg(i / folderCount, 3, 10, QChar(u'0')).arg(i);
        QDir().mkpath(dir.filePath(folder));
        QFile(dir.filePath(folder + u'/' + name)).open(QIODevice::WriteOnly);
        text += "#EXTINF:215,Artist " + QByteArray::number(i % folderCount) + " - Song number " +
                QByteArray::number(i) + "\n" + (folder + u'/' + name).toUtf8() + "\n";
    }
    const QUrl playlist = QUrl::fromLocalFile(dir.filePath("library.m3u8"));
    QFile file(playlist.toLocalFile());
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        return 1;
    file.close();

    PlaylistReadResult result;
    const Timing read = fastest([&] { result = PlaylistFile::readPlaylist(playlist); });
    if (result.entries.size() != entryCount) {
        std::printf("read %lld entries instead of %d\n", qlonglong(result.entries.size()), entryCount);
        return 1;
    }

    QList<Track> tracks;
    tracks.reserve(entryCount);
    for (const PlaylistEntry& entry : result.entries) {
        Track track;
        track.setUrl(entry.url);
        track.setTitle(entry.title.value_or(QString()));
        track.setArtist(entry.artist.value_or(QString()));
        track.duration = entry.duration.value_or(0);
        tracks.append(track);
    }
    const QUrl copy = QUrl::fromLocalFile(dir.filePath("copy.m3u8"));
    std::optional<QString> error;
    const Timing write = fastest([&] { error = PlaylistFile::writePlaylist(tracks, copy, true); });
    if (error) {
        std::printf("write failed: %s\n", qPrintable(*error));
        return 1;
    }
    QFile written(copy.toLocalFile());
    const bool same = written.open(QIODevice::ReadOnly) && written.readAll() == text;

    std::printf("playlist read  %d entries: %.3f s (%.3f s CPU), target 0.5 s\n", entryCount, read.wall,
                read.cpu);
    std::printf("playlist write %d entries: %.3f s (%.3f s CPU), target 0.2 s, %s\n", entryCount, write.wall,
                write.cpu, same ? "identical to the original" : "DIFFERS from the original");

    const QByteArray huge(10 << 20, '9');
    const std::pair<const char*, QByteArray> longLines[] = {
        {"long.m3u", "#EXTINF:" + huge + ",x\n" + QByteArray(10 << 20, 'a')},
        {"long.pls", "File" + huge + "=a.mp3"}};
    for (const auto& [name, contents] : longLines) {
        QFile longFile(dir.filePath(name));
        if (!longFile.open(QIODevice::WriteOnly) || longFile.write(contents) != contents.size())
            return 1;
        longFile.close();
        const Timing timing =
            fastest([&] { result = PlaylistFile::readPlaylist(QUrl::fromLocalFile(longFile.fileName())); });
        std::printf("playlist %s with 10 MB lines: %.3f s (%.3f s CPU), %lld entries\n", name, timing.wall,
                    timing.cpu, qlonglong(result.entries.size()));
    }
    return same ? 0 : 1;
}

// What a user with a large library meets, each figure from a fresh process: adding the library's folder
// (the folder listing inside the timing) and restoring a session of all its songs, with the metadata cache
// absent (first start) and present, beside bare TagLib reading the same folder on one thread. Medians over
// the runs; peak resident memory as the process itself reports it (VmHWM).
//
// The library: tagged one-second MP3s (ID3v2.4 and ID3v1, eight fields), ten per album folder, with noise
// JPEG covers of a realistic size that do not compress: "album" puts one cover.jpg in every album folder,
// "song" embeds a different picture in every song. It is made once and kept for later runs.
//
// Usage: library_scale_bench [--songs N] [--covers album500|album35|song500|song35] [--runs R]
//                            [--only present] [--library FOLDER]
// Defaults: 10,000 songs, album500, 3 runs, /tmp/orvelle-bench-library. "--only present" measures only the
// restore with the cache present (after one load fills the cache), for libraries too large to read often.
// Targets: restore of 100,000 songs (album500) with the cache present under 1 s and 250 MiB; with the cache
// absent, at least as fast as bare TagLib on one thread.

#include "library/MetadataCache.h"
#include "store/LibraryStore.h"
#include "support/FakeAudioPlayer.h"
#include "support/MusicFolder.h"
#include "tags/ID3TagWriter.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QThread>
#include <QtMath>

#include <taglib/fileref.h>
#include <taglib/tag.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

namespace {

QElapsedTimer sinceStart;

struct Options {
    int songs = 10000;
    QString covers = QStringLiteral("album500");
    int runs = 3;
    bool onlyPresent = false;
    QString library = QStringLiteral("/tmp/orvelle-bench-library");
};

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A noise JPEG of close to `targetBytes`.
QByteArray coverImage(qsizetype targetBytes) {
    const int side = int(171 * qSqrt(double(targetBytes) / (35 * 1024)));
    QRandomGenerator random(7);
    QImage image(side, side, QImage::Format_RGB32);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            image.setPixel(x, y, random.generate() | 0xff000000u);
    QByteArray best;
    for (int quality = 100; quality >= 40; quality -= 4) {
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPG", quality);
        if (best.isEmpty() || std::abs(bytes.size() - targetBytes) < std::abs(best.size() - targetBytes))
            best = bytes;
    }
    return best;
}

// The cover made different from every other by a comment segment after the JPEG's start marker: distinct
// bytes at no cost, decoded like the original.
QByteArray distinctCover(const QByteArray& cover, int n) {
    const QByteArray text = "orvelle bench " + QByteArray::number(n);
    const int length = int(text.size()) + 2;
    return cover.left(2) + QByteArray("\xFF\xFE", 2) + char(length >> 8) + char(length & 0xFF) + text +
           cover.mid(2);
}

QString libraryFolder(const Options& options) {
    return QStringLiteral("%1/%2-%3").arg(options.library, options.covers).arg(options.songs);
}

// Makes the library and its session file once; later runs find the marker and reuse them.
bool makeLibrary(const Options& options) {
    const QString root = libraryFolder(options);
    if (QFile::exists(root + "/complete"))
        return true;
    const QString sample = fixtures::sampleSong();
    const QByteArray sampleBytes = readFile(sample);
    const ID3TagWriter::Range range = ID3TagWriter::audioRange(sampleBytes);
    const QByteArray audio = sampleBytes.mid(range.start, range.length);
    if (audio.isEmpty())
        return false;
    const bool perAlbum = options.covers.startsWith("album");
    const QByteArray cover =
        coverImage((perAlbum ? options.covers.mid(5) : options.covers.mid(4)).toInt() * 1000);
    std::printf("making %d songs with %.0f KB covers in %s ...\n", options.songs, cover.size() / 1e3,
                qPrintable(root));
    std::fflush(stdout);
    QByteArray session = "#EXTM3U\n";
    for (int song = 0; song < options.songs; ++song) {
        const int album = song / 10;
        const QString folder =
            QStringLiteral("%1/music/Artist %2/Album %3").arg(root).arg(album / 10).arg(album);
        if (song % 10 == 0) {
            QDir().mkpath(folder);
            if (perAlbum && !writeFile(folder + "/cover.jpg", distinctCover(cover, album)))
                return false;
        }
        const MusicMetadata tags{QStringLiteral("Song %1").arg(song),
                                 QStringLiteral("Artist %1").arg(album / 10),
                                 QStringLiteral("Album %1").arg(album),
                                 QStringLiteral("Artist %1").arg(album / 10),
                                 QStringLiteral("%1/10").arg(song % 10 + 1),
                                 "1999",
                                 "Jazz",
                                 "A comment"};
        const std::optional<QByteArray> tag =
            ID3TagWriter::buildTag(tags, perAlbum ? std::nullopt : std::optional(distinctCover(cover, song)));
        const QString path = QStringLiteral("%1/%2 Song %3.mp3").arg(folder).arg(song % 10 + 1).arg(song);
        if (!tag || !writeFile(path, *tag + audio + ID3TagWriter::buildID3v1Tag(tags)))
            return false;
        session += QStringLiteral("#EXTINF:1,%1 - %2\n%3\n").arg(tags.artist, tags.title, path).toUtf8();
    }
    return writeFile(root + "/LastSession.m3u8", session) && writeFile(root + "/complete", {});
}

qint64 peakResidentKiB() {
    for (const QByteArray& line : readFile("/proc/self/status").split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// What the process has used so far: "seconds peak-KiB songs cpu-seconds" on standard output.
void printUsage(qsizetype songs) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double cpu = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                       (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    std::printf("%.4f %lld %lld %.4f\n", sinceStart.nsecsElapsed() / 1e9, peakResidentKiB(), qlonglong(songs),
                cpu);
}

// One measurement in this fresh process, taken once the songs are in (the store's teardown at exit is
// not part of a start).
int child(const QString& what, const QString& root) {
    if (what == "taglib") {
        qsizetype count = 0;
        QDirIterator it(root + "/music", {"*.mp3"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const TagLib::FileRef file(QFile::encodeName(it.next()).constData(), true,
                                       TagLib::AudioProperties::Fast);
            if (!file.isNull() && file.tag() && !file.tag()->title().isEmpty() && file.audioProperties() &&
                file.audioProperties()->lengthInMilliseconds() >= 0)
                ++count;
        }
        printUsage(count);
        return 0;
    }
    QSettings settings(root + "/xdg/settings.ini", QSettings::IniFormat);
    LibraryStore store(&settings, fixtures::noAudioPlayer,
                       [](const QString&) { return std::optional<QUrl>(); });
    QFuture<void> done =
        what == "add" ? store.addURLs({QUrl::fromLocalFile(root + "/music")}) : store.restoreSession();
    while (!done.isFinished())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    printUsage(store.tracks().size());
    return 0;
}

struct Figure {
    QList<double> seconds;
    QList<double> cpuSeconds; // user and system time of all the process's threads
    QList<double> peakMiB;
    qlonglong songs = 0;
};

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

bool measure(const QString& what, bool withCache, const QString& root, Figure& figure) {
    const QString cache = root + "/xdg/cache/Orvelle/metadata.sqlite";
    if (!withCache) {
        for (const char* suffix : {"", "-wal", "-shm"})
            QFile::remove(cache + suffix);
    }
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CACHE_HOME", root + "/xdg/cache");
    environment.insert("XDG_DATA_HOME", root + "/xdg/data");
    environment.insert("XDG_CONFIG_HOME", root + "/xdg/config");
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {"--child", what, root});
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        return false;
    const QList<QByteArray> fields = process.readAllStandardOutput().trimmed().split(' ');
    if (fields.size() != 4)
        return false;
    figure.cpuSeconds.append(fields[3].toDouble());
    figure.seconds.append(fields[0].toDouble());
    figure.peakMiB.append(fields[1].toDouble() / 1024);
    figure.songs = fields[2].toLongLong();
    return true;
}

void report(const char* name, const Figure& figure) {
    std::printf(
        "  %-36s median %7.3f s (%7.0f songs/s), cpu %7.3f s, peak %6.1f MiB [%lld songs, %lld runs]\n", name,
        median(figure.seconds), figure.songs / std::max(median(figure.seconds), 1e-9),
        median(figure.cpuSeconds), median(figure.peakMiB), figure.songs, qlonglong(figure.seconds.size()));
}

} // namespace

int main(int argc, char** argv) {
    sinceStart.start();
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 4 && arguments[1] == "--child")
        return child(arguments[2], arguments[3]);

    Options options;
    for (qsizetype i = 1; i + 1 < arguments.size(); i += 2) {
        const QString& value = arguments[i + 1];
        if (arguments[i] == "--songs")
            options.songs = value.toInt();
        else if (arguments[i] == "--covers")
            options.covers = value;
        else if (arguments[i] == "--runs")
            options.runs = value.toInt();
        else if (arguments[i] == "--only")
            options.onlyPresent = value == "present";
        else if (arguments[i] == "--library")
            options.library = value;
    }
    QElapsedTimer making;
    making.start();
    if (!makeLibrary(options)) {
        std::fprintf(stderr, "could not make the library (is ffmpeg installed?)\n");
        return 1;
    }
    const QString root = libraryFolder(options);
    QDir().mkpath(root + "/xdg/data/Orvelle");
    QFile::remove(root + "/xdg/data/Orvelle/LastSession.m3u8");
    QFile::copy(root + "/LastSession.m3u8", root + "/xdg/data/Orvelle/LastSession.m3u8");
    // Warm the page cache, as on a machine that has been running a while.
    QDirIterator it(root + "/music", QDir::Files, QDirIterator::Subdirectories);
    qint64 bytes = 0;
    while (it.hasNext())
        bytes += readFile(it.next()).size();
    std::printf("library %s: %d songs, %.0f MB, ready in %.1f s; %d cores (a shared machine)\n",
                qPrintable(root), options.songs, bytes / 1e6, making.nsecsElapsed() / 1e9,
                QThread::idealThreadCount());

    Figure taglib, addAbsent, addPresent, restoreAbsent, restorePresent;
    if (options.onlyPresent && !QFile::exists(root + "/xdg/cache/Orvelle/metadata.sqlite") &&
        !measure("restore", false, root, restoreAbsent)) {
        std::fprintf(stderr, "the first restore failed\n");
        return 1;
    }
    for (int run = 0; run < options.runs; ++run) {
        const bool ok = options.onlyPresent ? measure("restore", true, root, restorePresent)
                                            : measure("taglib", false, root, taglib) &&
                                                  measure("add", false, root, addAbsent) &&
                                                  measure("add", true, root, addPresent) &&
                                                  measure("restore", false, root, restoreAbsent) &&
                                                  measure("restore", true, root, restorePresent);
        if (!ok) {
            std::fprintf(stderr, "a measurement failed\n");
            return 1;
        }
    }
    if (!options.onlyPresent) {
        report("bare TagLib, one thread (anchor)", taglib);
        report("add the folder, cache absent", addAbsent);
        report("add the folder, cache present", addPresent);
        report("restore the session, cache absent", restoreAbsent);
        std::printf("  cache absent, adding vs bare TagLib: %.2fx as fast (target: at least 1x)\n",
                    median(taglib.seconds) / median(addAbsent.seconds));
    }
    report("restore the session, cache present", restorePresent);
    std::printf("  targets at 100,000 songs (album500): restore with the cache under 1 s and 250 MiB\n");
    return 0;
}

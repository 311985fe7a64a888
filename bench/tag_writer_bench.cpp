// Rewriting the tags of a 10 MB MP3 with a 500 KB cover, against a plain copy of the same file on the same
// disk. Both flush to disk before they count as done, and each is the first of its kind in a fresh process,
// as a user's first save after starting the program is. Usage: tag_writer_bench [folder] (default: a
// temporary folder under TMPDIR). Target: a save at most 1.3 times a copy.
#include "support/Fixtures.h"
#include "tags/ID3TagWriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype fileSize = 10 * 1000 * 1000;
constexpr qsizetype coverSize = 500 * 1000;
constexpr int rounds = 25;

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// An MP3 of about 10 MB: real MPEG frames repeated, after an old ID3v2.3 tag and before an ID3v1 trailer.
QByteArray makeSong(const QString& folder) {
    const QString seed = folder + "/seed.mp3";
    if (!fixtures::makeAudio(seed, 10.0, {"-id3v2_version", "0", "-write_xing", "0"}))
        return {};
    const QByteArray frames = readAll(seed);
    QFile::remove(seed);
    QByteArray song = QByteArray("ID3\x03\x00\x00\x00\x00\x08\x00", 10) + QByteArray(1024, '\0');
    while (song.size() < fileSize - 128)
        song += frames;
    song += "TAG" + QByteArray(125, '\0');
    return song;
}

// A stand-in for a cover: JPEG magic, then bytes that do not compress.
QByteArray makeCover() {
    QByteArray cover(coverSize, Qt::Uninitialized);
    QRandomGenerator random(42);
    for (char& byte : cover)
        byte = char(random.bounded(256));
    cover[0] = char(0xFF);
    cover[1] = char(0xD8);
    cover[2] = char(0xFF);
    return cover;
}

// What copying the file costs with the same care: read it whole, write it out, flush it to disk.
bool plainCopy(const QString& from, const QString& to) {
    const QByteArray data = readAll(from);
    const int fd = ::open(QFile::encodeName(to).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const char* next = data.constData();
    qsizetype left = data.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, next, size_t(left));
        if (written <= 0) {
            ::close(fd);
            return false;
        }
        next += written;
        left -= written;
    }
    const bool flushed = ::fsync(fd) == 0;
    return ::close(fd) == 0 && flushed;
}

// In a fresh process: one save or one copy of `path`, timed; prints milliseconds.
int child(const QString& what, const QString& path) {
    const QByteArray cover = makeCover(); // the picture the inspector would hand over
    const MusicMetadata metadata{"Title", "Artist", "Album", "Album Artist",
                                 "3/12",  "1999",   "Jazz",  "A comment"};
    QElapsedTimer timer;
    timer.start();
    if (what == "save") {
        if (const auto error = ID3TagWriter::write(metadata, cover, QUrl::fromLocalFile(path))) {
            std::fprintf(stderr, "save failed: %s\n", qPrintable(error->description()));
            return 1;
        }
    } else if (!plainCopy(path, path + ".copy")) {
        std::fprintf(stderr, "copy failed\n");
        return 1;
    }
    std::printf("%.3f\n", timer.nsecsElapsed() / 1e6);
    return 0;
}

// Runs child() in a fresh process and returns its milliseconds, or a negative number when it failed.
double inFreshProcess(const QString& what, const QString& path) {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), {"--child", what, path});
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        return -1;
    return process.readAllStandardOutput().trimmed().toDouble();
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 4 && arguments[1] == "--child")
        return child(arguments[2], arguments[3]);
    QTemporaryDir dir(argc > 1 ? QString::fromLocal8Bit(argv[1]) + "/orvelle-bench-XXXXXX" : QString());
    if (!dir.isValid()) {
        std::fprintf(stderr, "cannot make a folder to work in\n");
        return 1;
    }
    const QByteArray song = makeSong(dir.path());
    if (song.isEmpty()) {
        std::fprintf(stderr, "ffmpeg could not make the sample audio\n");
        return 1;
    }
    const QString path = dir.filePath("song.mp3");
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly) || out.write(song) != song.size())
        return 1;
    out.close();

    QList<double> saves;
    QList<double> copies;
    for (int round = 0; round < rounds; ++round) {
        saves += inFreshProcess("save", path);
        copies += inFreshProcess("copy", path);
        if (saves.last() < 0 || copies.last() < 0)
            return 1;
    }

    const double save = median(saves);
    const double copy = median(copies);
    std::printf("tag writer: %.1f MB song, %.1f MB once tagged with a %.0f KB cover, %d rounds, in %s\n",
                song.size() / 1e6, QFileInfo(path).size() / 1e6, coverSize / 1e3, rounds,
                qPrintable(dir.path()));
    std::printf(
        "  first save in a process (edges read, audio copied, fsync, rename): median %.1f ms, best %.1f ms\n",
        save, *std::min_element(saves.begin(), saves.end()));
    std::printf(
        "  first plain copy in a process (read, write, fsync):                median %.1f ms, best %.1f ms\n",
        copy, *std::min_element(copies.begin(), copies.end()));
    std::printf("  save / copy: %.2fx (target: at most 1.3x)\n", save / copy);
    return 0;
}

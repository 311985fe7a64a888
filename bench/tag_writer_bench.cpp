// Rewriting the tags of a 10 MB MP3 with a 500 KB cover, against a plain copy of the same file on the same
// disk. Both flush to disk before they count as done. Usage: tag_writer_bench [folder] (default: a temporary
// folder under TMPDIR).
#include "support/Fixtures.h"
#include "tags/ID3TagWriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
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

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
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
    const QByteArray cover = makeCover();
    const MusicMetadata metadata{"Title", "Artist", "Album", "Album Artist",
                                 "3/12",  "1999",   "Jazz",  "A comment"};
    const QUrl url = QUrl::fromLocalFile(path);

    QList<double> saves;
    QList<double> copies;
    QElapsedTimer timer;
    for (int round = 0; round < rounds; ++round) {
        timer.start();
        if (const auto error = ID3TagWriter::write(metadata, cover, url)) {
            std::fprintf(stderr, "save failed: %s\n", qPrintable(error->description()));
            return 1;
        }
        saves += timer.nsecsElapsed() / 1e6;

        timer.start();
        if (!plainCopy(path, dir.filePath("copy.mp3"))) {
            std::fprintf(stderr, "copy failed\n");
            return 1;
        }
        copies += timer.nsecsElapsed() / 1e6;
    }

    const double save = median(saves);
    const double copy = median(copies);
    std::printf("tag writer: %.1f MB song, %.1f MB once tagged with a %.0f KB cover, %d rounds, in %s\n",
                song.size() / 1e6, QFileInfo(path).size() / 1e6, coverSize / 1e3, rounds,
                qPrintable(dir.path()));
    std::printf("  save tags (read, rebuild, write, fsync, rename): median %.1f ms, best %.1f ms\n", save,
                *std::min_element(saves.begin(), saves.end()));
    std::printf("  plain copy (read, write, fsync):                 median %.1f ms, best %.1f ms\n", copy,
                *std::min_element(copies.begin(), copies.end()));
    std::printf("  save / copy: %.2fx (target: at most 2x)\n", save / copy);
    return 0;
}

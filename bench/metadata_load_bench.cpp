// Loads a tagged music library through MetadataLoader the way the store does (batches of eight on the
// loaders' pool) and prints tracks per second, cold and with folder artwork cached, and the heap a loaded
// Track costs beyond its artwork.
//
// The library: 2,000 one-second MP3s in 200 album folders, ID3v2.4 tags; even albums carry a ~35 KB cover
// embedded in every track, odd albums a cover.jpg beside the tracks. Files are read once before timing so
// the page cache holds them. Usage: metadata_load_bench [work folder]   (default: a temporary folder)

#include "library/ArtworkInterner.h"
#include "library/MetadataLoader.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int albumCount = 200;
constexpr int tracksPerAlbum = 10;
constexpr int batchSize = 8;

// A noisy JPEG of close to `targetBytes`, different for every seed.
QByteArray coverImage(quint32 seed, qsizetype targetBytes) {
    QRandomGenerator random(seed);
    QImage image(171, 171, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, random.generate() | 0xff000000u);
    QByteArray best;
    for (int quality = 100; quality >= 50; quality -= 2) {
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPG", quality);
        if (best.isEmpty() || std::abs(bytes.size() - targetBytes) < std::abs(best.size() - targetBytes))
            best = bytes;
    }
    return best;
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

const char* const taggingScript = R"(
import os, shutil, sys
from mutagen.id3 import ID3, TIT2, TPE1, TALB, TPE2, TRCK, TDRC, TCON, COMM, APIC
base, root, covers, albums, per = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
for a in range(albums):
    folder = os.path.join(root, 'Artist %03d' % (a // 2), 'Album %03d' % a)
    os.makedirs(folder, exist_ok=True)
    cover = open(os.path.join(covers, '%d.jpg' % a), 'rb').read() if a % 2 == 0 else None
    for t in range(per):
        path = os.path.join(folder, '%02d Song %d.mp3' % (t + 1, t + 1))
        shutil.copyfile(base, path)
        tags = ID3()
        tags.add(TIT2(encoding=3, text='Song %d of album %d' % (t + 1, a)))
        tags.add(TPE1(encoding=3, text='Artist %03d' % (a // 2)))
        tags.add(TALB(encoding=3, text='Album %03d' % a))
        tags.add(TPE2(encoding=3, text='Artist %03d' % (a // 2)))
        tags.add(TRCK(encoding=3, text='%d/%d' % (t + 1, per)))
        tags.add(TDRC(encoding=3, text='%d-05-03' % (1960 + a % 60)))
        tags.add(TCON(encoding=3, text='(17)'))
        tags.add(COMM(encoding=3, lang='eng', desc='', text='A comment'))
        if cover:
            tags.add(APIC(encoding=3, mime='image/jpeg', type=3, desc='', data=cover))
        tags.save(path, v2_version=4)
)";

bool makeLibrary(const QString& root) {
    const QString covers = root + "/covers";
    QDir().mkpath(covers);
    QDir().mkpath(root + "/music");
    for (int album = 0; album < albumCount; ++album) {
        const QByteArray image = coverImage(quint32(album + 1), 35 * 1024);
        if (!writeFile(QStringLiteral("%1/%2.jpg").arg(covers).arg(album), image))
            return false;
    }
    const QString base = fixtures::sampleSong();
    if (base.isEmpty())
        return false;
    const fixtures::ToolResult tagged =
        fixtures::run(fixtures::systemPython(),
                      {"-c", taggingScript, base, root + "/music", covers, QString::number(albumCount),
                       QString::number(tracksPerAlbum)},
                      600000);
    if (tagged.exitCode != 0) {
        std::fprintf(stderr, "tagging failed: %s\n", tagged.err.constData());
        return false;
    }
    for (int album = 1; album < albumCount; album += 2) {
        const QString folder = QStringLiteral("%1/music/Artist %2/Album %3")
                                   .arg(root)
                                   .arg(album / 2, 3, 10, QLatin1Char('0'))
                                   .arg(album, 3, 10, QLatin1Char('0'));
        if (!QFile::copy(QStringLiteral("%1/%2.jpg").arg(covers).arg(album), folder + "/cover.jpg"))
            return false;
    }
    return true;
}

QList<QUrl> songsIn(const QString& folder) {
    QList<QUrl> urls;
    qint64 bytes = 0;
    QDirIterator it(folder, {"*.mp3", "*.jpg"}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            bytes += file.readAll().size(); // into the page cache
        if (path.endsWith(".mp3"))
            urls.append(QUrl::fromLocalFile(path));
    }
    std::sort(urls.begin(), urls.end());
    std::printf("library: %lld songs, %.1f MB read into the page cache\n", qlonglong(urls.size()),
                bytes / 1e6);
    return urls;
}

QList<Track> loadInBatches(const QList<QUrl>& urls, double& seconds) {
    QList<Track> tracks;
    tracks.reserve(urls.size());
    QElapsedTimer timer;
    timer.start();
    for (qsizetype start = 0; start < urls.size(); start += batchSize) {
        QList<QFuture<Track>> batch;
        for (qsizetype i = start; i < std::min(start + batchSize, urls.size()); ++i)
            batch.append(MetadataLoader::loadTrack(urls[i]));
        for (QFuture<Track>& future : batch)
            tracks.append(future.result());
    }
    seconds = timer.nsecsElapsed() / 1e9;
    return tracks;
}

size_t heapInUse() {
    return mallinfo2().uordblks;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir temporary;
    const QString root = argc > 1 ? QString::fromLocal8Bit(argv[1]) : temporary.path();
    if (!QFileInfo::exists(root + "/music")) {
        QElapsedTimer making;
        making.start();
        if (!makeLibrary(root)) {
            std::fprintf(stderr, "could not make the library in %s\n", qPrintable(root));
            return 1;
        }
        std::printf("made the library in %.1f s\n", making.nsecsElapsed() / 1e9);
    }
    const QList<QUrl> urls = songsIn(root + "/music");
    std::printf("cores: %d, loader threads: %d, batches of %d\n", QThread::idealThreadCount(),
                MetadataLoader::pool()->maxThreadCount(), batchSize);

    double firstSeconds = 0;
    const QList<Track> first = loadInBatches(urls, firstSeconds);
    std::printf("first pass (folder artwork scanned):  %7.0f tracks/s  (%.3f s)\n",
                urls.size() / firstSeconds, firstSeconds);

    // The first pass's tracks stay alive, so the second pass's artwork is all shared: the heap growth is
    // what the tracks themselves cost.
    const size_t before = heapInUse();
    double cachedSeconds = 0;
    const QList<Track> second = loadInBatches(urls, cachedSeconds);
    const size_t after = heapInUse();
    std::printf("second pass (folder artwork cached):  %7.0f tracks/s  (%.3f s)\n",
                urls.size() / cachedSeconds, cachedSeconds);

    qsizetype withArtwork = 0;
    qsizetype artworkBytesCarried = 0;
    QSet<const char*> buffers;
    for (const Track& track : first + second) {
        if (track.artwork) {
            ++withArtwork;
            artworkBytesCarried += track.artwork->size();
            buffers.insert(track.artwork->constData());
        }
    }
    std::printf("heap per loaded track beyond its artwork: %.0f bytes\n",
                double(after > before ? after - before : 0) / double(second.size()));
    std::printf(
        "tracks with artwork: %lld carrying %.1f MB; distinct buffers %lld; interner holds %lld images, "
        "%.1f MB\n",
        qlonglong(withArtwork), artworkBytesCarried / 1e6, qlonglong(buffers.size()),
        qlonglong(ArtworkInterner::shared().imageCount()), ArtworkInterner::shared().byteCount() / 1e6);
    return 0;
}

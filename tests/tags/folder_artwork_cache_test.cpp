#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "tags/FolderArtworkCache.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QMutex>
#include <QPainter>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <latch>

#include <sys/stat.h>

namespace {

using fixtures::writeFile;

QByteArray encode(const QImage& image, const char* format, int quality = -1) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format, quality);
    return bytes;
}

// An image whose left half is `left` and right half blue, so rotations can be told apart.
QImage halves(QSize size, QColor left) {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::blue);
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(0, 0, size.width() / 2, size.height(), left);
    return image;
}

// Inserts an Exif segment holding only the orientation tag (1 to 8) after the JPEG's SOI marker.
QByteArray withExifOrientation(QByteArray jpeg, quint16 orientation) {
    QByteArray app1 = QByteArray("\xFF\xE1\x00\x22"
                                 "Exif\0\0"
                                 "MM\x00\x2A\x00\x00\x00\x08" // big-endian TIFF header, IFD at 8
                                 "\x00\x01"                   // one entry
                                 "\x01\x12\x00\x03\x00\x00\x00\x01\x00\x00\x00\x00" // Orientation, SHORT
                                 "\x00\x00\x00\x00",                                // no next IFD
                                 36);
    app1[29] = char(orientation); // low byte of the big-endian value
    return jpeg.insert(2, app1);
}

// The first value of the JPEG's first quantisation table: libjpeg makes it 5 at quality 85.
int firstQuantizer(const QByteArray& jpeg) {
    const qsizetype dqt = jpeg.indexOf("\xFF\xDB");
    return dqt < 0 || dqt + 5 >= jpeg.size() ? -1 : quint8(jpeg.at(dqt + 5));
}

QByteArray bigEndian(quint32 value, int bytes) {
    QByteArray out;
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        out.append(char((value >> shift) & 0xFF));
    return out;
}

// A mid-grey JPEG of side x side pixels built by hand: with one-code Huffman tables every 8x8 block is two
// zero bits (3.4 MiB at 30000 px). The progressive one holds only its first scan, one bit per block.
QByteArray hugeGreyJpeg(quint32 side, bool progressive = false) {
    auto segment = [](char marker, const QByteArray& body) {
        return QByteArray("\xFF", 1) + marker + bigEndian(body.size() + 2, 2) + body;
    };
    const QByteArray oneCodeTable = QByteArray("\x01", 1) + QByteArray(15, 0) + QByteArray(1, 0);
    const qint64 blocks = qint64((side + 7) / 8) * ((side + 7) / 8);
    QByteArray jpeg("\xFF\xD8", 2);
    jpeg += segment('\xDB', QByteArray(1, 0) + QByteArray(64, 1));
    jpeg += segment(progressive ? '\xC2' : '\xC0',
                    "\x08" + bigEndian(side, 2) + bigEndian(side, 2) + QByteArray("\x01\x01\x11\x00", 4));
    jpeg += segment('\xC4', QByteArray(1, 0x00) + oneCodeTable);
    jpeg += segment('\xC4', QByteArray(1, 0x10) + oneCodeTable);
    jpeg += segment('\xDA', QByteArray("\x01\x01\x00\x00", 4) + (progressive ? '\x00' : '\x3F') + '\x00');
    jpeg += QByteArray((blocks * (progressive ? 1 : 2) + 7) / 8, 0);
    return jpeg + QByteArray("\xFF\xD9", 2);
}

// Creates the files of one folder described as "name" (a small valid image), "name+N" (a valid image
// padded with N more bytes), "name!" (undecodable bytes), "name/" (a directory), "name|" (a FIFO).
bool makeFolder(const QString& folder, const QStringList& files) {
    QDir().mkpath(folder);
    for (const QString& description : files) {
        const qsizetype plus = description.indexOf(u'+');
        QString name = description.left(plus >= 0 ? plus : description.size());
        if (name.endsWith(u'!') || name.endsWith(u'/') || name.endsWith(u'|'))
            name.chop(1);
        const QString path = folder + u'/' + name;
        bool ok = false;
        if (description.endsWith(u'/'))
            ok = QDir().mkdir(path);
        else if (description.endsWith(u'|'))
            ok = mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
        else if (description.endsWith(u'!'))
            ok = writeFile(path, QByteArray(4096, 'x'));
        else {
            const QByteArray padding(plus >= 0 ? description.mid(plus + 1).toInt() : 0, '\0');
            const char* format = name.endsWith(u".jpg", Qt::CaseInsensitive) ? "JPEG" : "PNG";
            ok = writeFile(path, encode(halves(QSize(16, 8), Qt::red), format) + padding);
        }
        if (!ok)
            return false;
    }
    return true;
}

// Records the folders a cache scans, from whichever thread scans them.
struct ScanLog {
    QMutex mutex;
    QStringList folders;
    void record(const QString& folder) {
        QMutexLocker locker(&mutex);
        folders.append(folder);
    }
    FolderArtworkCache::ScanObserver observer() {
        return [this](const QString& folder) { record(folder); };
    }
    QStringList scanned() {
        QMutexLocker locker(&mutex);
        return folders;
    }
};

QUrl song(const QString& folder) {
    return QUrl::fromLocalFile(folder + QStringLiteral("/track.mp3"));
}

} // namespace

class FolderArtworkCacheTest : public QObject {
    Q_OBJECT

private slots:
    void ranksNames_data() {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<qint64>("rank");
        QTest::addRow("cover") << "cover.jpg" << 90ll;
        QTest::addRow("upper case") << "Folder.JPG" << 90ll;
        QTest::addRow("albumart_ large") << "AlbumArt_{0A1B}_Large.jpg" << 100ll;
        QTest::addRow("albumart prefix") << "AlbumArtwork2.jpg" << 80ll;
        QTest::addRow("contains cover") << "my cover.jpg" << 70ll;
        QTest::addRow("only the last extension goes") << "cover.jpg.png" << 70ll;
        QTest::addRow("other") << "scan01.jpg" << 20ll;
        QTest::addRow("large") << "scan_large.jpg" << 35ll;
        QTest::addRow("small and thumb once") << "cover_small_thumb.jpg" << 20ll;
        QTest::addRow("thumbnail") << "Thumbnail.jpg" << -30ll;
        QTest::addRow("back word") << "cover-back.jpg" << 40ll;
        QTest::addRow("cd word") << "cd.jpg" << -10ll;
        QTest::addRow("cd1 is another word") << "cd1.jpg" << 20ll;
        QTest::addRow("back inside a word") << "feedback.jpg" << 20ll;
        QTest::addRow("every penalty") << "front (back) large thumb.jpg" << 5ll;
    }
    void ranksNames() {
        QFETCH(QString, fileName);
        QFETCH(qint64, rank);
        QCOMPARE(FolderArtworkCache::rank(fileName), rank);
    }

    void choosesAmongCandidates_data() {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("order");
        QTest::addColumn<QString>("chosen"); // empty: nothing
        QTest::addRow("name beats size")
            << QStringList{"cover.jpg+5000", "AlbumArt_x_Large.jpg"}
            << QStringList{"AlbumArt_x_Large.jpg", "cover.jpg"} << "AlbumArt_x_Large.jpg";
        QTest::addRow("larger among equal ranks") << QStringList{"a.jpg", "b.png+3000", "c.jpg+1000"}
                                                  << QStringList{"b.png", "c.jpg", "a.jpg"} << "b.png";
        QTest::addRow("corrupt best falls to next") << QStringList{"cover.jpg!", "scan01.png"}
                                                    << QStringList{"cover.jpg", "scan01.png"} << "scan01.png";
        QTest::addRow("nothing decodes")
            << QStringList{"cover.jpg!", "front.png!"} << QStringList{"cover.jpg", "front.png"} << QString();
        QTest::addRow("only regular, visible files")
            << QStringList{".cover.jpg", "cover.jpg/", "folder.jpg|", "scan.png"} << QStringList{"scan.png"}
            << "scan.png";
        QTest::addRow("image extensions only")
            << QStringList{"a.gif!", "b.tif!", "c.TIFF!",   "d.heic!",       "e.bmp!", "f.jpeg!",
                           "g.JPG!", "h.webp", "cover.txt", "cover.jpg.bak", "cover"}
            << QStringList{"a.gif", "b.tif", "c.TIFF", "d.heic", "e.bmp", "f.jpeg", "g.JPG"} << QString();
    }
    void choosesAmongCandidates() {
        QFETCH(QStringList, files);
        QFETCH(QStringList, order);
        QFETCH(QString, chosen);
        QTemporaryDir dir;
        QVERIFY(makeFolder(dir.path(), files));
        const QUrl folder = QUrl::fromLocalFile(dir.path());

        QStringList names;
        for (const auto& candidate : FolderArtworkCache::candidates(folder))
            names.append(candidate.url.fileName());
        QCOMPARE(names, order);

        const auto found = FolderArtworkCache::scan(folder);
        QCOMPARE(found ? found->sourceUrl.fileName() : QString(), chosen);
        if (found)
            QCOMPARE(found->sourceUrl, QUrl::fromLocalFile(dir.filePath(chosen)));
    }

    void thumbnailsAreUprightJpegs_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QColor>("left");
        QTest::addColumn<int>("orientation"); // Exif value, 0 for no Exif segment
        QTest::addColumn<QSize>("expectedSize");
        QTest::addColumn<QColor>("expectedTopLeft");
        QTest::addRow("upright, scaled down")
            << "JPEG" << QSize(1200, 600) << QColor(Qt::red) << 0 << QSize(600, 300) << QColor(Qt::red);
        QTest::addRow("rotate 90 cw (6)")
            << "JPEG" << QSize(1200, 600) << QColor(Qt::red) << 6 << QSize(300, 600) << QColor(Qt::red);
        QTest::addRow("rotate 180 (3)")
            << "JPEG" << QSize(1200, 600) << QColor(Qt::red) << 3 << QSize(600, 300) << QColor(Qt::blue);
        QTest::addRow("small rotated, not enlarged")
            << "JPEG" << QSize(100, 50) << QColor(Qt::red) << 6 << QSize(50, 100) << QColor(Qt::red);
        QTest::addRow("tall png") << "PNG" << QSize(300, 1500) << QColor(Qt::red) << 0 << QSize(120, 600)
                                  << QColor(Qt::red);
        QTest::addRow("transparency on white")
            << "PNG" << QSize(100, 50) << QColor(Qt::transparent) << 0 << QSize(100, 50) << QColor(Qt::white);
    }
    void thumbnailsAreUprightJpegs() {
        QFETCH(QString, format);
        QFETCH(QSize, size);
        QFETCH(QColor, left);
        QFETCH(int, orientation);
        QFETCH(QSize, expectedSize);
        QFETCH(QColor, expectedTopLeft);
        QTemporaryDir dir;
        QByteArray source = encode(halves(size, left), format.toLatin1().constData(), 95);
        if (orientation > 0)
            source = withExifOrientation(source, quint16(orientation));
        const QString sourcePath = dir.filePath("source." + format.toLower());
        QVERIFY(writeFile(sourcePath, source));

        const auto jpeg = FolderArtworkCache::thumbnail(QUrl::fromLocalFile(sourcePath));
        QVERIFY(jpeg);
        QVERIFY(jpeg->startsWith("\xFF\xD8\xFF"));
        QCOMPARE(firstQuantizer(*jpeg), 5);
        const QImage image = QImage::fromData(*jpeg, "JPEG");
        QCOMPARE(image.size(), expectedSize);
        const QColor topLeft = image.pixelColor(image.width() / 4, image.height() / 4);
        QVERIFY2(qAbs(topLeft.red() - expectedTopLeft.red()) < 40 &&
                     qAbs(topLeft.green() - expectedTopLeft.green()) < 40 &&
                     qAbs(topLeft.blue() - expectedTopLeft.blue()) < 40,
                 qPrintable(topLeft.name()));

        if (!fixtures::haveTool("ffprobe"))
            return;
        const QString outputPath = dir.filePath("thumbnail.jpg");
        QVERIFY(writeFile(outputPath, *jpeg));
        const auto probe =
            fixtures::run("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name,width,height", "-of",
                                      "csv=p=0", outputPath});
        QCOMPARE(probe.exitCode, 0);
        QCOMPARE(
            probe.out.trimmed(),
            QStringLiteral("mjpeg,%1,%2").arg(expectedSize.width()).arg(expectedSize.height()).toLatin1());
    }

    // Only a scaled decode fits in the image reader's 128 MiB allocation limit: 3.4 GiB of pixels for the
    // JPEG, 256 MiB for the PNG that ffmpeg writes.
    void decodesHugeImagesScaled_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("side");
        QTest::addRow("30000 px jpeg") << "huge.jpg" << 30000;
        QTest::addRow("8000 px png") << "huge.png" << 8000;
    }
    void decodesHugeImagesScaled() {
        QFETCH(QString, name);
        QFETCH(int, side);
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        if (name.endsWith(".jpg"))
            QVERIFY(writeFile(path, hugeGreyJpeg(side)));
        else if (fixtures::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i",
                                          QStringLiteral("color=black:s=%1x%1").arg(side), "-frames:v", "1",
                                          "-pix_fmt", "rgb24", path})
                     .exitCode != 0)
            QSKIP("ffmpeg cannot write the PNG here");

        const auto jpeg = FolderArtworkCache::thumbnail(QUrl::fromLocalFile(path));
        QVERIFY(jpeg);
        QCOMPARE(QImage::fromData(*jpeg, "JPEG").size(), QSize(600, 600));
    }

    // A progressive JPEG decodes from a buffer of the full image's coefficients whatever the output size.
    void refusesProgressiveJpegsTooLargeToBuffer() {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("cover.jpg"), hugeGreyJpeg(30000, true)));
        QVERIFY(makeFolder(dir.path(), {"scan.png"}));
        const auto found = FolderArtworkCache::scan(QUrl::fromLocalFile(dir.path()));
        QVERIFY(found);
        QCOMPARE(found->sourceUrl.fileName(), "scan.png");

        QByteArray progressive;
        QBuffer buffer(&progressive);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "jpeg");
        writer.setProgressiveScanWrite(true);
        QVERIFY(writer.write(halves(QSize(2400, 1200), Qt::red)));
        QVERIFY(writeFile(dir.filePath("progressive.jpg"), progressive));
        const auto jpeg = FolderArtworkCache::thumbnail(QUrl::fromLocalFile(dir.filePath("progressive.jpg")));
        QVERIFY(jpeg);
        QCOMPARE(QImage::fromData(*jpeg, "JPEG").size(), QSize(600, 300));
    }

    void fallsBackToTheParentFolderOnly() {
        QTemporaryDir dir;
        const QString album = dir.filePath("Album");
        QVERIFY(makeFolder(album, {"cover.jpg"}));
        QVERIFY(makeFolder(album + "/CD1", {}));
        QVERIFY(makeFolder(album + "/CD2", {"cd2.png"}));
        QVERIFY(makeFolder(album + "/CD1/Extras", {}));
        ScanLog log;
        FolderArtworkCache cache(log.observer());

        const auto fromParent = cache.artwork(song(album + "/CD1"));
        QVERIFY(fromParent);
        QCOMPARE(fromParent->sourceUrl, QUrl::fromLocalFile(album + "/cover.jpg"));
        QCOMPARE(cache.artwork(song(album + "/CD2"))->sourceUrl, QUrl::fromLocalFile(album + "/CD2/cd2.png"));
        QVERIFY(!cache.artwork(song(album + "/CD1/Extras")));
        QCOMPARE(cache.artwork(song(album))->sourceUrl, fromParent->sourceUrl);
        QCOMPARE(log.scanned(), (QStringList{album + "/CD1", album, album + "/CD2", album + "/CD1/Extras"}));

        // Later asks, the folders with nothing included, are answered from memory.
        QVERIFY(!cache.artwork(song(album + "/CD1/Extras")));
        QCOMPARE(cache.artwork(song(album + "/CD1/./"))->sourceUrl, fromParent->sourceUrl);
        QCOMPARE(log.scanned().size(), 4);
    }

    void neverSearchesTheRoot() {
        ScanLog log;
        FolderArtworkCache cache(log.observer());
        const QString missing = "/orvelle-no-such-folder";
        QVERIFY(!cache.artwork(song(missing)));
        QCOMPARE(log.scanned(), QStringList{missing});
        QVERIFY(!cache.artwork(QUrl("https://example.com/music/track.mp3")));
        QCOMPARE(log.scanned(), QStringList{missing});
        cache.artwork(QUrl::fromLocalFile("/track.mp3"));
        QCOMPARE(log.scanned(), (QStringList{missing, "/"}));
    }

    // Many loads of one album at once: each folder is listed once and every track holds the same bytes.
    void scansEachFolderOnceUnderConcurrentCalls() {
        QTemporaryDir dir;
        const QStringList folders{dir.filePath("A"), dir.filePath("B"), dir.filePath("C/CD1")};
        QVERIFY(makeFolder(folders[0], {"cover.jpg"}));
        QVERIFY(makeFolder(folders[1], {"folder.png"}));
        QVERIFY(makeFolder(dir.filePath("C"), {"front.jpg"}));
        QVERIFY(makeFolder(folders[2], {}));

        constexpr int threads = 8;
        constexpr int asksPerThread = 30;
        std::latch allAsking(threads);
        ScanLog log;
        // Each scan is held until every thread is about to ask, so the asks overlap the scans.
        FolderArtworkCache cache([&](const QString& folder) {
            allAsking.wait();
            log.record(folder);
        });
        QThreadPool pool;
        pool.setMaxThreadCount(threads);
        QList<QFuture<QList<QByteArray>>> results;
        for (int t = 0; t < threads; ++t) {
            results.append(QtConcurrent::run(&pool, [&, t] {
                allAsking.count_down();
                QList<QByteArray> data;
                for (int i = 0; i < asksPerThread; ++i) {
                    const auto found = cache.artwork(song(folders[(t + i) % folders.size()]));
                    data.append(found ? found->data : QByteArray());
                }
                return data;
            }));
        }
        pool.waitForDone();
        QStringList scanned = log.scanned();
        scanned.sort();
        QCOMPARE(scanned, (QStringList{folders[0], folders[1], dir.filePath("C"), folders[2]}));
        QHash<QString, const char*> bytesOfFolder; // implicitly shared: one buffer per folder
        for (int t = 0; t < threads; ++t) {
            const QList<QByteArray> data = results[t].result();
            for (int i = 0; i < asksPerThread; ++i) {
                const QString folder = folders[(t + i) % folders.size()];
                QVERIFY(!data[i].isEmpty());
                QVERIFY(bytesOfFolder.value(folder, data[i].constData()) == data[i].constData());
                bytesOfFolder.insert(folder, data[i].constData());
            }
        }
    }

    void scansDifferentFoldersInParallel() {
        QTemporaryDir dir;
        const QString first = dir.filePath("First");
        const QString second = dir.filePath("Second");
        QVERIFY(makeFolder(first, {"cover.jpg"}));
        QVERIFY(makeFolder(second, {"cover.jpg"}));
        QSemaphore firstStarted;
        QSemaphore secondStarted;
        bool secondRanDuringFirst = false;
        FolderArtworkCache cache([&](const QString& folder) {
            if (folder == first) {
                firstStarted.release();
                secondRanDuringFirst = secondStarted.tryAcquire(1, 20000);
            } else {
                secondStarted.release();
            }
        });
        QThreadPool pool;
        auto firstResult = QtConcurrent::run(&pool, [&] { return cache.artwork(song(first)).has_value(); });
        QVERIFY(firstStarted.tryAcquire(1, 20000));
        QVERIFY(cache.artwork(song(second)));
        QVERIFY(firstResult.result());
        QVERIFY(secondRanDuringFirst);
    }
};

QTEST_GUILESS_MAIN(FolderArtworkCacheTest)
#include "folder_artwork_cache_test.moc"

#include "support/FileContents.h"
#include "support/Pictures.h"
#include "tags/FolderArtwork.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

using fixtures::encodedImage;
using fixtures::writeFile;

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
QByteArray withExifOrientation(QByteArray jpeg, char orientation) {
    return jpeg.insert(2, QByteArrayLiteral("\xFF\xE1\x00\x22"                   // APP1 of 34 bytes
                                            "Exif\0\0MM\x00\x2A\x00\x00\x00\x08" // big-endian TIFF, IFD at 8
                                            "\x00\x01\x01\x12\x00\x03\x00\x00\x00\x01\x00") + // one SHORT
                              orientation +
                              QByteArray(6, 0));
}

// A mid-grey progressive JPEG of side x side pixels built by hand: with one-code Huffman tables it holds
// only its first scan, one zero bit per 8x8 block.
QByteArray hugeGreyJpeg(int side) {
    const auto be16 = [](int value) { return QByteArray(1, char(value >> 8)) + char(value); };
    const auto segment = [&](char marker, const QByteArray& body) {
        return QByteArray("\xFF", 1) + marker + be16(body.size() + 2) + body;
    };
    const QByteArray oneCodeTable = QByteArray("\x01", 1) + QByteArray(16, 0);
    const qint64 blocks = qint64((side + 7) / 8) * ((side + 7) / 8);
    return QByteArray("\xFF\xD8", 2) + segment('\xDB', QByteArray(1, 0) + QByteArray(64, 1)) +
           segment('\xC2', "\x08" + be16(side) + be16(side) + QByteArray("\x01\x01\x11\x00", 4)) +
           segment('\xC4', QByteArray(1, 0x00) + oneCodeTable) +
           segment('\xC4', QByteArray(1, 0x10) + oneCodeTable) +
           segment('\xDA', QByteArray("\x01\x01\x00\x00", 4) + '\x00' + '\x00') +
           QByteArray((blocks + 7) / 8, 0) + QByteArray("\xFF\xD9", 2);
}

// Creates the files of one folder described as "name" (a small valid image), "name+N" (a valid image
// padded with N more bytes), "name!" (undecodable bytes), "name~" (the first bytes of a JPEG, then damage),
// "name|" (a FIFO).
bool makeFolder(const QString& folder, const QStringList& files) {
    bool ok = QDir().mkpath(folder);
    for (const QString& description : files) {
        QString name = description.section(u'+', 0, 0);
        if (QStringView(u"!~|").contains(name.back()))
            name.chop(1);
        const QString path = folder + u'/' + name;
        if (description.endsWith(u'|'))
            ok = ok && mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
        else if (description.endsWith(u'!'))
            ok = ok && writeFile(path, QByteArray(4096, 'x'));
        else if (description.endsWith(u'~')) // begins like a JPEG, then is damaged
            ok = ok && writeFile(path, "\xFF\xD8\xFF\xE0" + QByteArray(4092, 'x'));
        else
            ok = ok && writeFile(path, fixtures::pictureBytes("PNG", Qt::red) +
                                           QByteArray(description.section(u'+', 1).toInt(), '\0'));
    }
    return ok;
}

} // namespace

class FolderArtworkTest : public QObject {
    Q_OBJECT

private slots:
    void ranksNames_data() {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<qint64>("rank");
        // name>rank, '|' between rows
        const QString rows = "cover.jpg>90|Folder.JPG>90|AlbumArt_{0A1B}_Large.jpg>100|AlbumArtwork2.jpg>80|"
                             "my cover.jpg>70|cover.jpg.png>70|scan01.jpg>20|cover_small_thumb.jpg>20|"
                             "Thumbnail.jpg>-30|cover-back.jpg>40|cd.jpg>-10|cd1.jpg>20|feedback.jpg>20|"
                             "front (back) large thumb.jpg>5";
        for (const QString& row : rows.split(u'|'))
            QTest::addRow("%s", qPrintable(row))
                << row.section(u'>', 0, 0) << row.section(u'>', 1).toLongLong();
    }
    void ranksNames() {
        QFETCH(QString, fileName);
        QTEST(FolderArtwork::rank(fileName), "rank");
    }

    void choosesAmongCandidates_data() {
        QTest::addColumn<QStringList>("files"); // in the song's folder, or relative to it
        QTest::addColumn<QStringList>("order"); // the song's folder's candidates
        QTest::addColumn<QString>("chosen");    // empty: nothing
        QTest::addRow("name beats size")
            << QStringList{"cover.jpg+5000", "AlbumArt_x_Large.jpg"}
            << QStringList{"AlbumArt_x_Large.jpg", "cover.jpg"} << "AlbumArt_x_Large.jpg";
        QTest::addRow("larger among equal ranks") << QStringList{"a.jpg", "b.png+3000", "c.jpg+1000"}
                                                  << QStringList{"b.png", "c.jpg", "a.jpg"} << "b.png";
        QTest::addRow("corrupt best falls to next")
            << QStringList{"cover.jpg!", "folder.jpg~", "back.png"}
            << QStringList{"cover.jpg", "folder.jpg", "back.png"} << "back.png";
        QTest::addRow("only regular, visible files")
            << QStringList{".cover.jpg", "folder.jpg|", "scan.png"} << QStringList{"scan.png"} << "scan.png";
        QTest::addRow("image extensions only, nothing decodes")
            << QStringList{"a.gif!", "b.TIFF!", "c.heic!", "d.jpeg!", "e.webp", "cover.txt", "cover.jpg.bak"}
            << QStringList{"a.gif", "b.TIFF", "c.heic", "d.jpeg"} << QString();
        // The song's folder first, then the one above, and no further up.
        QTest::addRow("own folder first")
            << QStringList{"cd1.png", "../cover.jpg"} << QStringList{"cd1.png"} << "cd1.png";
        QTest::addRow("the folder above") << QStringList{"../cover.jpg"} << QStringList() << "cover.jpg";
        QTest::addRow("not two folders up") << QStringList{"../../cover.jpg"} << QStringList() << QString();
    }
    void choosesAmongCandidates() {
        QFETCH(QStringList, files);
        QTemporaryDir dir; // two folders above the song's
        const QString folder = dir.filePath("Album/CD1");
        QVERIFY(makeFolder(folder, files));
        QStringList order;
        for (const auto& candidate : FolderArtwork::candidates(QUrl::fromLocalFile(folder)))
            order.append(candidate.url.fileName());
        QTEST(order, "order");
        QTEST(FolderArtwork::imageFor(QUrl::fromLocalFile(folder + "/track.mp3")).value_or(QUrl()).fileName(),
              "chosen");
    }

    // Thumbnails are upright JPEGs of at most 600 px at quality 85. A progressive JPEG decodes from a buffer
    // of every coefficient of the full image, so a huge one is refused rather than decoded. (Decoding huge
    // images scaled, within the reader's allocation limit, is measured by folder_artwork_bench.)
    void makesThumbnails_data() {
        QTest::addColumn<QByteArray>("source");
        QTest::addColumn<QSize>("expectedSize"); // empty: refused
        QTest::addColumn<QColor>("expectedTopLeft");
        const QByteArray wide = encodedImage(halves(QSize(1200, 600), Qt::red), "JPEG", 95);
        QTest::addRow("upright, scaled down") << wide << QSize(600, 300) << QColor(Qt::red);
        QTest::addRow("rotate 90 cw (6)")
            << withExifOrientation(wide, 6) << QSize(300, 600) << QColor(Qt::red);
        QTest::addRow("transparency on white") << encodedImage(halves(QSize(100, 50), Qt::transparent), "PNG")
                                               << QSize(100, 50) << QColor(Qt::white);
        QTest::addRow("30000 px progressive jpeg") << hugeGreyJpeg(30000) << QSize() << QColor();
        QTest::addRow("small progressive jpeg")
            << hugeGreyJpeg(2400) << QSize(600, 600) << QColor(128, 128, 128);
    }
    void makesThumbnails() {
        QFETCH(QByteArray, source);
        QFETCH(QSize, expectedSize);
        QFETCH(QColor, expectedTopLeft);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("source"), source));
        const auto jpeg = FolderArtwork::thumbnail(QUrl::fromLocalFile(dir.filePath("source")));
        QCOMPARE(jpeg.has_value(), expectedSize.isValid());
        if (!jpeg)
            return;
        // The first value of the first quantisation table: libjpeg makes it 5 at quality 85.
        QCOMPARE(quint8(jpeg->at(jpeg->indexOf("\xFF\xDB") + 5)), 5);
        const QImage image = QImage::fromData(*jpeg, "JPEG");
        QCOMPARE(image.size(), expectedSize);
        const QColor topLeft = image.pixelColor(image.width() / 4, image.height() / 4);
        QVERIFY2(qAbs(topLeft.red() - expectedTopLeft.red()) < 40 &&
                     qAbs(topLeft.green() - expectedTopLeft.green()) < 40 &&
                     qAbs(topLeft.blue() - expectedTopLeft.blue()) < 40,
                 qPrintable(topLeft.name()));
    }
};

QTEST_GUILESS_MAIN(FolderArtworkTest)
#include "folder_artwork_test.moc"

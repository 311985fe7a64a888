// Covers handed to desktop clients as files: one file per distinct picture, none for bytes that are not one.
// (A PNG, text bytes and the cache folder are checked through MPRIS in mpris_test.)
#include "playback/ArtworkFileCache.h"
#include "support/FileContents.h"
#include "support/Pictures.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

class ArtworkFileCacheTest : public QObject {
    Q_OBJECT

private slots:
    void files_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("extension"); // empty: no file
        QTest::addRow("jpeg") << fixtures::pictureBytes("JPEG", Qt::green) << "jpg";
        QTest::addRow("a truncated png") << fixtures::pictureBytes("PNG", Qt::blue).left(40) << "";
    }

    void files() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, extension);
        QTemporaryDir dir;
        const std::optional<QUrl> url = ArtworkFileCache(dir.path()).fileFor(bytes);

        // Nothing but the file itself is left behind.
        const QStringList files = fixtures::folderEntries(dir.path());
        QCOMPARE(files.size(), extension.isEmpty() ? 0 : 1);
        QCOMPARE(url.has_value(), !extension.isEmpty());
        if (url) {
            QCOMPARE(url->toLocalFile(), dir.filePath(files.first()));
            QCOMPARE(QFileInfo(files.first()).suffix(), extension);
            QCOMPARE(fixtures::readFile(url->toLocalFile()), bytes);
        }
    }

    void eachPictureIsWrittenOnce() {
        QTemporaryDir dir;
        const QByteArray red = fixtures::pictureBytes("PNG", Qt::red);
        ArtworkFileCache cache(dir.path());
        const std::optional<QUrl> first = cache.fileFor(red);
        QVERIFY(first);
        QCOMPARE(cache.fileFor(QByteArray(red.constData(), red.size())), first);
        QVERIFY(cache.fileFor(fixtures::pictureBytes("PNG", Qt::blue)) != first);

        // A later run finds the file from before and leaves it as it is.
        QFile file(first->toLocalFile());
        const QDateTime old = QDateTime::currentDateTimeUtc().addDays(-10);
        QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(old, QFileDevice::FileModificationTime));
        file.close();
        QCOMPARE(ArtworkFileCache(dir.path()).fileFor(red), first);
        QCOMPARE(QFileInfo(first->toLocalFile()).lastModified().toUTC(), old);
        QCOMPARE(fixtures::folderEntries(dir.path()).size(), 2);
    }
};

QTEST_GUILESS_MAIN(ArtworkFileCacheTest)
#include "artwork_file_cache_test.moc"

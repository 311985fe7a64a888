// Covers handed to desktop clients as files: one file per distinct picture, none for bytes that are not one.
// (A PNG reaching desktop clients and the cache folder are checked through MPRIS in mpris_test.)
#include "playback/ArtworkFileCache.h"
#include "support/FileContents.h"
#include "support/Pictures.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

class ArtworkFileCacheTest : public QObject {
    Q_OBJECT

private slots:
    void writesEachPictureOnce() {
        QTemporaryDir dir;
        const QByteArray jpeg = fixtures::pictureBytes("JPEG", Qt::green);
        ArtworkFileCache cache(dir.path());
        QVERIFY(!cache.fileFor(fixtures::pictureBytes("PNG", Qt::blue).left(40))); // truncated: not a picture
        const std::optional<QUrl> first = cache.fileFor(jpeg);
        QVERIFY(first);
        // Nothing but the file itself is left behind.
        QCOMPARE(fixtures::folderEntries(dir.path()), QStringList{first->fileName()});
        QCOMPARE(QFileInfo(first->fileName()).suffix(), "jpg");
        QCOMPARE(fixtures::readFile(first->toLocalFile()), jpeg);
        QCOMPARE(cache.fileFor(QByteArray(jpeg.constData(), jpeg.size())), first);
        QVERIFY(cache.fileFor(fixtures::pictureBytes("PNG", Qt::red)) != first);

        // A later run finds the file from before instead of writing another.
        QCOMPARE(ArtworkFileCache(dir.path()).fileFor(jpeg), first);
        QCOMPARE(fixtures::folderEntries(dir.path()).size(), 2);
    }
};

QTEST_GUILESS_MAIN(ArtworkFileCacheTest)
#include "artwork_file_cache_test.moc"

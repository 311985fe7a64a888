// Covers handed to desktop clients as files: one file per distinct picture, none for bytes that are not one.
#include "playback/ArtworkFileCache.h"
#include "support/FileContents.h"
#include "support/Pictures.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class ArtworkFileCacheTest : public QObject {
    Q_OBJECT

private slots:
    void files_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("extension"); // empty: no file

        QTest::addRow("png") << fixtures::pictureBytes("PNG", Qt::red) << "png";
        QTest::addRow("jpeg") << fixtures::pictureBytes("JPEG", Qt::green) << "jpg";
        QTest::addRow("text") << QByteArray("just some words, no picture") << "";
        QTest::addRow("a truncated png") << fixtures::pictureBytes("PNG", Qt::blue).left(40) << "";
    }

    void files() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, extension);
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("art"));

        const std::optional<QUrl> url = ArtworkFileCache(folder).fileFor(bytes);

        // Nothing but the file itself is left behind.
        const QStringList files = fixtures::folderEntries(folder);
        QCOMPARE(files.size(), extension.isEmpty() ? 0 : 1);
        QCOMPARE(url.has_value(), !extension.isEmpty());
        if (!url)
            return;
        QCOMPARE(url->toLocalFile(), folder + QLatin1Char('/') + files.first());
        QCOMPARE(QFileInfo(files.first()).suffix(), extension);
        QCOMPARE(fixtures::readFile(url->toLocalFile()), bytes);
    }

    void eachPictureIsWrittenOnce() {
        QTemporaryDir dir;
        const QByteArray red = fixtures::pictureBytes("PNG", Qt::red);
        const QByteArray blue = fixtures::pictureBytes("PNG", Qt::blue);
        ArtworkFileCache cache(dir.path());
        const std::optional<QUrl> first = cache.fileFor(red);
        QVERIFY(first);
        QCOMPARE(cache.fileFor(QByteArray(red.constData(), red.size())), first);
        const std::optional<QUrl> other = cache.fileFor(blue);
        QVERIFY(other && other != first);

        // A later run finds the file from before and leaves it as it is.
        QFile file(first->toLocalFile());
        QVERIFY(file.open(QIODevice::ReadWrite));
        const QDateTime old = QDateTime::currentDateTimeUtc().addDays(-10);
        QVERIFY(file.setFileTime(old, QFileDevice::FileModificationTime));
        file.close();
        ArtworkFileCache later(dir.path());
        QCOMPARE(later.fileFor(red), first);
        QCOMPARE(QFileInfo(first->toLocalFile()).lastModified().toUTC(), old);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files).size(), 2);
    }

    void unwritableFolderGivesNoFile() {
        QTemporaryDir dir;
        const QString blocker = dir.filePath(QStringLiteral("file"));
        QFile file(blocker);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        ArtworkFileCache cache(blocker + QStringLiteral("/art"));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("Cannot create the artwork folder")));
        QVERIFY(!cache.fileFor(fixtures::pictureBytes("PNG", Qt::red)));
    }

    void defaultFolderIsInTheUserCache() {
        QTemporaryDir dir;
        qputenv("XDG_CACHE_HOME", dir.path().toUtf8());
        QCOMPARE(ArtworkFileCache::defaultFolder(), dir.filePath(QStringLiteral("Orvelle/art")));
    }
};

QTEST_GUILESS_MAIN(ArtworkFileCacheTest)
#include "artwork_file_cache_test.moc"

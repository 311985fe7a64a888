#include "library/NaturalOrder.h"
#include "library/PlayableFiles.h"
#include "support/MusicFolder.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <unistd.h>

// The order and filtering of files found in chosen folders.
class PlayableFilesTest : public QObject {
    Q_OBJECT

    static QStringList relativePaths(const fixtures::MusicFolder& folder, const QList<QUrl>& urls) {
        QStringList paths;
        for (const QUrl& url : urls)
            paths.append(QDir(folder.path()).relativeFilePath(url.toLocalFile()));
        return paths;
    }

private slots:
    void comparesNaturally_data() {
        QTest::addColumn<QString>("smaller");
        QTest::addColumn<QString>("larger");
        QTest::addRow("numbers by value") << "2 Song"
                                          << "10 Song";
        QTest::addRow("case ignored") << "apple"
                                      << "Banana";
        QTest::addRow("case ignored, lower first letter") << "Apple"
                                                          << "banana";
        QTest::addRow("number inside a name") << "Track 9.mp3"
                                              << "track 10.mp3";
        QTest::addRow("long numbers") << "99999999999999999998"
                                      << "99999999999999999999";
        QTest::addRow("leading zeros are the same value") << "01 b"
                                                          << "1 c";
        QTest::addRow("a folder's files before a longer sibling") << "/m/A/z.mp3"
                                                                  << "/m/A B/a.mp3";
        QTest::addRow("prefix first") << "Song"
                                      << "Song 2";
        QTest::addRow("digits before letters") << "1.mp3"
                                               << "sub/3.mp3";
    }
    void comparesNaturally() {
        QFETCH(QString, smaller);
        QFETCH(QString, larger);
        QCOMPARE_LT(naturalCompare(smaller, larger), 0);
        QCOMPARE_GT(naturalCompare(larger, smaller), 0);
    }

    void ordersTiesConsistently() {
        QCOMPARE(naturalCompare(u"Song", u"Song"), 0);
        QCOMPARE(naturalCompare(u"song", u"SONG"), -naturalCompare(u"SONG", u"song"));
        QVERIFY(naturalCompare(u"song", u"SONG") != 0);
        QVERIFY(naturalCompare(u"01", u"1") != 0);
    }

    void collectsPlayableFilesInNaturalOrder() {
        fixtures::MusicFolder music;
        for (const char* name : {"10.mp3", "2.MP3", "1.flac", ".hidden.mp3", "notes.txt", "cover.jpg",
                                 "Disc 2/1.m4a", "Disc 10/1.wav", ".git/x.mp3", "a.mp3/b.mp3"})
            music.addFile(QString::fromUtf8(name));
        const QList<QUrl> found = collectPlayableFiles({QUrl::fromLocalFile(music.path())});
        // A folder named like a song is taken too, as the file manager would list it.
        QCOMPARE(relativePaths(music, found), QStringList({"1.flac", "2.MP3", "10.mp3", "a.mp3",
                                                           "a.mp3/b.mp3", "Disc 2/1.m4a", "Disc 10/1.wav"}));
    }

    void keepsTheOrderOfTheChosenItems() {
        fixtures::MusicFolder music;
        music.addFile("z.mp3");
        music.addFile("folder/2.mp3");
        music.addFile("folder/1.mp3");
        music.addFile("readme.txt");
        const QList<QUrl> found =
            collectPlayableFiles({music.url("z.mp3"), music.url("missing.mp3"), music.url("readme.txt"),
                                  music.url("folder"), music.url("z.mp3")});
        QCOMPARE(relativePaths(music, found),
                 QStringList({"z.mp3", "folder/1.mp3", "folder/2.mp3", "z.mp3"}));
    }

    void endsSymbolicLinkLoops() {
        fixtures::MusicFolder music;
        music.addFile("a/1.mp3");
        music.addFile("a/b/2.mp3");
        QVERIFY(QFile::link(music.filePath("a"), music.filePath("a/b/back")));
        QVERIFY(QFile::link(music.filePath("a/b"), music.filePath("a/b/self")));
        const QList<QUrl> found = collectPlayableFiles({music.url("a")});
        QCOMPARE(relativePaths(music, found), QStringList({"a/1.mp3", "a/b/2.mp3"}));
    }

    void followsLinksToFoldersElsewhere() {
        fixtures::MusicFolder music;
        fixtures::MusicFolder elsewhere;
        elsewhere.addFile("x/3.mp3");
        music.addFile("1.mp3");
        QVERIFY(QFile::link(elsewhere.filePath("x"), music.filePath("linked")));
        QCOMPARE(relativePaths(music, collectPlayableFiles({QUrl::fromLocalFile(music.path())})),
                 QStringList({"1.mp3", "linked/3.mp3"}));
    }

    void skipsFoldersItCannotRead() {
        if (geteuid() == 0)
            QSKIP("The superuser reads every folder");
        fixtures::MusicFolder music;
        music.addFile("1.mp3");
        music.addFile("locked/2.mp3");
        QVERIFY(QFile::setPermissions(music.filePath("locked"), QFileDevice::Permissions()));
        const QList<QUrl> found = collectPlayableFiles({QUrl::fromLocalFile(music.path())});
        QFile::setPermissions(music.filePath("locked"),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(relativePaths(music, found), QStringList({"1.mp3"}));
    }

    void handlesTwentyThousandFilesInOneFolder() {
        fixtures::MusicFolder music;
        const int count = 20000;
        for (int i = count; i >= 1; --i)
            QVERIFY(!music.addFile(QStringLiteral("big/%1.mp3").arg(i)).isEmpty());
        const QList<QUrl> found = collectPlayableFiles({music.url("big")});
        QCOMPARE(found.size(), count);
        QCOMPARE(found.first().fileName(), "1.mp3");
        QCOMPARE(found.at(9).fileName(), "10.mp3");
        QCOMPARE(found.last().fileName(), "20000.mp3");
    }
};

QTEST_GUILESS_MAIN(PlayableFilesTest)
#include "playable_files_test.moc"

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

private slots:
    void comparesNaturally_data() {
        QTest::addColumn<QStringList>("ascending");
        QTest::addRow("number inside a name") << QStringList{"Track 9.mp3", "Track 10.mp3"};
        QTest::addRow("case ignored") << QStringList{"apple", "Banana"};
        QTest::addRow("accents ignored") << QStringList{"\u00C9dith", "Elvis"};
        QTest::addRow("Hangul syllables kept whole") << QStringList{"\uAC00\uB098", "\uAC01\uAC00"};
        QTest::addRow("long numbers") << QStringList{"99999999999999999998", "99999999999999999999"};
        QTest::addRow("leading zeros are the same value") << QStringList{"01 b", "1 c"};
        QTest::addRow("a folder's files before a longer sibling")
            << QStringList{"/m/A/z.mp3", "/m/A B/a.mp3"};
        QTest::addRow("prefix first") << QStringList{"Song", "Song 2"};
        QTest::addRow("case breaks a tie") << QStringList{"SONG", "song"};
        QTest::addRow("leading zeros break a tie") << QStringList{"1", "01"};
    }
    void comparesNaturally() {
        QFETCH(QStringList, ascending);
        QCOMPARE_LT(naturalCompare(ascending[0], ascending[1]), 0);
        QCOMPARE_GT(naturalCompare(ascending[1], ascending[0]), 0);
        QCOMPARE(naturalCompare(ascending[0], ascending[0]), 0);
    }

    // Folders are expanded in natural order where they stand, without hidden entries or folders that cannot
    // be read; a link back up the tree ends, a link to a folder elsewhere is followed. A folder named like a
    // song is taken too, as the file manager would list it.
    void collectsTheChosenItemsInOrder() {
        fixtures::MusicFolder music;
        fixtures::MusicFolder elsewhere;
        for (const char* name : {"z.mp3", ".mp3", "readme.txt", "lib/10.mp3", "lib/2.MP3", "lib/1.flac",
                                 "lib/.hidden.mp3", "lib/notes.txt", "lib/Disc 2/1.m4a", "lib/Disc 10/1.wav",
                                 "lib/.git/x.mp3", "lib/a.mp3/b.mp3", "lib/locked/3.mp3"})
            music.addFile(QString::fromUtf8(name));
        elsewhere.addFile("x/3.mp3");
        QVERIFY(QFile::link(music.filePath("lib"), music.filePath("lib/Disc 2/back")));
        QVERIFY(QFile::link(elsewhere.filePath("x"), music.filePath("lib/linked")));
        for (int i = 0; i < 10; ++i) // a folder reached twice is listed under its first path
            QVERIFY(QFile::link(music.filePath("lib/Disc 2"),
                                music.filePath(QStringLiteral("lib/link %1").arg(i))));
        // The superuser reads every folder.
        const bool locked = geteuid() != 0 && QFile::setPermissions(music.filePath("lib/locked"), {});
        QStringList found;
        for (const QUrl& url :
             collectPlayableFiles({music.url("z.mp3"), music.url("missing.mp3"), music.url(".mp3"),
                                   music.url("readme.txt"), music.url("lib"), music.url("z.mp3")}))
            found.append(QDir(music.path()).relativeFilePath(url.toLocalFile()));
        QFile::setPermissions(music.filePath("lib/locked"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QString expected = "z.mp3|lib/1.flac|lib/2.MP3|lib/10.mp3|lib/a.mp3|lib/a.mp3/b.mp3|lib/Disc 2/1.m4a|"
                           "lib/Disc 10/1.wav|lib/linked/3.mp3|lib/locked/3.mp3|z.mp3";
        if (locked)
            expected.remove("lib/locked/3.mp3|");
        QCOMPARE(found.join(u'|'), expected);
    }
};

QTEST_GUILESS_MAIN(PlayableFilesTest)
#include "playable_files_test.moc"

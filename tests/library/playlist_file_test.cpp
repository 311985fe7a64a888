#include "library/PlaylistFile.h"
#include "library/SessionFile.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "support/ScratchMount.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using fixtures::readFile;

namespace {

// "path|title|artist|duration", "-" for an absent value, trailing absent values left off.
QStringList describe(const QList<PlaylistEntry>& entries) {
    QStringList lines;
    for (const PlaylistEntry& entry : entries) {
        QString line =
            QStringList{entry.url.toLocalFile(), entry.title.value_or("-"), entry.artist.value_or("-"),
                        entry.duration ? QString::number(*entry.duration) : "-"}
                .join(u'|');
        while (line.endsWith(u"|-"))
            line.chop(2);
        lines << line;
    }
    return lines;
}

Track track(const QString& path, const QString& artist, const QString& title, double duration) {
    Track result;
    result.setUrl(QUrl::fromLocalFile(path));
    result.setArtist(artist);
    result.setTitle(title);
    result.duration = duration;
    return result;
}

// The error text of a write, null when it succeeded.
QString write(const QList<Track>& tracks, const QString& path, bool relative = true) {
    return PlaylistFile::writePlaylist(tracks, QUrl::fromLocalFile(path), relative).value_or(QString());
}

} // namespace

class PlaylistFileTest : public QObject {
    Q_OBJECT

    // Playlists are read from <tmp>/p; expected paths are relative to that folder unless absolute.
    fixtures::MusicFolder m_dir;

private slots:
    void initTestCase() {
        for (const char* name : {"p/a.mp3", "p/b.mp3", "p/My Song.mp3", "p/Both Here.mp3",
                                 "p/Both%20Here.mp3", "p/Café.mp3", "links/real/song.mp3"})
            QVERIFY(!m_dir.addFile(name, "x").isEmpty());
        QVERIFY(QDir().mkpath(m_dir.filePath("links/lists")));
        QVERIFY(QFile::link(m_dir.filePath("links/real"), m_dir.filePath("links/linked")));
        QVERIFY(QFile::link("../real/song.mp3", m_dir.filePath("links/lists/alias.mp3")));
    }

    // An empty expectation means the playlist lists nothing playable.
    void reads_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("expected");
        const QByteArray dir = QFile::encodeName(m_dir.filePath("p"));
        const auto row = [](const char* tag, const QByteArray& text, const QStringList& expected,
                            const QString& name = "list.m3u") {
            QTest::addRow("%s", tag) << name << text << expected;
        };
        const auto title = [](const char16_t* decoded) {
            return "a.mp3|" + QString::fromUtf16(decoded) + "|-|1";
        };
        row("windows-1252", "#EXTINF:1,\x93Quoted\x94 \x80\x85\xE9\na.mp3",
            {title(u"\u201CQuoted\u201D \u20AC\u2026\u00E9")});
        row("byte order mark", "\xEF\xBB\xBF#EXTM3U\n#EXTINF:3,Caf\xC3\xA9\na.mp3\n", {"a.mp3|Café|-|3"});
        // Blank lines and comments keep the values of an #EXTINF line; each path ends them.
        row("line ends, comments and blanks",
            "#EXTM3U\r\n#EXTINF:215,Band - Song\r\n\r\n# a comment\r#EXTVLCOPT:x=1\n  \na.mp3\r\nb.mp3\r"
            "a.mp3\xE2\x80\xA8\x62.mp3\x0B\x0C",
            {"a.mp3|Song|Band|215", "b.mp3", "a.mp3", "b.mp3"});
        // Attributes after the duration, a fraction, lower case, the first dash only, no comma, no display,
        // durations that are not positive numbers.
        row("extinf forms",
            "#EXTINF:215 tvg-id=x,A - B\na.mp3\n#extinf:2.5 ,  Title only \nb.mp3\n"
            "#EXTINF:5,A - B - C\na.mp3\n#EXTINF:100 Title\nb.mp3\n#EXTINF:5,  \na.mp3\n"
            "#EXTINF:-1,T\na.mp3\n#EXTINF:0,U\nb.mp3\n#EXTINF:12abc,W\na.mp3",
            {"a.mp3|B|A|215", "b.mp3|Title only|-|2.5", "a.mp3|B - C|A|5", "b.mp3", "a.mp3|-|-|5", "a.mp3|T",
             "b.mp3|U", "a.mp3|W"});
        // A stream takes the title before it with it.
        row("streams and windows drives",
            "#EXTINF:-1,Radio\nhttp://radio.example/stream\nHTTPS://x/a.mp3\nmms://x/a\nC:\\Music\\a.mp3\n"
            "d:/Music/a.mp3\nC:a.mp3\nb.mp3",
            {"C:a.mp3", "b.mp3"});
        row("backslashes, blanks trimmed", " \t Music\\Album\\01.mp3 \t", {"Music/Album/01.mp3"});
        row("dot segments resolved", "./x/../a.mp3\n../q/b.mp3\n/music//x/../a.mp3",
            {"a.mp3", "../q/b.mp3", "/music/a.mp3"});
        // Those of other hosts name no local file.
        row("file urls",
            "file://" + dir + "/My%20Song.mp3\nFILE://" + dir + "/sub/../b.mp3\nfile://LocalHost" + dir +
                "/a.mp3\nfile://host" + dir + "/a.mp3\nfile://localhost//x.mp3\nfile://",
            {"My Song.mp3", "b.mp3", "a.mp3", "/x.mp3"});
        // Decoded only when the decoded name exists and the name as written does not.
        row("escapes", "My%20Song.mp3\nBoth%20Here.mp3\nNo%20File.mp3\nMy%2Song.mp3\n100%.mp3\nCaf%c3%A9.mp3",
            {"My Song.mp3", "Both%20Here.mp3", "No%20File.mp3", "My%2Song.mp3", "100%.mp3", "Café.mp3"});
        row("dot segments above the root", "../../../../../../../../../../x.mp3\nfile:///../../y.mp3",
            {"/x.mp3", "/y.mp3"});
        row("directive upper-cased, not case-folded", "#ext\xC4\xB1nf:5,T\na.mp3", {"a.mp3|T|-|5"});
        row("empty file", "", {});
        row("numeric order",
            "File3=c.mp3\nFile1=a.mp3\nFile+2=b.mp3\nFile-1=z.mp3\nFile2x=x.mp3\nNumberOfEntries=1",
            {"z.mp3", "a.mp3", "b.mp3", "c.mp3"}, "list.pls");
        // Keys in any case, values trimmed; later keys replace earlier ones; empty values and stray titles
        // are skipped.
        row("titles and lengths",
            "[playlist]\r\nFILE1=  a.mp3 \r\ntItLe1=\tArtist - Song \r\nLENGTH1= 7.5\r\n"
            "File2=b.mp3\r\nTitle2=Just a title\r\nLength2=-1\r\nVersion=2\r\nFile3=x.mp3\r\nTitle3=First\r\n"
            "File3=c.mp3\r\nTitle3=Second\r\nFile4=\r\nTitle4=T\r\nTitle5=Lonely\r\n",
            {"a.mp3|Song|Artist|7.5", "b.mp3|Just a title", "c.mp3|Second"}, "list.pls");
        row("an m3u name with a [PlayList] section anywhere", "x.mp3\nFile1=a.mp3\n#EXTINF:5,x\n[PlayList]",
            {"a.mp3"}, "list.m3u8");
    }
    void reads() {
        QFETCH(QString, name);
        QFETCH(QByteArray, text);
        QFETCH(QStringList, expected);
        QVERIFY(!m_dir.addFile("p/" + name, text).isEmpty());
        const PlaylistReadResult result = PlaylistFile::readPlaylist(m_dir.url("p/" + name));
        for (QString& row : expected)
            row = row.startsWith(u'/') ? row : QDir::cleanPath(m_dir.filePath("p/" + row));
        QCOMPARE(describe(result.entries), expected);
        QCOMPARE(result.error ? int(result.error->kind) : -1,
                 expected.isEmpty() ? int(PlaylistError::Kind::EmptyPlaylist) : -1);
        if (result.error)
            QCOMPARE(result.error->description(), name + " doesn't list any playable local files.");
    }

    void reportsUnreadableFiles() {
        const QString fifo = m_dir.filePath("p/fifo.m3u"); // opening it for reading would wait for a writer
        QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        for (const QString& path : {m_dir.filePath("p/absent.m3u"), m_dir.filePath("p"), fifo}) {
            const PlaylistReadResult result = PlaylistFile::readPlaylist(QUrl::fromLocalFile(path));
            QVERIFY2(result.error && result.error->kind == PlaylistError::Kind::Unreadable, qPrintable(path));
            QVERIFY(result.entries.isEmpty());
        }
    }

    void writes_data() {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QList<Track>>("tracks");
        QTest::addColumn<bool>("relative");
        QTest::addColumn<QString>("expected");
        const QString w = m_dir.filePath("w");
        const QList<Track> song = {track(w + "/Artist/Album/01 Song.mp3", "Artist", "Song", 215.9)};
        QTest::addRow("pls, absolute when asked")
            << "x.PLS" << song << false
            << "[playlist]\nFile1=" + w +
                   "/Artist/Album/01 Song.mp3\n"
                   "Title1=Artist - Song\nLength1=215\nNumberOfEntries=1\nVersion=2\n";
        QTest::addRow("m3u for any other name: labels, durations, paths as they are in utf-8")
            << "x.txt"
            << QList<Track>{track(w + "/My.Song.mp3", "", "", 0), track(w + "/b.mp3", "Band", "", qQNaN()),
                            track(w + "/c.mp3", "", "Title", 0.5),
                            track(w + "/Ärzte/Schrei.mp3", "Die Ärzte", "Schrei", 245.7),
                            track("/abs/%41 100%.mp3", " Two\nLines", "And\r\nmore\t", 12)}
            << true
            << "#EXTM3U\n#EXTINF:-1,My.Song\nMy.Song.mp3\n#EXTINF:-1,Band - b\nb.mp3\n"
               "#EXTINF:0,Title\nc.mp3\n#EXTINF:245,Die Ärzte - Schrei\nÄrzte/Schrei.mp3\n"
               "#EXTINF:12,Two Lines - And  more\n/abs/%41 100%.mp3\n";
    }
    void writes() {
        QFETCH(QString, destination);
        QFETCH(QList<Track>, tracks);
        QFETCH(bool, relative);
        const QString path = m_dir.filePath("w/" + destination);
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QCOMPARE(write(tracks, path, relative), QString());
        QTEST(QString::fromUtf8(readFile(path)), "expected");
    }

    // What the writer writes reads back as the same songs: awkward names beside a playlist in <tmp>/p, as a
    // relative M3U, a relative PLS and the session (absolute paths). "My Song.mp3" exists there.
    void roundTrips_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("title");
        for (const char* name : {"#1 Hit.mp3", " leading blank.mp3", "trailing blank.mp3 ", "AC\\DC.mp3",
                                 "[Playlist]", "My%20Song.mp3", "two\nlines.mp3", "next\u2028line.mp3"})
            QTest::addRow("%s", name) << QString::fromUtf8(name) << "Title";
        QTest::addRow("[playlist] in a title") << QString("a.mp3") << "Best of [Playlist]";
        QTest::addRow("line breaks in a title") << QString("a.mp3") << "1\n2\r3\u00854\u20285\u20296\v7\f8";
    }
    void roundTrips() {
        QFETCH(QString, name);
        QFETCH(QString, title);
        const fixtures::ScratchHome home; // where the session file goes
        const QString path = m_dir.filePath("p/" + name), other = m_dir.filePath("p/b.mp3");
        const QList<Track> tracks = {track(path, "", title, 5), track(other, "", "B", 6)};
        static const QRegularExpression lineBreak("\\v"); // LF, VT, FF, CR, NEL, LS and PS
        const QStringList expected = {path + "|" + QString(title).replace(lineBreak, " ") + "|-|5",
                                      other + "|B|-|6"};
        for (const QString list : {"rt.m3u8", "rt.pls"}) {
            QCOMPARE(write(tracks, m_dir.filePath("p/" + list)), QString());
            QCOMPARE(describe(PlaylistFile::readPlaylist(m_dir.url("p/" + list)).entries), expected);
        }
        QCOMPARE(SessionFile::write(tracks), std::nullopt);
        QCOMPARE(describe(SessionFile::read().value_or(QList<PlaylistEntry>())), expected);
    }

    // Relative paths are under <tmp>/links, where "linked" points to "real".
    void relativePaths_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("expected");
        const char* rows[][4] = {
            {"beside", "/Users/a/Music/X/song.mp3", "/Users/a/Playlists", "../Music/X/song.mp3"},
            {"folder through a link", "real/song.mp3", "linked", "song.mp3"},
            {"file through a linked folder", "linked/song.mp3", "real", "song.mp3"},
            {"linked file", "lists/alias.mp3", "lists", "../real/song.mp3"},
        };
        const auto place = [this](const char* path) {
            return path[0] == '/' ? QString(path) : m_dir.filePath(QStringLiteral("links/") + path);
        };
        for (const auto& row : rows)
            QTest::addRow("%s", row[0]) << place(row[1]) << place(row[2]) << QString(row[3]);
    }
    void relativePaths() {
        QFETCH(QString, file);
        QFETCH(QString, folder);
        QTEST(
            PlaylistFile::relativePath(QUrl::fromLocalFile(file), QUrl::fromLocalFile(folder)).value_or("-"),
            "expected");
    }

    // Through a link to it the linked file is replaced whole, and nothing is left beside it.
    void replacesTheLinkedFile() {
        QTemporaryDir dir;
        const QString real = dir.filePath("real.m3u8"), link = dir.filePath("link.m3u8");
        QVERIFY(fixtures::writeFile(real, "old") && QFile::link(real, link));
        QCOMPARE(write({}, link), QString());
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(readFile(real), "#EXTM3U\n");
        QCOMPARE(fixtures::folderEntries(dir.path()), (QStringList{"link.m3u8", "real.m3u8"}));
    }

    // A write cut short on a nearly full disk says why, as a disk with no room at all does.
    void reportsAFullDisk() {
        fixtures::ScratchMount disk(64 * 1024);
        if (!disk.isValid())
            QSKIP("cannot mount a small file system here for a full disk");
        const QList<Track> tracks(2000, track("/music/song.mp3", "Artist", "Title", 100));
        for (const int room : {8 * 1024, 0}) {
            QVERIFY(fixtures::writeFile(disk.path() + "/filler", QByteArray(64 * 1024 - room, 'f')));
            QCOMPARE(write(tracks, disk.path() + "/list.m3u8"), qt_error_string(ENOSPC));
        }
    }
};

QTEST_GUILESS_MAIN(PlaylistFileTest)
#include "playlist_file_test.moc"

#include "library/PlaylistFile.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

namespace {

bool writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

QString optionalText(const std::optional<QString>& text) {
    return text ? *text : QStringLiteral("-");
}

// The error text of a write, null when it succeeded.
QString errorText(const std::optional<QString>& error) {
    return error.value_or(QString());
}

// "path|title|artist|duration", "-" for absent values, so a failing comparison shows every field.
QString describe(const PlaylistEntry& entry) {
    const QString duration = entry.duration ? QString::number(*entry.duration) : QStringLiteral("-");
    return QStringList{entry.url.toLocalFile(), optionalText(entry.title), optionalText(entry.artist),
                       duration}
        .join(u'|');
}

QStringList describe(const QList<PlaylistEntry>& entries) {
    QStringList lines;
    for (const PlaylistEntry& entry : entries)
        lines << describe(entry);
    return lines;
}

Track track(const QString& path, const QString& artist, const QString& title, double duration) {
    Track result;
    result.url = QUrl::fromLocalFile(path);
    result.artist = artist;
    result.title = title;
    result.duration = duration;
    return result;
}

} // namespace

class PlaylistFileTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Playlists are read from <tmp>/p; expected paths are relative to that folder unless absolute.
    QString playlistFolder() const { return m_dir.filePath("p"); }
    QString expectedPath(const QString& path) const {
        return path.startsWith(u'/') ? path : QDir::cleanPath(playlistFolder() + u'/' + path);
    }
    QStringList expectedEntries(const QStringList& rows) const {
        QStringList result;
        for (const QString& row : rows) {
            QStringList fields = row.split(u'|');
            fields[0] = expectedPath(fields[0]);
            result << fields.join(u'|');
        }
        return result;
    }
    PlaylistReadResult readBytes(const QString& name, const QByteArray& bytes) const {
        const QString path = QDir(playlistFolder()).filePath(name);
        if (!writeFile(path, bytes))
            qFatal("cannot write %s", qPrintable(path));
        return PlaylistFile::readPlaylist(QUrl::fromLocalFile(path));
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        for (const char* name :
             {"p/a.mp3", "p/b.mp3", "p/My Song.mp3", "p/Both Here.mp3", "p/Both%20Here.mp3"})
            QVERIFY(writeFile(m_dir.filePath(name), "x"));
    }

    void decodesText_data() {
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<QString>("expected");
        QTest::addRow("utf-8") << QByteArray("Caf\xC3\xA9 \xE2\x82\xAC") << QString("Café €");
        QTest::addRow("lone 0xE9 is windows-1252") << QByteArray("Caf\xE9") << QString("Café");
        QTest::addRow("windows-1252 punctuation") << QByteArray("\x93Quoted\x94 \x80\x85")
                                                  << QString::fromUtf16(u"\u201CQuoted\u201D \u20AC\u2026");
        QTest::addRow("undefined 0x81 falls to latin-1")
            << QByteArray("\x81\x80\xE9") << QString::fromUtf16(u"\u0081\u0080\u00E9");
        QTest::addRow("undefined 0x9D falls to latin-1")
            << QByteArray("\x9D\x99") << QString::fromUtf16(u"\u009D\u0099");
        QTest::addRow("overlong utf-8 is not utf-8")
            << QByteArray("\xC0\xAF") << QString::fromUtf16(u"\u00C0\u00AF");
        QTest::addRow("surrogate in utf-8 is not utf-8")
            << QByteArray("\xED\xA0\x80") << QString::fromUtf16(u"\u00ED\u00A0\u20AC");
    }
    void decodesText() {
        QFETCH(QByteArray, title);
        QFETCH(QString, expected);
        const PlaylistReadResult result = readBytes("decode.m3u", "#EXTINF:1," + title + "\na.mp3\n");
        QCOMPARE(result.entries.size(), 1);
        QCOMPARE(result.entries[0].title, expected);
    }

    void dropsOneByteOrderMark_data() {
        QTest::addColumn<QByteArray>("bom");
        QTest::addColumn<int>("entries");
        QTest::addRow("none") << QByteArray() << 1;
        QTest::addRow("one") << QByteArray("\xEF\xBB\xBF") << 1;
        // The second mark is text, so "#EXTM3U" no longer starts the line and becomes a (missing) path.
        QTest::addRow("two") << QByteArray("\xEF\xBB\xBF\xEF\xBB\xBF") << 2;
    }
    void dropsOneByteOrderMark() {
        QFETCH(QByteArray, bom);
        QFETCH(int, entries);
        const PlaylistReadResult result = readBytes("bom.m3u8", bom + "#EXTM3U\n#EXTINF:3,Café\na.mp3\n");
        QCOMPARE(result.entries.size(), entries);
        QCOMPARE(result.entries.last().title, QString("Café"));
    }

    void readsM3u_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("expected");
        const QByteArray dir = QFile::encodeName(playlistFolder());
        QTest::addRow("extinf with artist")
            << QByteArray("#EXTM3U\n#EXTINF:215,Band - Song\na.mp3\n") << QStringList{"a.mp3|Song|Band|215"};
        QTest::addRow("crlf") << QByteArray("#EXTM3U\r\n#EXTINF:215,Band - Song\r\n\r\na.mp3\r\nb.mp3")
                              << QStringList{"a.mp3|Song|Band|215", "b.mp3|-|-|-"};
        QTest::addRow("cr only and unicode separators")
            << QByteArray("a.mp3\rb.mp3\xE2\x80\xA8\x61.mp3\x0B\x0C")
            << QStringList{"a.mp3|-|-|-", "b.mp3|-|-|-", "a.mp3|-|-|-"};
        QTest::addRow("attributes after the duration")
            << QByteArray("#EXTINF:215 tvg-id=x,A - B\na.mp3") << QStringList{"a.mp3|B|A|215"};
        QTest::addRow("fraction and lower case")
            << QByteArray("#extinf:2.5 ,  Title only \na.mp3") << QStringList{"a.mp3|Title only|-|2.5"};
        QTest::addRow("-1 and 0 give no duration") << QByteArray("#EXTINF:-1,T\na.mp3\n#EXTINF:0,U\nb.mp3")
                                                   << QStringList{"a.mp3|T|-|-", "b.mp3|U|-|-"};
        QTest::addRow("words that are not numbers")
            << QByteArray("#EXTINF:inf,T\na.mp3\n#EXTINF:12abc,U\nb.mp3\n#EXTINF:0x10,V\na.mp3")
            << QStringList{"a.mp3|T|-|-", "b.mp3|U|-|-", "a.mp3|V|-|-"};
        QTest::addRow("no comma ignores the line")
            << QByteArray("#EXTINF:100 Title\na.mp3") << QStringList{"a.mp3|-|-|-"};
        QTest::addRow("empty display keeps the duration")
            << QByteArray("#EXTINF:5,  \na.mp3") << QStringList{"a.mp3|-|-|5"};
        QTest::addRow("a later title keeps the earlier artist")
            << QByteArray("#EXTINF:5,X - Y\n#EXTINF:7,Z\na.mp3") << QStringList{"a.mp3|Z|X|7"};
        QTest::addRow("only the first dash splits")
            << QByteArray("#EXTINF:5,A - B - C\na.mp3") << QStringList{"a.mp3|B - C|A|5"};
        QTest::addRow("comments and blank lines keep pending values")
            << QByteArray("#EXTINF:3,A - T\n\n# a comment\n#EXTVLCOPT:x=1\n  \na.mp3")
            << QStringList{"a.mp3|T|A|3"};
        QTest::addRow("pending values end at each path")
            << QByteArray("#EXTINF:3,A - T\na.mp3\nb.mp3") << QStringList{"a.mp3|T|A|3", "b.mp3|-|-|-"};
        QTest::addRow("a stream swallows its title")
            << QByteArray("#EXTINF:-1,Radio\nhttp://radio.example/stream\nb.mp3")
            << QStringList{"b.mp3|-|-|-"};
        QTest::addRow("every remote scheme, any case")
            << QByteArray("HTTPS://x/a.mp3\nrtsp://x/a\nRtmp://x/a\nmms://x/a\nhttp:a.mp3\nb.mp3")
            << QStringList{"b.mp3|-|-|-"};
        QTest::addRow("other schemes are relative paths")
            << QByteArray("ftp://host/a.mp3") << QStringList{"ftp:/host/a.mp3|-|-|-"};
        QTest::addRow("windows drive paths dropped")
            << QByteArray("C:\\Music\\a.mp3\nd:/Music/a.mp3\nC:a.mp3\nb.mp3")
            << QStringList{"C:a.mp3|-|-|-", "b.mp3|-|-|-"};
        QTest::addRow("backslashes are separators")
            << QByteArray("Music\\Album\\01.mp3") << QStringList{"Music/Album/01.mp3|-|-|-"};
        QTest::addRow("spaces and tabs trimmed") << QByteArray(" \t a.mp3 \t") << QStringList{"a.mp3|-|-|-"};
        QTest::addRow("dot segments resolved")
            << QByteArray("./x/../a.mp3\n../q/b.mp3") << QStringList{"a.mp3|-|-|-", "../q/b.mp3|-|-|-"};
        QTest::addRow("absolute path")
            << QByteArray("/music//x/../a.mp3") << QStringList{"/music/a.mp3|-|-|-"};
        QTest::addRow("missing files kept") << QByteArray("missing.mp3") << QStringList{"missing.mp3|-|-|-"};
        QTest::addRow("file url with escapes")
            << "file://" + dir + "/My%20Song.mp3\nFILE://" + dir + "/sub/../b.mp3"
            << QStringList{"My Song.mp3|-|-|-", "b.mp3|-|-|-"};
        QTest::addRow("escaped name decoded when only the decoded file exists")
            << QByteArray("My%20Song.mp3") << QStringList{"My Song.mp3|-|-|-"};
        QTest::addRow("escaped name kept when it exists as written")
            << QByteArray("Both%20Here.mp3") << QStringList{"Both%20Here.mp3|-|-|-"};
        QTest::addRow("escaped name kept when neither exists")
            << QByteArray("No%20File.mp3") << QStringList{"No%20File.mp3|-|-|-"};
        QTest::addRow("malformed escape kept")
            << QByteArray("My%2Song.mp3\n100%.mp3") << QStringList{"My%2Song.mp3|-|-|-", "100%.mp3|-|-|-"};
    }
    void readsM3u() {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, expected);
        const PlaylistReadResult result = readBytes("list.m3u", text);
        QVERIFY(!result.error);
        QCOMPARE(describe(result.entries), expectedEntries(expected));
    }

    void readsPls_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::addRow("numbered order, not file order")
            << "list.pls"
            << QByteArray("[playlist]\nFile3=c.mp3\nFile1=a.mp3\nFile2=b.mp3\nNumberOfEntries=1\n")
            << QStringList{"a.mp3|-|-|-", "b.mp3|-|-|-", "c.mp3|-|-|-"};
        QTest::addRow("numbers are numeric and signed")
            << "list.pls" << QByteArray("File10=c.mp3\nFile+2=b.mp3\nFile-1=a.mp3\nFile2x=x.mp3")
            << QStringList{"a.mp3|-|-|-", "b.mp3|-|-|-", "c.mp3|-|-|-"};
        QTest::addRow("titles and lengths")
            << "list.pls"
            << QByteArray("[playlist]\r\nFile1=a.mp3\r\nTitle1=Artist - Song\r\nLength1=215\r\n"
                          "File2=b.mp3\r\nTitle2=Just a title\r\nLength2=-1\r\nVersion=2\r\n")
            << QStringList{"a.mp3|Song|Artist|215", "b.mp3|Just a title|-|-"};
        QTest::addRow("keys in any case, values trimmed")
            << "list.pls" << QByteArray("FILE1=  a.mp3 \ntItLe1=\tT \nLENGTH1= 7.5")
            << QStringList{"a.mp3|T|-|7.5"};
        QTest::addRow("space before the equals sign ignores the line")
            << "list.pls" << QByteArray("File1 =a.mp3\nFile2=b.mp3\nTitle2 =T") << QStringList{"b.mp3|-|-|-"};
        QTest::addRow("later keys replace earlier ones")
            << "list.pls" << QByteArray("File1=a.mp3\nTitle1=First\nFile1=b.mp3\nTitle1=Second")
            << QStringList{"b.mp3|Second|-|-"};
        QTest::addRow("empty values and stray titles skipped")
            << "list.pls" << QByteArray("File1=\nTitle1=T\nFile2=b.mp3\nLength2=abc\nTitle3=Lonely")
            << QStringList{"b.mp3|-|-|-"};
        QTest::addRow("streams skipped")
            << "list.pls"
            << QByteArray("[playlist]\nnumberofentries=2\nFile1=http://streamer.example:80/stream/1018\n"
                          "Title1=Radio\nLength1=-1\nFile2=a.mp3\n")
            << QStringList{"a.mp3|-|-|-"};
        QTest::addRow("file name with spaces, no final newline")
            << "one.pls"
            << QByteArray("[playlist]\nFile1=filename with spaces.mp3\nTitle1=Title\nLength1=123\n"
                          "NumberOfEntries=1\nVersion=2")
            << QStringList{"filename with spaces.mp3|Title|-|123"};
        QTest::addRow("m3u name with a [Playlist] section")
            << "list.m3u" << QByteArray("[PlayList]\nFile1=a.mp3\n#EXTINF:5,x\n")
            << QStringList{"a.mp3|-|-|-"};
        QTest::addRow("section found anywhere")
            << "list.m3u8" << QByteArray("x.mp3\nFile1=a.mp3\n[playlist]") << QStringList{"a.mp3|-|-|-"};
    }
    void readsPls() {
        QFETCH(QString, name);
        QFETCH(QByteArray, text);
        QFETCH(QStringList, expected);
        const PlaylistReadResult result = readBytes(name, text);
        QVERIFY(!result.error);
        QCOMPARE(describe(result.entries), expectedEntries(expected));
    }

    void reportsErrors_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("kind");
        QTest::addRow("empty file") << "empty.m3u" << QByteArray() << int(PlaylistError::Kind::EmptyPlaylist);
        QTest::addRow("only comments") << "comments.m3u8" << QByteArray("#EXTM3U\n#EXTINF:1,a\n\n")
                                       << int(PlaylistError::Kind::EmptyPlaylist);
        QTest::addRow("only streams and drive paths") << "remote.m3u" << QByteArray("http://x/a\nC:\\a.mp3\n")
                                                      << int(PlaylistError::Kind::EmptyPlaylist);
        QTest::addRow("pls without files") << "none.pls" << QByteArray("[playlist]\nNumberOfEntries=0\n")
                                           << int(PlaylistError::Kind::EmptyPlaylist);
    }
    void reportsErrors() {
        QFETCH(QString, name);
        QFETCH(QByteArray, text);
        QFETCH(int, kind);
        const PlaylistReadResult result = readBytes(name, text);
        QVERIFY(result.entries.isEmpty());
        QVERIFY(result.error);
        QCOMPARE(int(result.error->kind), kind);
        QCOMPARE(result.error->url.fileName(), name);
    }

    void reportsUnreadableFiles() {
        for (const QString& path : {m_dir.filePath("p/absent.m3u"), m_dir.filePath("p")}) {
            const PlaylistReadResult result = PlaylistFile::readPlaylist(QUrl::fromLocalFile(path));
            QVERIFY2(result.error && result.error->kind == PlaylistError::Kind::Unreadable, qPrintable(path));
            QVERIFY(result.entries.isEmpty());
        }
    }

    void describesErrors() {
        const QUrl url = QUrl::fromLocalFile("/music/Road Trip.m3u8");
        QCOMPARE((PlaylistError{PlaylistError::Kind::Unreadable, url}.description()),
                 "Can't read Road Trip.m3u8. The file may be damaged or in an unsupported format.");
        QCOMPARE((PlaylistError{PlaylistError::Kind::EmptyPlaylist, url}.description()),
                 "Road Trip.m3u8 doesn't list any playable local files.");
    }

    void tellsPlaylistsApart_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("playlist");
        QTest::addRow("m3u") << "/a/x.m3u" << true;
        QTest::addRow("upper case M3U8") << "/a/x.M3U8" << true;
        QTest::addRow("pls") << "/a/x.Pls" << true;
        QTest::addRow("mp3") << "/a/x.mp3" << false;
        QTest::addRow("no extension") << "/a/m3u" << false;
        QTest::addRow("extension of the folder only") << "/a.m3u/x" << false;
    }
    void tellsPlaylistsApart() {
        QFETCH(QString, path);
        QFETCH(bool, playlist);
        QCOMPARE(PlaylistFile::isPlaylist(QUrl::fromLocalFile(path)), playlist);
        QCOMPARE(PlaylistFile::playlistExtensions(), (QSet<QString>{"m3u", "m3u8", "pls"}));
    }

    // Files written by other players.
    void readsCorpusPlaylists_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("expected");
        QTest::addRow("clementine pls")
            << "clementine/tests/data/pls_one.pls" << QStringList{"filename with spaces.mp3|Title|-|123"};
        QTest::addRow("quod libet m3u8") << "quodlibet/tests/data/test.m3u8"
                                         << QStringList{"lame.mp3|lame.mp3|-|-", "test.wav|test.wav|-|-",
                                                        "sine-110hz.flac|110Hz test track|Quod Libet|2",
                                                        "non_existing_audio_file.mp3|non existing file|-|-",
                                                        "image.jpg|no audio file|-|-"};
        QTest::addRow("somafm streams") << "clementine/tests/data/pls_somafm.pls" << QStringList{};
    }
    void readsCorpusPlaylists() {
        QFETCH(QString, file);
        QFETCH(QStringList, expected);
        const QString path = fixtures::corpusFile(file);
        if (path.isEmpty())
            QSKIP("the shared corpus is not beside the checkout");
        const PlaylistReadResult result = PlaylistFile::readPlaylist(QUrl::fromLocalFile(path));
        QStringList absolute;
        for (const QString& row : expected)
            absolute << QFileInfo(path).path() + u'/' + row;
        QCOMPARE(describe(result.entries), absolute);
        QCOMPARE(result.error.has_value(), expected.isEmpty());
    }

    void survivesHostileInput_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("entries");
        static const char nul[] = "a\0b.mp3\n\0\n#EXTINF:\0,\0\nc%20\0.mp3\n";
        QTest::addRow("nul bytes") << "nul.m3u" << QByteArray(nul, sizeof nul - 1) << 3;
        QByteArray many = "#EXTM3U\n";
        for (int i = 0; i < 100000; ++i)
            many += "#EXTINF:1,A - T\nmusic/" + QByteArray::number(i) + ".mp3\n";
        QTest::addRow("100,000 entries") << "many.m3u8" << many << 100000;
        QTest::addRow("10 MB path") << "long.m3u" << QByteArray(10 << 20, 'a') << 1;
        QTest::addRow("1 MB of escapes") << "escapes.m3u" << QByteArray(1 << 20, '%').append("20") << 1;
        QTest::addRow("10 MB extinf") << "extinf.m3u"
                                      << "#EXTINF:" + QByteArray(10 << 20, '9') + ",x\na.mp3" << 1;
        QTest::addRow("10 MB pls key") << "key.pls"
                                       << "File" + QByteArray(10 << 20, '1') + "=a.mp3" << 0;
        QTest::addRow("100,000 pls keys")
            << "keys.pls"
            << QByteArray("File1=a.mp3\n").repeated(50000) + QByteArray("Title1=t\n").repeated(50000) << 1;
    }
    void survivesHostileInput() {
        QFETCH(QString, name);
        QFETCH(QByteArray, text);
        QFETCH(int, entries);
        const PlaylistReadResult result = readBytes(name, text);
        QCOMPARE(result.entries.size(), entries);
        QCOMPARE(result.error.has_value(), entries == 0);
    }

    void writes_data() {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QList<Track>>("tracks");
        QTest::addColumn<bool>("relative");
        QTest::addColumn<QString>("expected");
        const QString w = m_dir.filePath("w");
        const Track song = track(w + "/Artist/Album/01 Song.mp3", "Artist", "Song", 215.9);
        QTest::addRow("pls")
            << "x.pls" << QList<Track>{song} << true
            << "[playlist]\nFile1=Artist/Album/01 Song.mp3\nTitle1=Artist - Song\nLength1=215\n"
               "NumberOfEntries=1\nVersion=2\n";
        for (const char* name : {"x.m3u", "x.M3U8", "x.txt"})
            QTest::addRow("m3u as %s", name)
                << name << QList<Track>{song} << true
                << "#EXTM3U\n#EXTINF:215,Artist - Song\nArtist/Album/01 Song.mp3\n";
        QTest::addRow("labels and durations")
            << "x.m3u8"
            << QList<Track>{track(w + "/My.Song.mp3", "", "", 0), track(w + "/b.mp3", "Band", "", -3),
                            track(w + "/c.mp3", "", "Title", 0.5),
                            track(w + "/d.mp3", " Two\nLines", "And\r\nmore\t", qQNaN())}
            << true
            << "#EXTM3U\n#EXTINF:-1,My.Song\nMy.Song.mp3\n#EXTINF:-1,Band - "
               "b\nb.mp3\n#EXTINF:0,Title\nc.mp3\n"
               "#EXTINF:-1,Two Lines - And  more\nd.mp3\n";
        QTest::addRow("parent folders")
            << "lists/x.m3u" << QList<Track>{track(w + "/music/a.mp3", "", "a", 1)} << true
            << "#EXTM3U\n#EXTINF:1,a\n../music/a.mp3\n";
        QTest::addRow("outside the shared root stays absolute")
            << "x.m3u" << QList<Track>{track("/nonexistent-volume/a.mp3", "", "a", 1)} << true
            << "#EXTM3U\n#EXTINF:1,a\n/nonexistent-volume/a.mp3\n";
        QTest::addRow("absolute when asked")
            << "x.pls" << QList<Track>{track(w + "/a.mp3", "", "a", 1)} << false
            << "[playlist]\nFile1=" + w + "/a.mp3\nTitle1=a\nLength1=1\nNumberOfEntries=1\nVersion=2\n";
        QTest::addRow("no tracks") << "x.pls" << QList<Track>{} << true
                                   << "[playlist]\nNumberOfEntries=0\nVersion=2\n";
    }
    void writes() {
        QFETCH(QString, destination);
        QFETCH(QList<Track>, tracks);
        QFETCH(bool, relative);
        QFETCH(QString, expected);
        const QString path = m_dir.filePath("w/" + destination);
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QCOMPARE(errorText(PlaylistFile::writePlaylist(tracks, QUrl::fromLocalFile(path), relative)),
                 QString());
        QCOMPARE(QString::fromUtf8(readFile(path)), expected);
    }

    void roundTrips() {
        const QString folder = m_dir.filePath("trip");
        const QList<Track> tracks = {
            track(folder + "/Ärzte/Schrei nach Liebe.mp3", "Die Ärzte", "Schrei", 245.7),
            track(folder + "/../elsewhere/b c.flac", "", "Only title", 0),
            track("/abs/%41 100%.mp3", "A", "B", 12)};
        for (const QString name : {"trip.m3u8", "trip.pls"}) {
            const QUrl url = QUrl::fromLocalFile(folder + u'/' + name);
            QVERIFY(QDir().mkpath(folder));
            QCOMPARE(errorText(PlaylistFile::writePlaylist(tracks, url, true)), QString());
            const PlaylistReadResult result = PlaylistFile::readPlaylist(url);
            QCOMPARE(describe(result.entries),
                     (QStringList{folder + "/Ärzte/Schrei nach Liebe.mp3|Schrei|Die Ärzte|245",
                                  m_dir.filePath("elsewhere/b c.flac") + "|Only title|-|-",
                                  "/abs/%41 100%.mp3|B|A|12"}));
        }
    }

    void relativePaths_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("expected"); // null: no relative path
        QTest::addRow("below") << "/Users/a/Music/X/song.mp3"
                               << "/Users/a/Music"
                               << "X/song.mp3";
        QTest::addRow("beside") << "/Users/a/Music/X/song.mp3"
                                << "/Users/a/Playlists"
                                << "../Music/X/song.mp3";
        QTest::addRow("other volume") << "/Volumes/Disk/song.mp3"
                                      << "/Users/a/Music" << QString();
        QTest::addRow("case matters") << "/Users/A/x.mp3"
                                      << "/Users/a"
                                      << "../A/x.mp3";
        QTest::addRow("the folder itself") << "/Users/a"
                                           << "/Users/a" << QString();
        QTest::addRow("the folder's parent") << "/Users/a"
                                             << "/Users/a/b"
                                             << "..";
        QTest::addRow("standardized first") << "/Users/./a//b/../c.mp3"
                                            << "/Users/a/"
                                            << "c.mp3";
        QTest::addRow("root folder") << "/Users/a.mp3"
                                     << "/" << QString();
    }
    void relativePaths() {
        QFETCH(QString, file);
        QFETCH(QString, folder);
        QFETCH(QString, expected);
        const std::optional<QString> relative =
            PlaylistFile::relativePath(QUrl::fromLocalFile(file), QUrl::fromLocalFile(folder));
        QCOMPARE(relative.value_or(QString()), expected);
        QCOMPARE(relative.has_value(), !expected.isNull());
    }

    void relativePathsResolveSymbolicLinks_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("expected");
        QTest::addRow("folder through a link") << "real/song.mp3"
                                               << "linked"
                                               << "song.mp3";
        QTest::addRow("file through a linked folder") << "linked/song.mp3"
                                                      << "real"
                                                      << "song.mp3";
        QTest::addRow("linked file") << "lists/alias.mp3"
                                     << "lists"
                                     << "../real/song.mp3";
        QTest::addRow("missing file in a linked folder") << "linked/new/x.mp3"
                                                         << "lists"
                                                         << "../real/new/x.mp3";
        QTest::addRow("dangling link kept") << "lists/dangling.mp3"
                                            << "lists"
                                            << "dangling.mp3";
    }
    void relativePathsResolveSymbolicLinks() {
        QFETCH(QString, file);
        QFETCH(QString, folder);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("real/song.mp3"), "x"));
        QVERIFY(QDir().mkpath(dir.filePath("lists")));
        QVERIFY(QFile::link(dir.filePath("real"), dir.filePath("linked")));
        QVERIFY(QFile::link("../real/song.mp3", dir.filePath("lists/alias.mp3")));
        QVERIFY(QFile::link("nowhere.mp3", dir.filePath("lists/dangling.mp3")));
        const std::optional<QString> relative = PlaylistFile::relativePath(
            QUrl::fromLocalFile(dir.filePath(file)), QUrl::fromLocalFile(dir.filePath(folder)));
        QCOMPARE(relative.value_or("<none>"), expected);
    }

    void replacesAtomicallyKeepingPermissions() {
        QTemporaryDir dir;
        const QString path = dir.filePath("list.m3u8");
        QVERIFY(writeFile(path, "old"));
        const auto permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup;
        QVERIFY(QFile::setPermissions(path, permissions));
        QCOMPARE(errorText(PlaylistFile::writePlaylist({}, QUrl::fromLocalFile(path), true)), QString());
        QCOMPARE(readFile(path), "#EXTM3U\n");
        const auto ownerGroupOther = QFile::Permissions(0x7077);
        QCOMPARE(QFile::permissions(path) & ownerGroupOther, permissions);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"list.m3u8"});
    }

    void followsALinkedPlaylist() {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("real/list.m3u"), "old"));
        QVERIFY(QFile::link(dir.filePath("real/list.m3u"), dir.filePath("link.m3u")));
        const QUrl link = QUrl::fromLocalFile(dir.filePath("link.m3u"));
        QCOMPARE(errorText(PlaylistFile::writePlaylist({}, link, true)), QString());
        QVERIFY(QFileInfo(dir.filePath("link.m3u")).isSymLink());
        QCOMPARE(readFile(dir.filePath("real/list.m3u")), "#EXTM3U\n");
    }

    // A write that fails halfway, here at the file size limit, must leave the old playlist as it was.
    void keepsTheOldFileWhenWritingFails() {
        QTemporaryDir dir;
        const QString path = dir.filePath("list.m3u8");
        QVERIFY(writeFile(path, "old"));
        const QList<Track> tracks(2000, track("/music/song.mp3", "Artist", "Title", 100));

        rlimit saved{};
        QVERIFY(getrlimit(RLIMIT_FSIZE, &saved) == 0);
        const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = saved;
        small.rlim_cur = 4096;
        QVERIFY(setrlimit(RLIMIT_FSIZE, &small) == 0);
        const std::optional<QString> error =
            PlaylistFile::writePlaylist(tracks, QUrl::fromLocalFile(path), true);
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, previousHandler);

        QVERIFY(error);
        QVERIFY(!error->isEmpty());
        QCOMPARE(readFile(path), "old");
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"list.m3u8"});
    }

    void reportsWriteErrors() {
        const QUrl url = QUrl::fromLocalFile(m_dir.filePath("no such folder/x.m3u"));
        const std::optional<QString> error = PlaylistFile::writePlaylist({}, url, true);
        QVERIFY(error);
        QVERIFY(!error->isEmpty());
        if (geteuid() == 0)
            QSKIP("a read-only folder does not stop the superuser");
        QTemporaryDir dir;
        const QString path = dir.filePath("list.m3u");
        QVERIFY(writeFile(path, "old"));
        QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
        QVERIFY(PlaylistFile::writePlaylist({}, QUrl::fromLocalFile(path), true));
        QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(readFile(path), "old");
    }
};

QTEST_GUILESS_MAIN(PlaylistFileTest)
#include "playlist_file_test.moc"

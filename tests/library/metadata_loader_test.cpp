#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "library/TrackArtwork.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "tags/FolderArtwork.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/stat.h>

#include <cmath>

using fixtures::readFile;
using fixtures::writeFile;

namespace {

// Hands out a prepared answer, to test the loader's rules alone.
struct FakeReader final : MetadataReader {
    explicit FakeReader(AssetMetadata answer)
        : answer(std::move(answer)) {}
    AssetMetadata read(const QByteArray&) const override { return answer; }
    AssetMetadata answer;
};

const auto text = [](CommonKey key, std::optional<QString> value) { return CommonItem{key, value, {}}; };
const auto item = [](const QString& id, std::optional<QString> value) { return MetadataItem{id, value, {}}; };
const auto urlOf = [](const QString& path) { return QUrl::fromLocalFile(path); };

// Title, artist, album, album artist, track number, year, genre and comment, joined by '|'.
QString textFields(const Track& t) {
    return QStringList{t.title(),       t.artist(), t.album(), t.albumArtist(),
                       t.trackNumber(), t.year(),   t.genre(), t.comment()}
        .join(u'|');
}

QString extendedFields(const ExtendedTags& t) {
    return QStringList{t.albumArtist, t.trackNumber, t.year, t.genre, t.comment}.join(u'|');
}

// Runs Python with mutagen on `path`; the script sees `p` (the file), `img` (the bytes of `imagePath`) and
// `frames(tag, TIT2='…', …)`, which adds text frames.
bool tagWithMutagen(const QString& path, const QString& script, const QString& imagePath) {
    const QString prelude =
        "import sys\nfrom mutagen import id3\nfrom mutagen.id3 import ID3, COMM, APIC\n"
        "from mutagen.mp4 import MP4, MP4Cover\nfrom mutagen.flac import FLAC, Picture\n"
        "p = sys.argv[1]; img = open(sys.argv[2], 'rb').read()\n"
        "def frames(t, **texts): [t.add(getattr(id3, k)(text=v)) for k, v in texts.items()]\n";
    const auto result = fixtures::run(fixtures::systemPython(), {"-c", prelude + script, path, imagePath});
    if (result.exitCode != 0)
        qWarning() << result.err;
    return result.exitCode == 0;
}

} // namespace

class MetadataLoaderTest : public QObject {
    Q_OBJECT

    fixtures::MusicFolder m_dir; // its top level holds no image, so folder searches end there

    QString path(const QString& name) const { return m_dir.filePath(name); }

    // A one-second untagged tone, its format chosen by the file's extension.
    static bool makeTone(const QString& file) {
        return QDir().mkpath(QFileInfo(file).path()) &&
               fixtures::makeAudio(file, 1.0, {"-fflags", "+bitexact"});
    }

private slots:
    void initTestCase() {
        if (!fixtures::haveTool("ffmpeg"))
            QSKIP("ffmpeg is needed to make audio files");
    }

    // Names of no playable file; each playable extension is loaded by readsRealFiles.
    void tellsPlayableFiles() {
        for (const QString name : {"song.ogg", "mp3", ".mp3", "song.mp3.txt"})
            QVERIFY2(!MetadataLoader::isPlayable(urlOf("/music/" + name)), qPrintable(name));
    }

    void normalizesGenres_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        // text>expected, '|' between rows
        const QString rows =
            "(9)>Metal|(79)>Hard Rock|(80)>(80)|(-1)>(-1)|(+17)>Rock|(-0)>Blues|(9)Heavy>Heavy|"
            "(17) \t>Rock|(17)\tRock n Roll >Rock n Roll|( 9)>( 9)|()>()|(9>(9|Rock (9)>Rock (9)|"
            "(99999999999999999999)>(99999999999999999999)|(9)\r>\r";
        for (const QString& row : rows.split(u'|'))
            QTest::addRow("%s", qPrintable(row)) << row.section(u'>', 0, 0) << row.section(u'>', 1);
    }
    void normalizesGenres() {
        QFETCH(QString, text);
        QTEST(MetadataLoader::normalizedGenre(text), "expected");
    }

    // The loader's rules over what a reader says: the common items, a hint from a playlist line such as
    // "#EXTINF:215,Hint Artist - Hint Title" for files that exist and files that do not, and the identifiers
    // searched in order of preference for the other fields.
    void fillsTheFields_data() {
        namespace id = MetadataIdentifier;
        QTest::addColumn<QList<CommonItem>>("common");
        QTest::addColumn<QList<MetadataItem>>("items");
        QTest::addColumn<double>("duration");
        QTest::addColumn<bool>("withHint");
        QTest::addColumn<QString>("expected"); // as textFields, then the duration
        const auto row = [](const char* tag, const QList<CommonItem>& common, double duration, bool withHint,
                            const char* expected) {
            QTest::addRow("%s", tag) << common << QList{item(id::id3Band, "Band")} << duration << withHint
                                     << QString(expected);
        };
        row("later values win, absent ones do not",
            {text(CommonKey::Title, "First"), text(CommonKey::Title, {}), text(CommonKey::Artist, "Artist"),
             text(CommonKey::Creator, "Creator"), text(CommonKey::Author, {}),
             text(CommonKey::AlbumName, "Album")},
            12.0, false, "First|Creator|Album|Band|||||12");
        const QList<CommonItem> read{text(CommonKey::Title, "Read")};
        row("file wins over hint", read, 12.0, true, "Read|Hint Artist||Band|||||12");
        row("zero takes hint", {}, 0.0, true, "Hint Title|Hint Artist||Band|||||215");
        row("infinity, no hint", {}, qInf(), false, "01 Intro|||Band|||||0");
        row("missing, hint", read, 12.0, true, "Hint Title|Hint Artist|||||||215");
        row("missing, no hint", read, 12.0, false, "01 Intro||||||||0");

        const auto ids = [](const char* tag, const QList<MetadataItem>& items, const char* expected) {
            QTest::addRow("%s", tag) << QList<CommonItem>() << items << 0.0 << false
                                     << "01 Intro|||" + QString(expected) + "|0";
        };
        ids("band over album artist", {item(id::iTunesAlbumArtist, "iTunes"), item(id::id3Band, "Band")},
            "Band||||");
        ids("recording time over year", {item(id::id3Year, "1997"), item(id::id3RecordingTime, "2019-05-03")},
            "||2019||");
        ids("empty or absent text goes on",
            {item(id::id3TrackNumber, ""), item(id::id3TrackNumber, {}), item(id::id3TrackNumber, "3/12")},
            "|3/12|||");
        ids("year cut after 4 characters, not UTF-16 units",
            {item(id::id3Year, "\U0001D7D0\U0001D7CE\U0001D7CF\U0001D7D7-05")},
            "||\U0001D7D0\U0001D7CE\U0001D7CF\U0001D7D7||");
    }
    void fillsTheFields() {
        QFETCH(QList<CommonItem>, common);
        QFETCH(QList<MetadataItem>, items);
        QFETCH(double, duration);
        QFETCH(bool, withHint);
        const bool missing = QByteArray(QTest::currentDataTag()).startsWith("missing");
        const QString file = missing ? path("gone/01 Intro.mp3") : m_dir.addFile("fake/01 Intro.mp3", "x");
        const FakeReader reader({true, common, items, duration});
        std::optional<PlaylistEntry> hint;
        if (withHint)
            hint = PlaylistEntry{urlOf(file), "Hint Title", "Hint Artist", 215.0};
        const Track track = MetadataLoader::loadTrackNow(urlOf(file), hint, reader);
        QTEST(textFields(track) + '|' + QString::number(track.duration), "expected");
        QCOMPARE(track.isMissing, missing);
        QVERIFY(!track.id.isNull() && track.id != MetadataLoader::loadTrackNow(urlOf(file), hint, reader).id);
    }

    // Files of every playable extension, tagged by ffmpeg with its own metadata options or by mutagen, read
    // back through the real reader.
    void readsRealFiles_data() {
        QTest::addColumn<QString>("extension");
        // mutagen's script, embedding the picture when it uses `img`; or "ffmpeg …"
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected"); // as textFields
        const auto row = [](const char* tag, const char* extension, const QString& script,
                            const QString& expected) {
            QTest::addRow("%s", tag) << extension << script << expected;
        };
        const QString made = "Made Title|Made Artist|Made Album||||Made Genre|";
        for (const char* extension : {"mp3", "m4a", "m4b", "mp4", "flac", "wav", "caf", "alac", "au", "snd"})
            row(extension, extension, "ffmpeg", made);
        for (const char* extension : {"aac", "adts"})
            row(extension, extension, "ffmpeg", "Tone|||||||");
        // AIFF's own name and author chunks; the author stands in for the artist.
        for (const char* extension : {"aif", "aiff", "aifc"})
            row(extension, extension, "ffmpeg", "Made Title|Made Author||||||");
        const QString all = "Title|Artist|Album|Band|3/12|2019|Rock|Comment";
        const QString id3 =
            "frames(t, TIT2='Title', TPE1='Artist', TALB='Album', TPE2='Band', TRCK='3/12')\n"
            "t.add(COMM(desc='iTunNORM', text=' 0000 0000')); t.add(COMM(desc='', text='Comment'))\n"
            "t.add(APIC(type=4, desc='back', data=b'not the cover')); t.add(APIC(type=3, data=img))\n";
        row("mp3 id3v2.4", "mp3",
            "t = ID3()\n" + id3 + "frames(t, TDRC='2019-05-03', TCON='(17)'); t.save(p)", all);
        row("m4a atoms", "m4a",
            "f = MP4(p); f.update({'\\xa9nam': 'Title', '\\xa9ART': 'Artist', '\\xa9alb': 'Album'})\n"
            "f.update({'aART': 'Band', 'trkn': [(3, 12)], '\\xa9day': '2019-05-03T00:00:00Z'})\n"
            "f.update({'\\xa9gen': 'Rock', '\\xa9cmt': 'Comment', 'covr': [MP4Cover(img)]}); f.save()",
            all);
        row("flac picture block", "flac",
            "f = FLAC(p); f.update({'TITLE': 'Title', 'artist': 'Artist', 'ALBUM': 'Album'})\n"
            "f['ALBUMARTIST'] = 'Band'\n"
            "f.update({'TRACKNUMBER': '3/12', 'DATE': '2019-05-03', 'GENRE': '(17)', 'COMMENT': 'Comment'})\n"
            "pic = Picture(); pic.type = 3; pic.data = img; f.add_picture(pic); f.save()",
            all);
    }
    void readsRealFiles() {
        QFETCH(QString, extension);
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const QString folder = path(QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_'));
        const QString file = folder + "/Tone." + extension;
        const QString cover = folder + "/embedded.bin"; // not an image name the folder search looks at
        QVERIFY(MetadataLoader::isPlayable(urlOf(file.toUpper())));
        if (script.startsWith("ffmpeg")) {
            QStringList options = script.split(u' ').mid(1);
            for (const char* field : {"title=Made Title", "artist=Made Artist", "author=Made Author",
                                      "album=Made Album", "genre=Made Genre"})
                options += {"-metadata", field};
            QVERIFY(QDir().mkpath(folder) && fixtures::makeAudio(file, 1.0, options));
        } else {
            QVERIFY(makeTone(file) && writeFile(cover, fixtures::pictureBytes("JPG", Qt::blue)));
            QVERIFY(tagWithMutagen(file, script, cover));
        }

        const Track track = MetadataLoader::loadTrackNow(urlOf(file));
        QCOMPARE(textFields(track), expected);
        QVERIFY2(std::abs(track.duration - 1.0) < 0.2, qPrintable(QString::number(track.duration)));
        const bool embeds = script.contains("img");
        QCOMPARE(loadArtwork(track), embeds ? std::optional(readFile(cover)) : std::nullopt);
        QCOMPARE(artworkKey(track), embeds ? artworkFingerprint(readFile(cover)) : QByteArray());
        QCOMPARE(extendedFields(MetadataLoader::loadExtendedTags(urlOf(file)).result()),
                 expected.section(u'|', 3));
    }

    // A song without a picture of its own takes the image beside it, made when it is asked for: the image's
    // thumbnail, byte for byte.
    void takesTheFolderArtwork() {
        const QString cover = m_dir.addFile("album/cover.jpg", fixtures::pictureBytes("JPG", Qt::green, 64));
        QVERIFY(makeTone(path("album/plain.mp3")));
        const Track track = MetadataLoader::loadTrack(urlOf(path("album/plain.mp3"))).result();
        QCOMPARE(track.artworkSource(), ArtworkSource::folder(urlOf(cover)));
        QVERIFY(!artworkKey(track).isEmpty());
        QCOMPARE(loadArtwork(track), FolderArtwork::thumbnail(urlOf(cover)));
    }

    // Damaged, hostile or odd files give a track named after the file, never a crash or a hang.
    void survivesBadInput_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray words = QByteArray("just some words, not audio\n").repeated(200);
        // A tag header claiming 256 MB, then a frame claiming more than the file holds; a 2 GB MP4 movie
        // atom.
        const QByteArray id3 = QByteArrayLiteral("ID3\4\0\0\x7f\x7f\x7f\x7fTIT2\x7f\x7f\x7f\x7f\0\0\3Title");
        const QByteArray atoms =
            QByteArrayLiteral("\0\0\0\x18"
                              "ftypM4A \0\0\0\0M4A isom\x7f\xff\xff\xffmoov\x7f\xff\xff\0udta");
        const std::tuple<const char*, const char*, QByteArray> rows[] = {{"empty", "song.mp3", {}},
                                                                         {"text", "song.mp3", words},
                                                                         {"id3-past-end", "song.mp3", id3},
                                                                         {"atom-past-end", "song.m4a", atoms},
                                                                         {"fifo", "song.mp3", {}}};
        for (const auto& [tag, name, bytes] : rows)
            QTest::addRow("%s", tag) << name << bytes;
        // Damaged files other tools wrote (truncated, corrupted, oversized), read under their own names when
        // the shared corpus is beside the checkout.
        for (const char* file :
             {"taglib/tests/data/excessive_alloc.mp3", "taglib/tests/data/compressed_id3_frame.mp3",
              "mutagen/tests/data/audacious-trailing-id32-apev2.mp3", "taglib/tests/data/duplicate_tags.wav"})
            if (const QByteArray bytes = readFile(fixtures::corpusFile(file)); !bytes.isEmpty())
                QTest::addRow("corpus %s", file) << QFileInfo(file).fileName() << bytes;
    }
    void survivesBadInput() {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        const QString tag = QString::fromLatin1(QTest::currentDataTag());
        const QString file = path("bad/" + QString(tag).replace(' ', '_') + "/" + name);
        QVERIFY(QDir().mkpath(QFileInfo(file).path()));
        if (tag == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
        else
            QVERIFY(writeFile(file, bytes));

        // Through the pool, so that a read that blocks shows as a timeout rather than a stuck test.
        QFuture<Track> loading =
            MetadataLoader::loadTrack(urlOf(file), PlaylistEntry{urlOf(file), {}, {}, 99.0});
        QVERIFY(QTest::qWaitFor([&] { return loading.isFinished(); }, 10000));
        const Track track = loading.result();
        QVERIFY(!track.isMissing && std::isfinite(track.duration) && track.duration > 0);
        if (!tag.startsWith("corpus")) {
            QCOMPARE(textFields(track), "song|||||||");
            QVERIFY(track.duration == 99.0 && artworkKey(track).isEmpty());
            QCOMPARE(MetadataLoader::loadExtendedTags(urlOf(file)).result(), ExtendedTags{});
        }
    }
};

QTEST_GUILESS_MAIN(MetadataLoaderTest)
#include "metadata_loader_test.moc"

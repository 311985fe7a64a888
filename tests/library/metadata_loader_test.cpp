#include "library/FileMetadataReader.h"
#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "tags/FolderArtworkCache.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <limits>

using fixtures::readFile;
using fixtures::writeFile;

namespace {

// A reader that hands out a prepared answer, to test the loader's rules alone.
class FakeReader final : public MetadataReader {
public:
    explicit FakeReader(AssetMetadata answer)
        : m_answer(std::move(answer)) {}
    AssetMetadata read(const QByteArray&) const override { return m_answer; }

private:
    AssetMetadata m_answer;
};

CommonItem text(CommonKey key, std::optional<QString> value) {
    return CommonItem{key, std::move(value), {}};
}

MetadataItem item(const QString& identifier, std::optional<QString> value,
                  std::optional<QString> number = {}) {
    return MetadataItem{identifier, std::move(value), std::move(number)};
}

QUrl urlOf(const QString& path) {
    return QUrl::fromLocalFile(path);
}

// Runs Python with mutagen on `path`; the script sees `p` (the file) and `img` (the bytes of `imagePath`).
bool tagWithMutagen(const QString& path, const QString& script, const QString& imagePath) {
    const QString prelude = QStringLiteral(
        "import sys, base64\n"
        "from mutagen.id3 import ID3, TIT2, TPE1, TALB, TPE2, TRCK, TDRC, TYER, TCON, COMM, APIC\n"
        "from mutagen.mp4 import MP4, MP4Cover\n"
        "from mutagen.flac import FLAC, Picture\n"
        "from mutagen.wave import WAVE\n"
        "from mutagen.aiff import AIFF\n"
        "p = sys.argv[1]\n"
        "img = open(sys.argv[2], 'rb').read()\n");
    const auto result = fixtures::run(fixtures::systemPython(), {"-c", prelude + script, path, imagePath});
    if (result.exitCode != 0)
        qWarning() << result.err;
    return result.exitCode == 0;
}

// Title, artist, album, album artist, track number, year, genre and comment, joined by '|'.
QString textFields(const Track& track) {
    return QStringList{track.title,       track.artist, track.album, track.albumArtist,
                       track.trackNumber, track.year,   track.genre, track.comment}
        .join(u'|');
}

// Album artist, track number, year, genre and comment, joined by '|'.
QString extendedFields(const ExtendedTags& tags) {
    return QStringList{tags.albumArtist, tags.trackNumber, tags.year, tags.genre, tags.comment}.join(u'|');
}

} // namespace

class MetadataLoaderTest : public QObject {
    Q_OBJECT

    fixtures::MusicFolder m_dir;
    FolderArtworkCache m_noFolderArtwork; // tests that need folder artwork make their own

    QString path(const QString& name) const { return m_dir.filePath(name); }
    Track loadWith(const QString& file, const MetadataReader& reader,
                   const std::optional<PlaylistEntry>& hint = std::nullopt) {
        return MetadataLoader::loadTrackNow(urlOf(file), hint, reader, m_noFolderArtwork);
    }

    // A copy of a one-second untagged tone of the given extension, made once per extension.
    bool copyTone(const QString& extension, const QString& destination) {
        const QString source = path("tones/tone." + extension);
        return (QFileInfo::exists(source) ||
                (QDir().mkpath(path("tones")) &&
                 fixtures::makeAudio(source, 1.0, {"-map_metadata", "-1", "-fflags", "+bitexact"}))) &&
               QDir().mkpath(QFileInfo(destination).path()) && QFile::copy(source, destination);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        if (!fixtures::haveTool("ffmpeg"))
            QSKIP("ffmpeg is needed to make audio files");
    }

    void tellsPlayableFiles() {
        QCOMPARE(MetadataLoader::playableExtensions(),
                 (QSet<QString>{"mp3", "m4a", "m4b", "aac", "adts", "aif", "aiff", "aifc", "wav", "caf",
                                "flac", "alac", "mp4", "au", "snd"}));
        for (const QString name : {"SONG.MP3", "01. Intro.m4a"})
            QVERIFY2(MetadataLoader::isPlayable(urlOf("/music/" + name)), qPrintable(name));
        for (const QString name : {"song.ogg", "mp3", "song.mp3.txt"})
            QVERIFY2(!MetadataLoader::isPlayable(urlOf("/music/" + name)), qPrintable(name));
    }

    void normalizesGenres_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const std::pair<const char*, const char*> rows[] = {
            {"(9)", "Metal"},
            {"(79)", "Hard Rock"},
            {"(80)", "(80)"},
            {"(-1)", "(-1)"},
            {"(+17)", "Rock"},
            {"(-0)", "Blues"},
            {"(9)Heavy", "Heavy"},
            {"(17) \t", "Rock"},
            {"(17) \tRock n Roll\t ", "Rock n Roll"},
            {"( 9)", "( 9)"},
            {"()", "()"},
            {"(99999999999999999999)", "(99999999999999999999)"},
            {"(9", "(9"},
            {"Rock (9)", "Rock (9)"},
            {"(9)\n", "\n"}};
        for (const auto& [text, expected] : rows)
            QTest::addRow("%s", text) << QString::fromUtf8(text) << QString::fromUtf8(expected);
    }
    void normalizesGenres() {
        QFETCH(QString, text);
        QTEST(MetadataLoader::normalizedGenre(text), "expected");
    }

    // The loader's rules over a reader that says exactly what a test wants.
    void sortsCommonItemsIntoSlots() {
        const QByteArray cover = fixtures::pictureBytes("JPG", Qt::red);
        const AssetMetadata metadata{true,
                                     {text(CommonKey::Title, "First"), text(CommonKey::Title, std::nullopt),
                                      text(CommonKey::Artist, "Artist"), text(CommonKey::Creator, "Creator"),
                                      text(CommonKey::Author, std::nullopt),
                                      text(CommonKey::AlbumName, "Album"),
                                      CommonItem{CommonKey::Artwork, std::nullopt, cover},
                                      CommonItem{CommonKey::Artwork, std::nullopt, std::nullopt}},
                                     {},
                                     12};
        const Track track = loadWith(m_dir.addFile("slots.mp3", "x"), FakeReader(metadata));
        QCOMPARE(textFields(track), "First|Creator|Album|||||");
        QCOMPARE(track.duration, 12.0);
        QCOMPARE(track.artwork, std::optional<QByteArray>(cover));
        QCOMPARE(track.artworkSource, ArtworkSource::embedded());
        QVERIFY(!track.isMissing);
        QVERIFY(!track.id.isNull());
    }

    void fallsBackToHintAndFileName_data() {
        QTest::addColumn<double>("readDuration");
        QTest::addColumn<QString>("readTitle");
        QTest::addColumn<bool>("withHint");
        QTest::addColumn<QString>("expected"); // title|artist|duration
        const double nan = std::numeric_limits<double>::quiet_NaN();
        QTest::addRow("file wins") << 12.0 << "Read" << true << "Read|Hint Artist|12";
        QTest::addRow("zero takes hint") << 0.0 << "" << true << "Hint Title|Hint Artist|215";
        QTest::addRow("nan takes hint") << nan << "" << true << "Hint Title|Hint Artist|215";
        QTest::addRow("negative takes hint") << -3.0 << "" << true << "Hint Title|Hint Artist|215";
        QTest::addRow("infinity without hint")
            << std::numeric_limits<double>::infinity() << "" << false << "01 Intro||0";
    }
    void fallsBackToHintAndFileName() {
        QFETCH(double, readDuration);
        QFETCH(QString, readTitle);
        QFETCH(bool, withHint);
        const AssetMetadata metadata{true, {text(CommonKey::Title, readTitle)}, {}, readDuration};
        const QString file = m_dir.addFile("01 Intro.mp3", "x");
        std::optional<PlaylistEntry> hint;
        if (withHint)
            hint = PlaylistEntry{urlOf(file), "Hint Title", "Hint Artist", 215.0};
        const Track track = loadWith(file, FakeReader(metadata), hint);
        QTEST(QStringList({track.title, track.artist, QString::number(track.duration)}).join(u'|'),
              "expected");
        QCOMPARE(track.artworkSource, ArtworkSource::none());
    }

    void searchesIdentifiersInPreferenceOrder_data() {
        namespace id = MetadataIdentifier;
        QTest::addColumn<QList<MetadataItem>>("items");
        QTest::addColumn<QString>("expected"); // as extendedFields
        const auto row = [](const char* tag, const QList<MetadataItem>& items, const QString& expected) {
            QTest::addRow("%s", tag) << items << expected;
        };
        row("band over album artist", {item(id::iTunesAlbumArtist, "iTunes"), item(id::id3Band, "Band")},
            "Band||||");
        row("recording time over year", {item(id::id3Year, "1997"), item(id::id3RecordingTime, "2019-05-03")},
            "||2019||");
        row("year over release date",
            {item(id::iTunesReleaseDate, "2003-11-21T00:00:00Z"), item(id::id3Year, "97")}, "||97||");
        row("empty or absent text goes on to the next item",
            {item(id::id3TrackNumber, ""), item(id::id3TrackNumber, std::nullopt),
             item(id::id3TrackNumber, "3/12")},
            "|3/12|||");
        row("number value", {item(id::iTunesTrackNumber, std::nullopt, "7")}, "|7|||");
        row("genre code normalized", {item(id::iTunesUserGenre, "Pop"), item(id::id3ContentType, "(17)")},
            "|||Rock|");
        row("user genre over predefined",
            {item(id::iTunesPredefinedGenre, "Jazz"), item(id::iTunesUserGenre, "Pop")}, "|||Pop|");
        row("comment order",
            {item(id::iTunesUserComment, "iTunes"), item(id::id3Comments, "first"),
             item(id::id3Comments, "second")},
            "||||first");
    }
    void searchesIdentifiersInPreferenceOrder() {
        QFETCH(QList<MetadataItem>, items);
        QFETCH(QString, expected);
        const FakeReader reader(AssetMetadata{true, {}, items, 0});
        const QString file = m_dir.addFile("extended.mp3", "x");
        QCOMPARE(extendedFields(MetadataLoader::loadExtendedTagsNow(urlOf(file), reader)), expected);
        QCOMPARE(textFields(loadWith(file, reader)).section(u'|', 3), expected);
    }

    void missingFileTakesTheHint() {
        // As read from "#EXTINF:215,Band - Song".
        const QUrl url = urlOf(path("gone/Song.mp3"));
        const Track track = MetadataLoader::loadTrackNow(url, PlaylistEntry{url, "Song", "Band", 215.0});
        QVERIFY(track.isMissing);
        QCOMPARE(textFields(track), "Song|Band||||||");
        QCOMPARE(track.duration, 215.0);
        QCOMPARE(track.url, url);
        QVERIFY(!track.artwork);
        QVERIFY(!track.id.isNull());

        const Track bare = MetadataLoader::loadTrackNow(urlOf(path("gone/02 Outro.flac")));
        QVERIFY(bare.isMissing);
        QCOMPARE(textFields(bare), "02 Outro|||||||");
        QCOMPARE(bare.duration, 0.0);
        QVERIFY(bare.id != track.id);
        QCOMPARE(MetadataLoader::loadExtendedTagsNow(url), ExtendedTags{});
    }

    // Every playable extension, made by ffmpeg with its own metadata options.
    void loadsEveryExtension_data() {
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("expected"); // title|artist|album|genre: what the format can keep
        const QString all = "Made Title|Made Artist|Made Album|Made Genre";
        for (const char* extension : {"mp3", "m4a", "m4b", "mp4", "flac", "wav", "caf", "alac", "au", "snd"})
            QTest::addRow("%s", extension) << extension << QStringList() << all;
        for (const char* extension : {"aac", "adts"})
            QTest::addRow("%s", extension) << extension << QStringList() << "Tone|||";
        // AIFF's own name and author chunks; the author stands in for the artist.
        for (const char* extension : {"aif", "aiff", "aifc"})
            QTest::addRow("%s", extension) << extension << QStringList() << "Made Title|Made Author||";
        // No overall length in the file, only per fragment.
        QTest::addRow("fragmented m4a")
            << "m4a" << QStringList{"-movflags", "frag_keyframe+empty_moov"} << all;
    }
    void loadsEveryExtension() {
        QFETCH(QString, extension);
        QFETCH(QStringList, options);
        const QString file =
            path("every/" + QString::fromLatin1(QTest::currentDataTag()) + "/Tone." + extension);
        QDir().mkpath(QFileInfo(file).path());
        QVERIFY(fixtures::makeAudio(
            file, 2.0,
            options + QStringList{"-metadata", "title=Made Title", "-metadata", "artist=Made Artist",
                                  "-metadata", "author=Made Author", "-metadata", "album=Made Album",
                                  "-metadata", "genre=Made Genre"}));
        const Track track = loadWith(file, FileMetadataReader());
        QVERIFY2(std::abs(track.duration - 2.0) < 0.25, qPrintable(QString::number(track.duration)));
        QVERIFY(!track.isMissing);
        QTEST(QStringList({track.title, track.artist, track.album, track.genre}).join(u'|'), "expected");
    }

    // Tags written by mutagen, read back through the real reader.
    void readsTagsWrittenByMutagen_data() {
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("script");   // embeds the picture when it uses `img`
        QTest::addColumn<QString>("expected"); // as textFields
        const auto row = [](const char* tag, const char* extension, const QString& script,
                            const QString& expected) {
            QTest::addRow("%s", tag) << extension << script << expected;
        };
        const QString id3Frames = QStringLiteral(
            "t.add(TIT2(encoding=3, text='Title'))\n"
            "t.add(TPE1(encoding=3, text='Artist'))\n"
            "t.add(TALB(encoding=3, text='Album'))\n"
            "t.add(TPE2(encoding=3, text='Band'))\n"
            "t.add(TRCK(encoding=3, text='3/12'))\n"
            "t.add(COMM(encoding=3, lang='eng', desc='iTunNORM', text=' 0000 0000'))\n"
            "t.add(COMM(encoding=3, lang='eng', desc='', text='Comment'))\n"
            "t.add(APIC(encoding=3, mime='image/png', type=4, desc='back', data=b'not the cover'))\n"
            "t.add(APIC(encoding=3, mime='image/jpeg', type=3, desc='', data=img))\n");
        const QString all = "Title|Artist|Album|Band|3/12|2019|Rock|Comment";
        row("mp3 id3v2.4", "mp3",
            "t = ID3()\n" + id3Frames +
                "t.add(TDRC(encoding=3, text='2019-05-03'))\nt.add(TCON(encoding=3, text='(17)'))\nt.save(p, "
                "v2_version=4)\n",
            all);
        row("mp3 id3v2.3", "mp3",
            "t = ID3()\n" + id3Frames +
                "t.add(TYER(encoding=1, text='2019'))\nt.add(TCON(encoding=1, text='(17)'))\nt.save(p, "
                "v2_version=3)\n",
            all);
        row("mp3 id3v1 only", "mp3",
            "t = ID3()\nt.add(TIT2(encoding=3, text='Old Title'))\nt.add(TPE1(encoding=3, text='Old "
            "Artist'))\n"
            "t.add(TALB(encoding=3, text='Old Album'))\nt.add(TDRC(encoding=3, text='1984'))\n"
            "t.add(TRCK(encoding=3, text='7'))\nt.add(TCON(encoding=3, text='(40)'))\n"
            "t.save(p, v1=2)\nfrom mutagen.id3 import delete\ndelete(p, delete_v1=False, delete_v2=True)\n",
            "Old Title|Old Artist|Old Album||7|1984|Alt. Rock|");
        const QString mp4Atoms = QStringLiteral(
            "f = MP4(p)\nf['\\xa9nam'] = 'Title'\nf['\\xa9ART'] = 'Artist'\nf['\\xa9alb'] = 'Album'\n"
            "f['aART'] = 'Band'\nf['trkn'] = [(3, 12)]\nf['\\xa9day'] = '2019-05-03T00:00:00Z'\n"
            "f['\\xa9gen'] = 'Rock'\nf['\\xa9cmt'] = 'Comment'\n"
            "f['covr'] = [MP4Cover(img, imageformat=MP4Cover.FORMAT_JPEG)]\nf.save()\n");
        for (const char* extension : {"m4a", "m4b", "mp4"})
            QTest::addRow("%s atoms", extension) << extension << mp4Atoms << all;
        row("m4a author only", "m4a", "f = MP4(p)\nf['\\xa9aut'] = 'Author'\nf.save()\n",
            "Tone|Author||||||");
        // mutagen writes no predefined genre: a user genre of the code's two bytes becomes one.
        row("m4a predefined genre", "m4a",
            "f = MP4(p)\nf['\\xa9gen'] = '\\x00\\x29'\nf.save()\nb = open(p, 'rb').read()\n"
            "b = b.replace(b'\\xa9gen\\0\\0\\0\\x12data\\0\\0\\0\\x01', "
            "b'gnre\\0\\0\\0\\x12data\\0\\0\\0\\0')\n"
            "open(p, 'wb').write(b)\n",
            "Tone||||||Alt. Rock|");
        row("m4a track without total", "m4a", "f = MP4(p)\nf['trkn'] = [(5, 0)]\nf.save()\n", "Tone||||5|||");
        const QString vorbis =
            QStringLiteral("f = FLAC(p)\nf['TITLE'] = 'Title'\nf['artist'] = 'Artist'\nf['ALBUM'] = 'Album'\n"
                           "f['ALBUMARTIST'] = 'Band'\nf['TRACKNUMBER'] = '3/12'\nf['DATE'] = '2019-05-03'\n"
                           "f['GENRE'] = '(17)'\nf['COMMENT'] = 'Comment'\n"
                           "pic = Picture()\npic.type = 3\npic.mime = 'image/jpeg'\npic.data = img\n");
        row("flac picture block", "flac", vorbis + "f.add_picture(pic)\nf.save()\n", all);
        row("flac picture comment", "flac",
            vorbis + "f['METADATA_BLOCK_PICTURE'] = base64.b64encode(pic.write()).decode()\nf.save()\n", all);
        row("flac author only", "flac", "f = FLAC(p)\nf['AUTHOR'] = 'Author'\nf.save()\n",
            "Tone|Author||||||");
        row("flac artist wins over author", "flac",
            "f = FLAC(p)\nf['AUTHOR'] = 'Author'\nf['ARTIST'] = 'Artist'\nf.save()\n", "Tone|Artist||||||");
        const QString chunkTag =
            "f.add_tags()\nt = f.tags\n" + id3Frames +
            "t.add(TDRC(encoding=3, text='2019'))\nt.add(TCON(encoding=3, text='Rock'))\nf.save()\n";
        row("wav id3 chunk", "wav", "f = WAVE(p)\n" + chunkTag, all);
        row("aif id3 chunk", "aif", "f = AIFF(p)\n" + chunkTag, all);
        row("aifc id3 chunk", "aifc", "f = AIFF(p)\n" + chunkTag, all);
    }
    void readsTagsWrittenByMutagen() {
        QFETCH(QString, extension);
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const bool embedsArtwork = script.contains("img");
        const QString folder = QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_');
        const QString file = path(folder + "/Tone." + extension);
        // not an image name the folder search looks at
        const QString cover =
            m_dir.addFile(folder + "/embedded.jpg.bin", fixtures::pictureBytes("JPG", Qt::blue));
        QVERIFY(copyTone(extension, file));
        QVERIFY(tagWithMutagen(file, script, cover));

        const Track track = loadWith(file, FileMetadataReader());
        QCOMPARE(textFields(track), expected);
        QVERIFY2(std::abs(track.duration - 1.0) < 0.2, qPrintable(QString::number(track.duration)));
        QCOMPARE(track.artwork, embedsArtwork ? std::optional(readFile(cover)) : std::nullopt);
        if (embedsArtwork)
            QCOMPARE(track.artworkSource, ArtworkSource::embedded());
        QCOMPARE(extendedFields(MetadataLoader::loadExtendedTags(urlOf(file)).result()),
                 expected.section(u'|', 3));
    }

    void usesFolderArtworkWithoutEmbeddedArtwork() {
        const QString song = path("folder-art/Plain.mp3");
        QVERIFY(copyTone("mp3", song));
        const QString cover =
            m_dir.addFile("folder-art/cover.jpg", fixtures::pictureBytes("JPG", Qt::green, 64));
        FolderArtworkCache cache;
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(song), std::nullopt, FileMetadataReader(), cache);
        QCOMPARE(track.artworkSource, ArtworkSource::folder(urlOf(cover)));
        QVERIFY(track.artwork && !QImage::fromData(*track.artwork).isNull());
        const Track second =
            MetadataLoader::loadTrackNow(urlOf(song), std::nullopt, FileMetadataReader(), cache);
        QCOMPARE(second.artwork->constData(), track.artwork->constData());
    }

    void sharesIdenticalEmbeddedArtwork() {
        const QString cover =
            m_dir.addFile("shared-art/cover.bin", fixtures::pictureBytes("JPG", Qt::yellow, 200));
        QList<Track> tracks;
        for (const QString name : {"0.mp3", "1.mp3"}) {
            const QString file = path("shared-art/" + name);
            QVERIFY(copyTone("mp3", file));
            QVERIFY(tagWithMutagen(file,
                                   "t = ID3()\nt.add(APIC(encoding=3, mime='image/jpeg', type=3, data=img))\n"
                                   "t.save(p)\n",
                                   cover));
            tracks.append(MetadataLoader::loadTrack(urlOf(file)).result());
        }
        QCOMPARE(tracks[0].artwork, std::optional<QByteArray>(readFile(cover)));
        QCOMPARE(tracks[1].artwork->constData(), tracks[0].artwork->constData());
    }

    // Damaged, hostile or odd files give a track named after the file, never a crash or a hang.
    void survivesBadInput_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("name");
        const std::pair<const char*, const char*> unreadable[] = {
            {"empty", "song.mp3"},        {"text", "song.mp3"},         {"text", "song.caf"},
            {"folder", "song.mp3"},       {"fifo", "song.mp3"},         {"no-permission", "song.mp3"},
            {"id3-past-end", "song.mp3"}, {"atom-past-end", "song.m4a"}};
        for (const auto& [kind, name] : unreadable)
            QTest::addRow("%s %s", kind, name) << kind << name;
        for (const char* kind : {"truncated", "flipped"})
            for (const char* extension : {"mp3", "m4a", "flac", "wav", "caf", "adts", "au"})
                QTest::addRow("%s %s", kind, extension) << kind << QStringLiteral("song.%1").arg(extension);
    }
    void survivesBadInput() {
        QFETCH(QString, kind);
        QFETCH(QString, name);
        const bool unreadable = kind != "truncated" && kind != "flipped"; // nothing in it reads as audio
        const QString file =
            path("bad/" + QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_') + "/" + name);
        QVERIFY(QDir().mkpath(QFileInfo(file).path()));
        if (kind == "empty") {
            QVERIFY(writeFile(file, {}));
        } else if (kind == "text") {
            QVERIFY(writeFile(file, QByteArray("just some words, not audio\n").repeated(200)));
        } else if (kind == "id3-past-end") {
            // A tag header claiming 256 MB, then a frame claiming more than the file holds.
            static const char tag[] = "ID3\x04\x00\x00\x7f\x7f\x7f\x7fTIT2\x7f\x7f\x7f\x7f\x00\x00\x03Title";
            QVERIFY(writeFile(file, QByteArray(tag, sizeof tag - 1)));
        } else if (kind == "atom-past-end") {
            // An MP4 whose movie atom claims 2 GB.
            static const char atoms[] =
                "\x00\x00\x00\x18"
                "ftypM4A \x00\x00\x00\x00M4A isom\x7f\xff\xff\xffmoov\x7f\xff\xff\x00udta";
            QVERIFY(writeFile(file, QByteArray(atoms, sizeof atoms - 1)));
        } else if (kind == "folder") {
            QVERIFY(QDir().mkpath(file));
        } else if (kind == "fifo") {
            QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
        } else if (kind == "no-permission") {
            QVERIFY(writeFile(file, QByteArray("not audio either").repeated(100)));
            QVERIFY(QFile::setPermissions(file, QFileDevice::Permissions()));
        } else {
            QVERIFY(copyTone(QFileInfo(file).suffix(), file));
            QByteArray bytes = readFile(file);
            if (kind == "truncated")
                bytes.truncate(bytes.size() / 3);
            for (qsizetype i = 7; kind == "flipped" && i < bytes.size(); i += 61)
                bytes[i] = char(bytes[i] ^ 0x5a);
            QVERIFY(writeFile(file, bytes));
        }

        // Through the pool, so that a read that blocks shows as a timeout rather than a stuck test.
        const auto load = [&](const std::optional<PlaylistEntry>& hint) {
            QFuture<Track> loading = MetadataLoader::loadTrack(urlOf(file), hint);
            return QTest::qWaitFor([&] { return loading.isFinished(); }, 10000) ? loading.result() : Track{};
        };
        const Track hinted = load(PlaylistEntry{urlOf(file), {}, {}, 99.0});
        QVERIFY(!hinted.isMissing);
        QVERIFY(std::isfinite(hinted.duration) && hinted.duration > 0);
        const Track bare = load(std::nullopt);
        QVERIFY(std::isfinite(bare.duration) && bare.duration >= 0);
        if (unreadable) {
            QCOMPARE(hinted.duration, 99.0);
            QCOMPARE(bare.duration, 0.0);
            QCOMPARE(textFields(hinted), "song|||||||");
            QVERIFY(!hinted.artwork);
            QCOMPARE(MetadataLoader::loadExtendedTags(urlOf(file)).result(), ExtendedTags{});
        }
        if (kind == "no-permission")
            QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    void readsFileNamesThatAreNotUtf8() {
        QVERIFY(copyTone("mp3", path("raw-names/tone.mp3")));
        const QByteArray rawName =
            QFile::encodeName(path("raw-names")) + "/caf\xe9 \xff.mp3"; // invalid UTF-8
        QCOMPARE(::rename(QFile::encodeName(path("raw-names/tone.mp3")).constData(), rawName.constData()), 0);
        const Track track =
            MetadataLoader::loadTrackNow(QUrl::fromEncoded("file://" + rawName.toPercentEncoding("/")));
        ::unlink(rawName.constData()); // the temporary folder's cleanup cannot name it
        QVERIFY(!track.isMissing);
        QCOMPARE(track.title, QString::fromUtf8("caf\uFFFD \uFFFD"));
        QVERIFY(track.duration > 0.5);
    }

    // Files other tools wrote: ID3v2.2 and APE tags, which nothing here can write, and damaged files.
    void readsCorpusFiles_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected"); // as textFields; "*" skips a field, empty skips all
        QTest::addColumn<bool>("embedsArtwork");
        QTest::addRow("id3v2.2") << "mutagen/tests/data/id3v22-test.mp3"
                                 << "cosmic american|Anais Mitchell|Hymns for the Exiled||3/11|2004||"
                                    "Waterbug Records, www.anaismitchell.com"
                                 << false;
        QTest::addRow("id3v2.2 picture")
            << "taglib/tests/data/itunes10.mp3"
            << "iTunes10MP3|Artist|Album|Album Artist|1/10|2011|Heavy Metal|Comments" << true;
        QTest::addRow("ape then id3v1") << "taglib/tests/data/ape-id3v1.mp3"
                                        << "Title|*|*|*|*|*|*|*" << false;
        for (const char* other :
             {"mutagen/tests/data/emptyfile.mp3", "mutagen/tests/data/too-short.mp3",
              "taglib/tests/data/excessive_alloc.mp3", "taglib/tests/data/compressed_id3_frame.mp3",
              "taglib/tests/data/extended-header.mp3", "taglib/tests/data/garbage.mp3",
              "mutagen/tests/data/audacious-trailing-id32-id31.mp3",
              "mutagen/tests/data/audacious-trailing-id32-apev2.mp3", "mutagen/tests/data/apev2-lyricsv2.mp3",
              "taglib/tests/data/duplicate_tags.wav", "taglib/tests/data/rare_frames.mp3",
              "taglib/tests/data/duplicate_id3v2.mp3", "mutagen/tests/data/bad-TYER-frame.mp3",
              "mutagen/tests/data/id3v1v2-combined.mp3", "mutagen/tests/data/has-tags.m4a"})
            QTest::addRow("%s", other) << other << QString() << false;
    }
    void readsCorpusFiles() {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        const QString local = fixtures::corpusFile(file);
        if (local.isEmpty())
            QSKIP("the shared corpus is not beside the checkout");
        const Track track = loadWith(local, FileMetadataReader());
        const QStringList read = textFields(track).split(u'|');
        const QStringList wanted = expected.split(u'|');
        for (qsizetype i = 0; !expected.isEmpty() && i < wanted.size(); ++i) {
            if (wanted[i] != "*")
                QCOMPARE(read[i], wanted[i]);
        }
        QVERIFY(!track.isMissing);
        QVERIFY(std::isfinite(track.duration) && track.duration >= 0);
        QFETCH(bool, embedsArtwork);
        if (embedsArtwork)
            QCOMPARE(track.artworkSource, ArtworkSource::embedded());
    }
};

QTEST_GUILESS_MAIN(MetadataLoaderTest)
#include "metadata_loader_test.moc"

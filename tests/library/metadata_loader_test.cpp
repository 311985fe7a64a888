#include "library/FileMetadataReader.h"
#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "support/Fixtures.h"
#include "tags/FolderArtworkCache.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <limits>

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
    return CommonItem{key, std::move(value), std::nullopt};
}

MetadataItem item(const QString& identifier, std::optional<QString> value,
                  std::optional<QString> number = {}) {
    return MetadataItem{identifier, std::move(value), std::move(number)};
}

QByteArray jpeg(Qt::GlobalColor color, int side = 16) {
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
    const fixtures::ToolResult result =
        fixtures::run(fixtures::systemPython(), {"-c", prelude + script, path, imagePath});
    if (result.exitCode != 0)
        qWarning() << result.err;
    return result.exitCode == 0;
}

// Title, artist, album, album artist, track number, year, genre and comment.
QStringList textFields(const Track& track) {
    return {track.title,       track.artist, track.album, track.albumArtist,
            track.trackNumber, track.year,   track.genre, track.comment};
}

QUrl urlOf(const QString& path) {
    return QUrl::fromLocalFile(path);
}

} // namespace

class MetadataLoaderTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    FolderArtworkCache m_noFolderArtwork; // tests that need folder artwork make their own

    QString path(const QString& name) const { return m_dir.filePath(name); }

    // A copy of a one-second untagged tone of the given extension, made once per extension.
    bool copyTone(const QString& extension, const QString& destination) {
        const QString source = path("tones/tone." + extension);
        if (!QFileInfo::exists(source) &&
            !(QDir().mkpath(path("tones")) &&
              fixtures::makeAudio(source, 1.0, {"-map_metadata", "-1", "-fflags", "+bitexact"})))
            return false;
        return QFile::copy(source, destination);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        if (!fixtures::haveTool("ffmpeg"))
            QSKIP("ffmpeg is needed to make audio files");
    }

    void playableExtensions_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("playable");
        for (const char* extension : {"mp3", "m4a", "m4b", "aac", "adts", "aif", "aiff", "aifc", "wav", "caf",
                                      "flac", "alac", "mp4", "au", "snd"})
            QTest::addRow("%s", extension) << QStringLiteral("song.%1").arg(extension) << true;
        QTest::addRow("upper case") << "SONG.MP3" << true;
        QTest::addRow("mixed case") << "Song.FlaC" << true;
        QTest::addRow("two dots") << "01. Intro.m4a" << true;
        QTest::addRow("ogg") << "song.ogg" << false;
        QTest::addRow("playlist") << "list.m3u" << false;
        QTest::addRow("no extension") << "mp3" << false;
        QTest::addRow("extension as prefix") << "song.mp3.txt" << false;
    }
    void playableExtensions() {
        QFETCH(QString, name);
        QFETCH(bool, playable);
        QCOMPARE(MetadataLoader::playableExtensions().size(), 15);
        QCOMPARE(MetadataLoader::isPlayable(QUrl::fromLocalFile("/music/" + name)), playable);
    }

    void normalizesGenres_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        struct Row {
            const char* name;
            const char* text;
            const char* expected;
        };
        const Row rows[] = {
            {"code", "(9)", "Metal"},
            {"last code", "(79)", "Hard Rock"},
            {"refinement wins", "(9)Heavy", "Heavy"},
            {"refinement trimmed", "(17) \tRock n Roll\t ", "Rock n Roll"},
            {"only blanks after", "(17) \t", "Rock"},
            {"plus sign", "(+17)", "Rock"},
            {"minus zero", "(-0)", "Blues"},
            {"leading zeros", "(0017)", "Rock"},
            {"negative", "(-1)", "(-1)"},
            {"past the table", "(80)", "(80)"},
            {"huge", "(99999999999999999999)", "(99999999999999999999)"},
            {"letters", "(abc)", "(abc)"},
            {"empty parentheses", "()", "()"},
            {"sign only", "(+)", "(+)"},
            {"inner blanks", "( 9)", "( 9)"},
            {"plain name", "Rock", "Rock"},
            {"no closing", "(9", "(9"},
            {"not at start", "Rock (9)", "Rock (9)"},
            {"empty", "", ""},
            {"newline is kept", "(9)\n", "\n"},
        };
        for (const Row& row : rows)
            QTest::addRow("%s", row.name) << QString::fromUtf8(row.text) << QString::fromUtf8(row.expected);
    }
    void normalizesGenres() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(MetadataLoader::normalizedGenre(text), expected);
    }

    // The loader's rules over a reader that says exactly what a test wants.
    void sortsCommonItemsIntoSlots() {
        AssetMetadata metadata;
        metadata.readable = true;
        metadata.duration = 12;
        const QByteArray cover = jpeg(Qt::red);
        metadata.commonItems = {text(CommonKey::Title, "First"),
                                text(CommonKey::Title, std::nullopt),
                                text(CommonKey::Artist, "Artist"),
                                text(CommonKey::Creator, "Creator"),
                                text(CommonKey::Author, std::nullopt),
                                text(CommonKey::AlbumName, "Album"),
                                CommonItem{CommonKey::Artwork, std::nullopt, cover},
                                CommonItem{CommonKey::Artwork, std::nullopt, std::nullopt}};
        const QString file = path("slots.mp3");
        QVERIFY(writeFile(file, "x"));
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), std::nullopt, FakeReader(metadata), m_noFolderArtwork);
        QCOMPARE(track.title, "First");
        QCOMPARE(track.artist, "Creator");
        QCOMPARE(track.album, "Album");
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
        QTest::addColumn<double>("duration");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("artist");
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double infinity = std::numeric_limits<double>::infinity();
        QTest::addRow("file wins") << 12.0 << "Read" << true << 12.0 << "Read"
                                   << "Hint Artist";
        QTest::addRow("zero takes hint") << 0.0 << "" << true << 215.0 << "Hint Title"
                                         << "Hint Artist";
        QTest::addRow("nan takes hint") << nan << "" << true << 215.0 << "Hint Title"
                                        << "Hint Artist";
        QTest::addRow("negative takes hint") << -3.0 << "" << true << 215.0 << "Hint Title"
                                             << "Hint Artist";
        QTest::addRow("infinity without hint") << infinity << "" << false << 0.0 << "01 Intro"
                                               << "";
        QTest::addRow("no hint") << 0.0 << "" << false << 0.0 << "01 Intro"
                                 << "";
    }
    void fallsBackToHintAndFileName() {
        QFETCH(double, readDuration);
        QFETCH(QString, readTitle);
        QFETCH(bool, withHint);
        AssetMetadata metadata;
        metadata.readable = true;
        metadata.duration = readDuration;
        metadata.commonItems = {text(CommonKey::Title, readTitle)};
        const QString file = path("01 Intro.mp3");
        QVERIFY(writeFile(file, "x"));
        std::optional<PlaylistEntry> hint;
        if (withHint)
            hint = PlaylistEntry{urlOf(file), "Hint Title", "Hint Artist", 215.0};
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), hint, FakeReader(metadata), m_noFolderArtwork);
        QTEST(track.duration, "duration");
        QTEST(track.title, "title");
        QTEST(track.artist, "artist");
        QCOMPARE(track.artworkSource, ArtworkSource::none());
    }

    void searchesIdentifiersInPreferenceOrder_data() {
        namespace id = MetadataIdentifier;
        QTest::addColumn<QList<MetadataItem>>("items");
        QTest::addColumn<ExtendedTags>("expected");
        using Items = QList<MetadataItem>;
        QTest::addRow("band over album artist")
            << Items{item(id::iTunesAlbumArtist, "iTunes"), item(id::id3Band, "Band")}
            << ExtendedTags{"Band", {}, {}, {}, {}};
        QTest::addRow("album artist alone")
            << Items{item(id::iTunesAlbumArtist, "iTunes")} << ExtendedTags{"iTunes", {}, {}, {}, {}};
        QTest::addRow("recording time over year")
            << Items{item(id::id3Year, "1997"), item(id::id3RecordingTime, "2019-05-03")}
            << ExtendedTags{{}, {}, "2019", {}, {}};
        QTest::addRow("year over release date")
            << Items{item(id::iTunesReleaseDate, "2003-11-21T00:00:00Z"), item(id::id3Year, "97")}
            << ExtendedTags{{}, {}, "97", {}, {}};
        QTest::addRow("release date cut") << Items{item(id::iTunesReleaseDate, "2003-11-21T00:00:00Z")}
                                          << ExtendedTags{{}, {}, "2003", {}, {}};
        QTest::addRow("empty text goes on to the next item")
            << Items{item(id::id3TrackNumber, ""), item(id::id3TrackNumber, "3/12")}
            << ExtendedTags{{}, "3/12", {}, {}, {}};
        QTest::addRow("number value")
            << Items{item(id::iTunesTrackNumber, std::nullopt, "7")} << ExtendedTags{{}, "7", {}, {}, {}};
        QTest::addRow("item without values is skipped")
            << Items{item(id::id3TrackNumber, std::nullopt), item(id::iTunesTrackNumber, "4")}
            << ExtendedTags{{}, "4", {}, {}, {}};
        QTest::addRow("genre code normalized")
            << Items{item(id::iTunesUserGenre, "Pop"), item(id::id3ContentType, "(17)")}
            << ExtendedTags{{}, {}, {}, "Rock", {}};
        QTest::addRow("user genre over predefined")
            << Items{item(id::iTunesPredefinedGenre, "Jazz"), item(id::iTunesUserGenre, "Pop")}
            << ExtendedTags{{}, {}, {}, "Pop", {}};
        QTest::addRow("comment order")
            << Items{item(id::iTunesUserComment, "iTunes"), item(id::id3Comments, "first"),
                     item(id::id3Comments, "second")}
            << ExtendedTags{{}, {}, {}, {}, "first"};
        QTest::addRow("nothing") << Items{} << ExtendedTags{};
    }
    void searchesIdentifiersInPreferenceOrder() {
        QFETCH(QList<MetadataItem>, items);
        QFETCH(ExtendedTags, expected);
        AssetMetadata metadata;
        metadata.readable = true;
        metadata.items = items;
        const QString file = path("extended.mp3");
        QVERIFY(writeFile(file, "x"));
        const FakeReader reader(metadata);
        QCOMPARE(MetadataLoader::loadExtendedTagsNow(urlOf(file), reader), expected);
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), std::nullopt, reader, m_noFolderArtwork);
        QCOMPARE((ExtendedTags{track.albumArtist, track.trackNumber, track.year, track.genre, track.comment}),
                 expected);
    }

    void missingFileTakesTheHint() {
        // As read from "#EXTINF:215,Band - Song".
        const QUrl url = urlOf(path("gone/Song.mp3"));
        const Track track = MetadataLoader::loadTrackNow(url, PlaylistEntry{url, "Song", "Band", 215.0});
        QVERIFY(track.isMissing);
        QCOMPARE(track.title, "Song");
        QCOMPARE(track.artist, "Band");
        QCOMPARE(track.duration, 215.0);
        QCOMPARE(track.url, url);
        QCOMPARE(track.artworkSource, ArtworkSource::none());
        QVERIFY(!track.artwork);
        QVERIFY(!track.id.isNull());

        const Track bare = MetadataLoader::loadTrackNow(urlOf(path("gone/02 Outro.flac")));
        QVERIFY(bare.isMissing);
        QCOMPARE(bare.title, "02 Outro");
        QCOMPARE(bare.artist, "");
        QCOMPARE(bare.duration, 0.0);
        QVERIFY(bare.id != track.id);
        QCOMPARE(MetadataLoader::loadExtendedTagsNow(url), ExtendedTags{});
    }

    // Every playable extension, made by ffmpeg with its own metadata options.
    void loadsEveryExtension_data() {
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QStringList>("expected"); // title, artist, album, genre: what the format can keep
        const QStringList all = {"Made Title", "Made Artist", "Made Album", "Made Genre"};
        for (const char* extension : {"mp3", "m4a", "m4b", "mp4", "flac", "wav", "caf", "alac", "au", "snd"})
            QTest::addRow("%s", extension) << QString::fromLatin1(extension) << all;
        for (const char* extension : {"aac", "adts"})
            QTest::addRow("%s", extension)
                << QString::fromLatin1(extension) << QStringList{"Tone", "", "", ""};
        // AIFF's own name and author chunks; the author stands in for the artist.
        for (const char* extension : {"aif", "aiff", "aifc"})
            QTest::addRow("%s", extension)
                << QString::fromLatin1(extension) << QStringList{"Made Title", "Made Author", "", ""};
    }
    void loadsEveryExtension() {
        QFETCH(QString, extension);
        QFETCH(QStringList, expected);
        const QString file = path("every/Tone." + extension);
        QDir().mkpath(path("every"));
        QVERIFY(fixtures::makeAudio(file, 2.0,
                                    {"-metadata", "title=Made Title", "-metadata", "artist=Made Artist",
                                     "-metadata", "author=Made Author", "-metadata", "album=Made Album",
                                     "-metadata", "genre=Made Genre"}));
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), std::nullopt, FileMetadataReader(), m_noFolderArtwork);
        QVERIFY2(std::abs(track.duration - 2.0) < 0.25, qPrintable(QString::number(track.duration)));
        QVERIFY(!track.isMissing);
        QCOMPARE((QStringList{track.title, track.artist, track.album, track.genre}), expected);
    }

    // Tags written by mutagen, read back through the real reader.
    void readsTagsWrittenByMutagen_data() {
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("script");
        QTest::addColumn<QStringList>(
            "expected"); // title, artist, album, album artist, track, year, genre, comment
        QTest::addColumn<bool>("embedsArtwork");
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
        const QStringList all = {"Title", "Artist", "Album", "Band", "3/12", "2019", "Rock", "Comment"};
        QTest::addRow("mp3 id3v2.4")
            << "mp3"
            << "t = ID3()\n" + id3Frames +
                   "t.add(TDRC(encoding=3, text='2019-05-03'))\nt.add(TCON(encoding=3, text='(17)'))\n"
                   "t.save(p, v2_version=4)\n"
            << all << true;
        QTest::addRow("mp3 id3v2.3")
            << "mp3"
            << "t = ID3()\n" + id3Frames +
                   "t.add(TYER(encoding=1, text='2019'))\nt.add(TCON(encoding=1, text='(17)'))\n"
                   "t.save(p, v2_version=3)\n"
            << all << true;
        QTest::addRow("mp3 recording time over year, refined genre")
            << "mp3"
            << "t = ID3()\nt.add(TYER(encoding=3, text='1997'))\nt.add(TDRC(encoding=3, text='2003-11-21'))\n"
               "t.add(TCON(encoding=3, text='(9)Heavy'))\nt.save(p, v2_version=4)\n"
            << QStringList{"Tone", "", "", "", "", "2003", "Heavy", ""} << false;
        QTest::addRow("mp3 id3v1 only")
            << "mp3"
            << "t = ID3()\nt.add(TIT2(encoding=3, text='Old Title'))\nt.add(TPE1(encoding=3, text='Old "
               "Artist'))\n"
               "t.add(TALB(encoding=3, text='Old Album'))\nt.add(TDRC(encoding=3, text='1984'))\n"
               "t.add(TRCK(encoding=3, text='7'))\nt.add(TCON(encoding=3, text='Jazz'))\n"
               "t.save(p, v1=2)\nfrom mutagen.id3 import delete\ndelete(p, delete_v1=False, delete_v2=True)\n"
            << QStringList{"Old Title", "Old Artist", "Old Album", "", "7", "1984", "Jazz", ""} << false;
        const QString mp4Atoms =
            QStringLiteral("f = MP4(p)\n"
                           "f['\\xa9nam'] = 'Title'\n"
                           "f['\\xa9ART'] = 'Artist'\n"
                           "f['\\xa9alb'] = 'Album'\n"
                           "f['aART'] = 'Band'\n"
                           "f['trkn'] = [(3, 12)]\n"
                           "f['\\xa9day'] = '2019-05-03T00:00:00Z'\n"
                           "f['\\xa9gen'] = 'Rock'\n"
                           "f['\\xa9cmt'] = 'Comment'\n"
                           "f['covr'] = [MP4Cover(img, imageformat=MP4Cover.FORMAT_JPEG)]\n"
                           "f.save()\n");
        for (const char* extension : {"m4a", "m4b", "mp4"})
            QTest::addRow("%s atoms", extension) << extension << mp4Atoms << all << true;
        QTest::addRow("m4a author only") << "m4a"
                                         << "f = MP4(p)\nf['\\xa9aut'] = 'Author'\nf.save()\n"
                                         << QStringList{"Tone", "Author", "", "", "", "", "", ""} << false;
        QTest::addRow("m4a track without total") << "m4a"
                                                 << "f = MP4(p)\nf['trkn'] = [(5, 0)]\nf.save()\n"
                                                 << QStringList{"Tone", "", "", "", "5", "", "", ""} << false;
        const QString vorbis =
            QStringLiteral("f = FLAC(p)\n"
                           "f['TITLE'] = 'Title'\n"
                           "f['artist'] = 'Artist'\n"
                           "f['ALBUM'] = 'Album'\n"
                           "f['ALBUMARTIST'] = 'Band'\n"
                           "f['TRACKNUMBER'] = '3/12'\n"
                           "f['DATE'] = '2019-05-03'\n"
                           "f['GENRE'] = '(17)'\n"
                           "f['COMMENT'] = 'Comment'\n"
                           "pic = Picture()\npic.type = 3\npic.mime = 'image/jpeg'\npic.data = img\n");
        QTest::addRow("flac picture block") << "flac" << vorbis + "f.add_picture(pic)\nf.save()\n"
                                            << all << true;
        QTest::addRow("flac picture comment")
            << "flac"
            << vorbis + "f['METADATA_BLOCK_PICTURE'] = base64.b64encode(pic.write()).decode()\nf.save()\n"
            << all << true;
        QTest::addRow("flac author only") << "flac"
                                          << "f = FLAC(p)\nf['AUTHOR'] = 'Author'\nf.save()\n"
                                          << QStringList{"Tone", "Author", "", "", "", "", "", ""} << false;
        QTest::addRow("flac artist wins over author")
            << "flac"
            << "f = FLAC(p)\nf['AUTHOR'] = 'Author'\nf['ARTIST'] = 'Artist'\nf.save()\n"
            << QStringList{"Tone", "Artist", "", "", "", "", "", ""} << false;
        const QString chunkTag =
            id3Frames + "t.add(TDRC(encoding=3, text='2019'))\nt.add(TCON(encoding=3, text='Rock'))\n"
                        "f.save()\n";
        QTest::addRow("wav id3 chunk") << "wav"
                                       << "f = WAVE(p)\nf.add_tags()\nt = f.tags\n" + chunkTag << all << true;
        for (const char* extension : {"aif", "aiff", "aifc"})
            QTest::addRow("%s id3 chunk", extension)
                << extension << "f = AIFF(p)\nf.add_tags()\nt = f.tags\n" + chunkTag << all << true;
    }
    void readsTagsWrittenByMutagen() {
        QFETCH(QString, extension);
        QFETCH(QString, script);
        QFETCH(QStringList, expected);
        QFETCH(bool, embedsArtwork);
        const QString folder = path(QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_'));
        QVERIFY(QDir().mkpath(folder));
        const QString file = folder + "/Tone." + extension;
        const QString cover = folder + "/embedded.jpg.bin"; // not an image name the folder search looks at
        QVERIFY(writeFile(cover, jpeg(Qt::blue)));
        QVERIFY(copyTone(extension, file));
        QVERIFY(tagWithMutagen(file, script, cover));

        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), std::nullopt, FileMetadataReader(), m_noFolderArtwork);
        const QStringList read = textFields(track);
        QCOMPARE(read, expected);
        QVERIFY2(std::abs(track.duration - 1.0) < 0.2, qPrintable(QString::number(track.duration)));
        if (embedsArtwork) {
            QCOMPARE(track.artwork, std::optional<QByteArray>(readFile(cover)));
            QCOMPARE(track.artworkSource, ArtworkSource::embedded());
        } else {
            QVERIFY(!track.artwork);
        }
        const ExtendedTags tags = MetadataLoader::loadExtendedTags(urlOf(file)).result();
        QCOMPARE((QStringList{tags.albumArtist, tags.trackNumber, tags.year, tags.genre, tags.comment}),
                 expected.mid(3));
    }

    void usesFolderArtworkWithoutEmbeddedArtwork() {
        const QString folder = path("folder-art");
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(copyTone("mp3", folder + "/Plain.mp3"));
        QVERIFY(writeFile(folder + "/cover.jpg", jpeg(Qt::green, 64)));
        FolderArtworkCache cache;
        const Track track = MetadataLoader::loadTrackNow(urlOf(folder + "/Plain.mp3"), std::nullopt,
                                                         FileMetadataReader(), cache);
        QCOMPARE(track.artworkSource, ArtworkSource::folder(urlOf(folder + "/cover.jpg")));
        QCOMPARE(track.artworkSource.label(), "Folder: cover.jpg");
        QVERIFY(track.artwork && !QImage::fromData(*track.artwork).isNull());

        const Track second = MetadataLoader::loadTrackNow(urlOf(folder + "/Plain.mp3"), std::nullopt,
                                                          FileMetadataReader(), cache);
        QCOMPARE(second.artwork->constData(), track.artwork->constData());
    }

    void sharesIdenticalEmbeddedArtwork() {
        const QString folder = path("shared-art");
        QVERIFY(QDir().mkpath(folder));
        const QString cover = folder + "/cover.bin";
        QVERIFY(writeFile(cover, jpeg(Qt::yellow, 200)));
        QList<Track> tracks;
        for (int i = 0; i < 3; ++i) {
            const QString file = folder + QStringLiteral("/%1.mp3").arg(i);
            QVERIFY(copyTone("mp3", file));
            QVERIFY(tagWithMutagen(file,
                                   "t = ID3()\nt.add(APIC(encoding=3, mime='image/jpeg', type=3, data=img))\n"
                                   "t.save(p)\n",
                                   cover));
            tracks.append(MetadataLoader::loadTrack(urlOf(file)).result());
        }
        for (const Track& track : tracks) {
            QCOMPARE(track.artwork, std::optional<QByteArray>(readFile(cover)));
            QCOMPARE(track.artwork->constData(), tracks.front().artwork->constData());
        }
    }

    // Damaged, hostile or odd files give a track named after the file, never a crash or a hang.
    void survivesBadInput_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("unreadable"); // nothing in it reads as audio
        QTest::addRow("zero bytes") << "empty"
                                    << "song.mp3" << true;
        QTest::addRow("text named mp3") << "text"
                                        << "song.mp3" << true;
        QTest::addRow("text named caf") << "text"
                                        << "song.caf" << true;
        QTest::addRow("id3 size past the end") << "id3-past-end"
                                               << "song.mp3" << true;
        QTest::addRow("mp4 atom past the end") << "atom-past-end"
                                               << "song.m4a" << true;
        QTest::addRow("folder named mp3") << "folder"
                                          << "song.mp3" << true;
        QTest::addRow("fifo named mp3") << "fifo"
                                        << "song.mp3" << true;
        QTest::addRow("unreadable file") << "no-permission"
                                         << "song.mp3" << true;
        for (const char* extension : {"mp3", "m4a", "flac", "wav", "caf", "adts", "au"}) {
            QTest::addRow("truncated %s", extension)
                << "truncated" << QStringLiteral("song.%1").arg(extension) << false;
            QTest::addRow("bit flipped %s", extension)
                << "flipped" << QStringLiteral("song.%1").arg(extension) << false;
        }
    }
    void survivesBadInput() {
        QFETCH(QString, kind);
        QFETCH(QString, name);
        QFETCH(bool, unreadable);
        const QString folder = path("bad/" + QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_'));
        QVERIFY(QDir().mkpath(folder));
        const QString file = folder + "/" + name;
        if (kind == "empty") {
            QVERIFY(writeFile(file, {}));
        } else if (kind == "text") {
            QVERIFY(writeFile(file, QByteArray("just some words, not audio\n").repeated(200)));
        } else if (kind == "id3-past-end") {
            // A tag header claiming 256 MB, then a frame claiming more than the file holds.
            static const char tag[] = "ID3\x04\x00\x00\x7f\x7f\x7f\x7f"
                                      "TIT2\x7f\x7f\x7f\x7f\x00\x00\x03Title";
            QVERIFY(writeFile(file, QByteArray(tag, sizeof tag - 1)));
        } else if (kind == "atom-past-end") {
            // An MP4 whose movie atom claims 2 GB.
            static const char atoms[] = "\x00\x00\x00\x18"
                                        "ftypM4A \x00\x00\x00\x00"
                                        "M4A isom\x7f\xff\xff\xff"
                                        "moov\x7f\xff\xff\x00"
                                        "udta";
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
            if (kind == "truncated") {
                bytes.truncate(bytes.size() / 3);
            } else {
                for (qsizetype i = 7; i < bytes.size(); i += 61)
                    bytes[i] = char(bytes[i] ^ 0x5a);
            }
            QVERIFY(writeFile(file, bytes));
        }

        // Through the pool, so that a read that blocks shows as a timeout rather than a stuck test.
        QFuture<Track> loading =
            MetadataLoader::loadTrack(urlOf(file), PlaylistEntry{urlOf(file), {}, {}, 99.0});
        QTRY_VERIFY_WITH_TIMEOUT(loading.isFinished(), 10000);
        const Track hinted = loading.result();
        QVERIFY(!hinted.isMissing);
        QVERIFY(std::isfinite(hinted.duration) && hinted.duration > 0);
        if (unreadable) {
            QCOMPARE(hinted.duration, 99.0);
            QCOMPARE(hinted.title, "song");
            QCOMPARE(hinted.artist, "");
            QCOMPARE(hinted.album, "");
            QVERIFY(!hinted.artwork);
            QCOMPARE(MetadataLoader::loadExtendedTags(urlOf(file)).result(), ExtendedTags{});
        }
        QFuture<Track> bare = MetadataLoader::loadTrack(urlOf(file));
        QTRY_VERIFY_WITH_TIMEOUT(bare.isFinished(), 10000);
        QVERIFY(std::isfinite(bare.result().duration) && bare.result().duration >= 0);
        if (unreadable)
            QCOMPARE(bare.result().duration, 0.0);
        if (kind == "no-permission")
            QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    void readsFileNamesThatAreNotUtf8() {
        const QByteArray folder = QFile::encodeName(path("raw-names"));
        QVERIFY(QDir().mkpath(path("raw-names")));
        QVERIFY(copyTone("mp3", path("raw-names/tone.mp3")));
        const QByteArray rawName = folder + "/caf\xe9 \xff.mp3"; // Latin-1 bytes, invalid as UTF-8
        QCOMPARE(::rename(QFile::encodeName(path("raw-names/tone.mp3")).constData(), rawName.constData()), 0);
        const QUrl url = QUrl::fromEncoded("file://" + rawName.toPercentEncoding("/"));
        QVERIFY(url.isValid());
        const Track track = MetadataLoader::loadTrackNow(url);
        ::unlink(rawName.constData()); // the temporary folder's cleanup cannot name it
        QVERIFY(!track.isMissing);
        QCOMPARE(track.title, QString::fromUtf8("caf\uFFFD \uFFFD"));
        QVERIFY(track.duration > 0.5);
    }

    // Files other tools wrote, from the shared corpus.
    void readsCorpusFiles_data() {
        QTest::addColumn<QString>("file");
        // title, artist, album, album artist, track, year, genre, comment; "*" skips a field
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<bool>("embedsArtwork");
        QTest::addRow("id3v2.2") << "mutagen/tests/data/id3v22-test.mp3"
                                 << QStringList{"cosmic american",
                                                "Anais Mitchell",
                                                "Hymns for the Exiled",
                                                "",
                                                "3/11",
                                                "2004",
                                                "",
                                                "Waterbug Records, www.anaismitchell.com"}
                                 << false;
        QTest::addRow("id3v2.3 with id3v1")
            << "mutagen/tests/data/silence-44-s.mp3"
            << QStringList{"Silence", "*", "Quod Libet Test Data", "", "02/10", "2004", "Silence", "*"}
            << false;
        QTest::addRow("id3v1 only") << "mutagen/tests/data/silence-44-s-v1.mp3"
                                    << QStringList{"Silence",  "piman", "Quod Libet Test Data",
                                                   "",         "2",     "2004",
                                                   "Darkwave", ""}
                                    << false;
        QTest::addRow("id3v2.4 with id3v1 and iTunes comments")
            << "mutagen/tests/data/id3v1v2-combined.mp3"
            << QStringList{"cosmic american",
                           "Anais Mitchell",
                           "*",
                           "",
                           "3/11",
                           "2004",
                           "*",
                           "Waterbug Records, www.anaismitchell.com"}
            << false;
        QTest::addRow("iTunes 10 id3v2.2 picture")
            << "taglib/tests/data/itunes10.mp3"
            << QStringList{"iTunes10MP3", "Artist", "Album",       "Album Artist",
                           "1/10",        "2011",   "Heavy Metal", "Comments"}
            << true;
        QTest::addRow("two id3v2 tags")
            << "taglib/tests/data/duplicate_id3v2.mp3"
            << QStringList{"TitleXXXX", "ArtistXXXX", "AlbumXXXX", "", "", "", "", ""} << false;
        QTest::addRow("malformed TYER")
            << "mutagen/tests/data/bad-TYER-frame.mp3"
            << QStringList{"This track has an invalid TYER frame, that used to be able to break Mutagen",
                           "From 1.01 To 1.02",
                           "Splitted by Mp3Splt v. 2.1",
                           "",
                           "",
                           "*",
                           "",
                           "*"}
            << false;
        QTest::addRow("ape then id3v1") << "taglib/tests/data/ape-id3v1.mp3"
                                        << QStringList{"Title", "*", "*", "*", "*", "*", "*", "*"} << false;
        QTest::addRow("wav id3 chunk")
            << "mutagen/tests/data/silence-2s-PCM-16000-08-ID3v23.wav"
            << QStringList{"Silence", "piman / jzig", "Quod Libet Test Data", "", "02/10", "2004", "Silence",
                           ""}
            << true;
        QTest::addRow("aiff id3 chunk") << "mutagen/tests/data/with-id3.aif"
                                        << QStringList{"AIFF title", "", "", "", "", "", "", ""} << false;
        QTest::addRow("m4a without title")
            << "mutagen/tests/data/has-tags.m4a"
            << QStringList{"has-tags", "Test Artist", "", "", "", "", "", ""} << true;
        QTest::addRow("flac") << "mutagen/tests/data/silence-44-s.flac"
                              << QStringList{"Silence", "*", "Quod Libet Test Data", "", "02/10", "2004",
                                             "Silence", "*"}
                              << true;
        const QStringList anything(8, "*");
        for (const char* damaged :
             {"mutagen/tests/data/emptyfile.mp3", "mutagen/tests/data/too-short.mp3",
              "taglib/tests/data/excessive_alloc.mp3", "taglib/tests/data/compressed_id3_frame.mp3",
              "taglib/tests/data/extended-header.mp3", "taglib/tests/data/garbage.mp3",
              "mutagen/tests/data/audacious-trailing-id32-id31.mp3",
              "mutagen/tests/data/audacious-trailing-id32-apev2.mp3", "mutagen/tests/data/apev2-lyricsv2.mp3",
              "taglib/tests/data/duplicate_tags.wav", "taglib/tests/data/rare_frames.mp3"})
            QTest::addRow("%s", damaged) << damaged << anything << false;
    }
    void readsCorpusFiles() {
        QFETCH(QString, file);
        QFETCH(QStringList, expected);
        QFETCH(bool, embedsArtwork);
        const QString local = fixtures::corpusFile(file);
        if (local.isEmpty())
            QSKIP("the shared corpus is not beside the checkout");
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(local), std::nullopt, FileMetadataReader(), m_noFolderArtwork);
        const QStringList read = textFields(track);
        for (qsizetype i = 0; i < expected.size(); ++i) {
            if (expected[i] != "*")
                QCOMPARE(read[i], expected[i]);
        }
        QVERIFY(!track.isMissing);
        QVERIFY(std::isfinite(track.duration) && track.duration >= 0);
        if (embedsArtwork)
            QCOMPARE(track.artworkSource, ArtworkSource::embedded());
    }
};

QTEST_GUILESS_MAIN(MetadataLoaderTest)
#include "metadata_loader_test.moc"

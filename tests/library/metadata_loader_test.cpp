#include "library/FileMetadataReader.h"
#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "support/Fixtures.h"
#include "tags/FolderArtworkCache.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
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
    const QString prelude = QStringLiteral("import sys, base64\n"
                                           "from mutagen.id3 import *\n"
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
        QTest::addRow("code") << "(9)"
                              << "Metal";
        QTest::addRow("first code") << "(0)"
                                    << "Blues";
        QTest::addRow("last code") << "(79)"
                                   << "Hard Rock";
        QTest::addRow("alt rock") << "(40)"
                                  << "Alt. Rock";
        QTest::addRow("refinement wins") << "(9)Heavy"
                                         << "Heavy";
        QTest::addRow("refinement trimmed") << "(17) \tRock n Roll\t "
                                            << "Rock n Roll";
        QTest::addRow("only blanks after") << "(17) \t"
                                           << "Rock";
        QTest::addRow("plus sign") << "(+17)"
                                   << "Rock";
        QTest::addRow("minus zero") << "(-0)"
                                    << "Blues";
        QTest::addRow("leading zeros") << "(0017)"
                                       << "Rock";
        QTest::addRow("negative") << "(-1)"
                                  << "(-1)";
        QTest::addRow("past the table") << "(80)"
                                        << "(80)";
        QTest::addRow("far past") << "(999)"
                                  << "(999)";
        QTest::addRow("huge") << "(99999999999999999999)"
                              << "(99999999999999999999)";
        QTest::addRow("letters") << "(abc)"
                                 << "(abc)";
        QTest::addRow("empty parentheses") << "()"
                                           << "()";
        QTest::addRow("sign only") << "(+)"
                                   << "(+)";
        QTest::addRow("inner blanks") << "( 9)"
                                      << "( 9)";
        QTest::addRow("plain name") << "Rock"
                                    << "Rock";
        QTest::addRow("no closing") << "(9"
                                    << "(9";
        QTest::addRow("not at start") << "Rock (9)"
                                      << "Rock (9)";
        QTest::addRow("empty") << ""
                               << "";
        QTest::addRow("newline is kept") << "(9)\n"
                                         << "\n";
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
        QTest::addColumn<bool>("carriesTags"); // whether ffmpeg writes a title TagLib or FFmpeg reads back
        for (const char* extension : {"mp3", "m4a", "m4b", "mp4", "flac", "wav", "caf", "alac", "au", "snd"})
            QTest::addRow("%s", extension) << QString::fromLatin1(extension) << true;
        for (const char* extension : {"aac", "adts", "aif", "aiff", "aifc"})
            QTest::addRow("%s", extension) << QString::fromLatin1(extension) << false;
    }
    void loadsEveryExtension() {
        QFETCH(QString, extension);
        QFETCH(bool, carriesTags);
        const QString file = path("every/Tone." + extension);
        QDir().mkpath(path("every"));
        QVERIFY(fixtures::makeAudio(file, 2.0,
                                    {"-metadata", "title=Made Title", "-metadata", "artist=Made Artist",
                                     "-metadata", "album=Made Album", "-metadata", "genre=Made Genre"}));
        const Track track =
            MetadataLoader::loadTrackNow(urlOf(file), std::nullopt, FileMetadataReader(), m_noFolderArtwork);
        QVERIFY2(std::abs(track.duration - 2.0) < 0.25, qPrintable(QString::number(track.duration)));
        QVERIFY(!track.isMissing);
        QCOMPARE(track.title, carriesTags ? "Made Title" : "Tone");
        if (carriesTags) {
            QCOMPARE(track.artist, "Made Artist");
            QCOMPARE(track.album, "Made Album");
            QCOMPARE(track.genre, "Made Genre");
        }
    }
};

QTEST_GUILESS_MAIN(MetadataLoaderTest)
#include "metadata_loader_test.moc"

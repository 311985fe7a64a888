#include "tags/ID3TagWriter.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/ScratchMount.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mman.h>

namespace {

using fixtures::folderEntries;
using fixtures::readFile;
using fixtures::writeFile;

using Kind = ID3TagWriter::WriteError::Kind;

QByteArray bytes(std::initializer_list<int> values) {
    QByteArray result;
    for (const int value : values)
        result += char(value);
    return result;
}

// The four size bytes of an ID3v2 header, written out here independently of the writer.
QByteArray sizeBytes(quint32 n) {
    return bytes({int(n >> 21) & 0x7F, int(n >> 14) & 0x7F, int(n >> 7) & 0x7F, int(n) & 0x7F});
}

QByteArray id3Header(int version, int flags, quint32 size) {
    return "ID3" + bytes({version, 0, flags}) + sizeBytes(size);
}

QByteArray id3v1Trailer(const QByteArray& title) {
    QByteArray trailer = "TAG" + title;
    trailer.append(128 - trailer.size(), '\0');
    return trailer;
}

QByteArray padded(const QByteArray& text, int size) {
    return text + QByteArray(size - text.size(), '\0');
}

// MPEG audio without any tag, made once per program.
QByteArray plainAudio() {
    static QTemporaryDir dir;
    static const QByteArray audio = [] {
        const QString path = dir.filePath("plain.mp3");
        return fixtures::makeAudio(path, 1.0, {"-id3v2_version", "0", "-write_id3v1", "0"}) ? readFile(path)
                                                                                            : QByteArray();
    }();
    return audio;
}

MusicMetadata fullMetadata() {
    return MusicMetadata{" Café del Mar ", "Sigur Rós", "Ágætis byrjun", "Various Artists",
                         "3/12",           "1999",      "Jazz",          "Line one\nLine two"};
}

struct Written {
    std::optional<ID3TagWriter::WriteError> error;
    QByteArray before;
    QByteArray after;
};

Written runWriter(const QString& path, const std::optional<QByteArray>& artwork = std::nullopt) {
    Written result;
    result.before = readFile(path);
    result.error = ID3TagWriter::write(fullMetadata(), artwork, QUrl::fromLocalFile(path));
    result.after = readFile(path);
    return result;
}

QByteArray decodedAudioChecksum(const QString& path) {
    const fixtures::ToolResult result =
        fixtures::run("ffmpeg", {"-nostdin", "-v", "error", "-i", path, "-map", "0:a", "-c:a", "pcm_s16le",
                                 "-f", "md5", "-"});
    return result.exitCode == 0 ? result.out.trimmed() : QByteArray("ffmpeg failed: " + result.err);
}

} // namespace

class ID3TagWriterTest : public QObject {
    Q_OBJECT

private slots:

    void blankValuesGiveAnEmptyTag() {
        const QString blank = " \t\n\u00A0\u2028";
        const MusicMetadata metadata{blank, blank, blank, blank, blank, blank, blank, blank};

        QCOMPARE(ID3TagWriter::buildTag(metadata, std::nullopt), QByteArray("ID3\x04\0\0\0\0\0\0", 10));
        QCOMPARE(ID3TagWriter::buildTag(metadata, QByteArray()), QByteArray("ID3\x04\0\0\0\0\0\0", 10));
        QCOMPARE(ID3TagWriter::buildID3v1Tag(metadata), "TAG" + QByteArray(124, '\0') + bytes({255}));
    }

    void frameBytes_data() {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("text, trimmed, UTF-8")
            << ID3TagWriter::textFrame("TIT2", " Café\n")
            << "TIT2" + bytes({0, 0, 0, 6, 0, 0, 3}) + "Caf" + bytes({0xC3, 0xA9});
        QTest::addRow("comment") << ID3TagWriter::commentFrame("\tHi there ")
                                 << "COMM" + bytes({0, 0, 0, 13, 0, 0, 3}) + "eng" + bytes({0}) + "Hi there";
        QTest::addRow("picture") << ID3TagWriter::pictureFrame(bytes({0x89, 'P', 'N', 'G'}))
                                 << "APIC" + bytes({0, 0, 0, 17, 0, 0, 3}) + "image/png" + bytes({0, 3, 0}) +
                                        bytes({0x89, 'P', 'N', 'G'});
        // 200 bytes of body: the size needs two of the seven-bit bytes.
        QTest::addRow("syncsafe body size") << ID3TagWriter::frame("TXXX", QByteArray(200, 'x'))
                                            << "TXXX" + bytes({0, 0, 1, 0x48, 0, 0}) + QByteArray(200, 'x');
    }

    void frameBytes() {
        QFETCH(QByteArray, frame);
        QFETCH(QByteArray, expected);
        QCOMPARE(frame.toHex(' '), expected.toHex(' '));
    }

    void syncsafe() {
        QCOMPARE(ID3TagWriter::syncsafe(127).toHex(), bytes({0, 0, 0, 0x7F}).toHex());
        QCOMPARE(ID3TagWriter::syncsafe(300016).toHex(), bytes({0, 0x12, 0x27, 0x70}).toHex());
        QCOMPARE(ID3TagWriter::syncsafe((1 << 28) - 1).toHex(), bytes({0x7F, 0x7F, 0x7F, 0x7F}).toHex());
    }

    void imageMimeType_data() {
        QTest::addColumn<QByteArray>("image");
        QTest::addColumn<QByteArray>("mime");
        QTest::addRow("JPEG") << bytes({0xFF, 0xD8, 0xFF, 0xE1}) << QByteArray("image/jpeg");
        QTest::addRow("PNG") << bytes({0x89, 0x50, 0x4E, 0x47, 0x0D}) << QByteArray("image/png");
        QTest::addRow("PNG-like, four bytes") << bytes({0x89, 0x50, 0, 0}) << QByteArray("image/png");
        QTest::addRow("PNG start, too short") << bytes({0x89, 0x50, 0x4E}) << QByteArray("image/jpeg");
        QTest::addRow("GIF") << QByteArray("GIF89a") << QByteArray("image/jpeg");
    }

    void imageMimeType() {
        QFETCH(QByteArray, image);
        QFETCH(QByteArray, mime);
        QCOMPARE(ID3TagWriter::imageMimeType(image), mime);
    }

    void audioRange_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<qint64>("start");
        QTest::addColumn<qint64>("length"); // 0: no audio (start not compared)

        const QByteArray audio(1000, 'a');
        const QByteArray tag = id3Header(4, 0, 20) + QByteArray(20, 't');
        QTest::addRow("no tags") << audio << qint64(0) << qint64(1000);
        QTest::addRow("footer flag") << id3Header(4, 0x10, 20) + QByteArray(20, 't') + "3DI" +
                                            QByteArray(7, 0) + audio
                                     << qint64(40) << qint64(1000);
        QTest::addRow("extended header inside the size")
            << id3Header(4, 0x40, 26) + QByteArray(26, 'e') + audio << qint64(36) << qint64(1000);
        QTest::addRow("size bytes masked")
            << "ID3" + bytes({3, 0, 0, 0x80, 0x80, 0x80, 0x85}) + "12345" + audio << qint64(15)
            << qint64(1000);
        QTest::addRow("tag and trailer") << tag + audio + id3v1Trailer("t") << qint64(30) << qint64(1000);
        QTest::addRow("127 bytes beginning TAG") << "TAG" + QByteArray(124, 'x') << qint64(0) << qint64(127);
        QTest::addRow("9 bytes beginning ID3") << QByteArray("ID3\x04\0\0\0\0", 9) << qint64(0) << qint64(9);
        QTest::addRow("second tag kept as audio") << tag + tag + audio << qint64(30) << qint64(1030);
        QTest::addRow("empty file") << QByteArray() << qint64(0) << qint64(0);
        QTest::addRow("tag then trailer") << tag + id3v1Trailer("t") << qint64(0) << qint64(0);
        QTest::addRow("tag longer than the file") << id3Header(4, 0, 2000) + audio << qint64(0) << qint64(0);
        QTest::addRow("footer past the end") << id3Header(4, 0x10, 995) + audio << qint64(0) << qint64(0);
    }

    void audioRange() {
        QFETCH(QByteArray, data);
        QFETCH(qint64, start);
        QFETCH(qint64, length);
        const ID3TagWriter::Range range = ID3TagWriter::audioRange(data);
        QCOMPARE(range.length, length);
        if (length > 0)
            QCOMPARE(range.start, start);
    }

    void id3v1Layout() {
        const MusicMetadata metadata{"Title", "Artist",     "Album",     "Album Artist",
                                     "7",     "1997-05-01", "Hard Rock", "Note"};
        QCOMPARE(ID3TagWriter::buildID3v1Tag(metadata).toHex(' '),
                 ("TAG" + padded("Title", 30) + padded("Artist", 30) + padded("Album", 30) + "1997" +
                  padded("Note", 28) + bytes({0, 7, 79}))
                     .toHex(' '));
    }

    void latin1Field_data() {
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("decomposed letter") << "Cafe\u0301" << 4 << bytes({'C', 'a', 'f', 0xE9});
        QTest::addRow("outside Latin-1") << "東京 ŉ €" << 8 << QByteArray("?? ? ?\0\0", 8);
        QTest::addRow("one ? per character beyond the BMP") << "a😀b" << 4 << QByteArray("a?b\0", 4);
        QTest::addRow("trimmed") << "\u00A0 x\t\n" << 2 << QByteArray("x\0", 2);
        QTest::addRow("cut by bytes after conversion") << "ééééé" << 4 << bytes({0xE9, 0xE9, 0xE9, 0xE9});
    }

    void latin1Field() {
        QFETCH(QString, value);
        QFETCH(int, size);
        QFETCH(QByteArray, expected);
        QCOMPARE(ID3TagWriter::latin1Field(value, size).toHex(' '), expected.toHex(' '));
    }

    void trackByte_data() {
        QTest::addColumn<QString>("trackNumber");
        QTest::addColumn<int>("expected");
        QTest::addRow("3/12") << "3/12" << 3;
        QTest::addRow("plus sign") << "+9" << 9;
        QTest::addRow("0300 is over 255") << "0300" << 255;
        QTest::addRow("huge") << "99999999999999999999999" << 255;
        QTest::addRow("negative") << "-2" << 0;
        QTest::addRow("A1") << "A1" << 0;
        QTest::addRow("leading space") << " 3" << 0;
        QTest::addRow("empty pieces dropped") << "/5/" << 5;
        QTest::addRow("empty") << "" << 0;
        QTest::addRow("non-ASCII digits") << "\u0663" << 0;
    }

    void trackByte() {
        QFETCH(QString, trackNumber);
        QFETCH(int, expected);
        QCOMPARE(int(ID3TagWriter::trackByte(trackNumber)), expected);
    }

    void genreIndex_data() {
        QTest::addColumn<QString>("genre");
        QTest::addColumn<int>("expected");
        QTest::addRow("Blues") << "Blues" << 0;
        QTest::addRow("jazz in lower case") << "jazz" << 8;
        QTest::addRow("Alt. Rock") << "Alt. Rock" << 40;
        QTest::addRow("AlternRock") << "AlternRock" << 255;
        QTest::addRow("Gangsta alone") << "Gangsta" << 255;
        QTest::addRow("trimmed") << "\u2028 Hard Rock \t" << 79;
        QTest::addRow("numeric reference is not a name") << "(8)" << 255;
    }

    void genreIndex() {
        QFETCH(QString, genre);
        QFETCH(int, expected);
        QCOMPARE(int(ID3TagWriter::genreIndex(genre)), expected);
    }

    void rewriteKeepsTheAudio_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("prefix");
        QTest::addColumn<QByteArray>("suffix");

        // A v2.3 frame holding UTF-16 text, then the whole tag unsynchronised: every 0xFF gets a 0x00 after
        // it.
        QByteArray v23Frame = "TIT2" + bytes({0, 0, 0, 9, 0, 0, 1, 0xFF, 0xFE, 'O', 0, 'l', 0, 'd', 0});
        v23Frame.replace(QByteArray("\xFF"), QByteArray("\xFF\x00", 2));
        const QByteArray v24Body = bytes({0, 0, 0, 6, 1, 0}) + "TIT2" + bytes({0, 0, 0, 4, 0, 0, 3}) + "Old";
        const QByteArray v22Frame = "TT2" + bytes({0, 0, 4, 0}) + "Old";

        QTest::addRow("no tags, name in capitals") << "SONG.MP3" << QByteArray() << QByteArray();
        QTest::addRow("ID3v2.2 with padding")
            << "song.mp3"
            << id3Header(2, 0, quint32(v22Frame.size() + 100)) + v22Frame + QByteArray(100, '\0')
            << QByteArray();
        QTest::addRow("ID3v2.3 unsynchronised, ID3v1")
            << "song.mp3" << id3Header(3, 0x80, quint32(v23Frame.size())) + v23Frame << id3v1Trailer("Old");
        QTest::addRow("ID3v2.4 extended header and footer")
            << "song.mp3"
            << id3Header(4, 0x50, quint32(v24Body.size())) + v24Body + "3DI" + bytes({4, 0, 0x50}) +
                   sizeBytes(quint32(v24Body.size()))
            << QByteArray();
    }

    // The new file is the new tag, the old audio byte for byte and the new trailer; it decodes to the same
    // samples, and a second identical save changes nothing.
    void rewriteKeepsTheAudio() {
        QFETCH(QString, name);
        QFETCH(QByteArray, prefix);
        QFETCH(QByteArray, suffix);
        const QByteArray audio = plainAudio();
        if (audio.isEmpty())
            QSKIP("ffmpeg cannot make an MP3 here");
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        QVERIFY(writeFile(path, prefix + audio + suffix));
        const QByteArray decodedBefore = decodedAudioChecksum(path);
        const QByteArray artwork = "\xFF\xD8\xFF" + QByteArray(5000, 'j');

        const Written first = runWriter(path, artwork);

        QCOMPARE(first.error, std::nullopt);
        QVERIFY(first.after == *ID3TagWriter::buildTag(fullMetadata(), artwork) + audio +
                                   ID3TagWriter::buildID3v1Tag(fullMetadata()));
        QCOMPARE(decodedAudioChecksum(path), decodedBefore);
        const Written second = runWriter(path, artwork);
        QCOMPARE(second.error, std::nullopt);
        QVERIFY(second.after == first.after);
        QCOMPARE(folderEntries(dir.path()), QStringList{name});
    }

    void refusals_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<std::optional<QByteArray>>("contents"); // none: a folder of that name
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("sentence");
        const auto damaged = [](const QString& name) {
            return name +
                   " doesn't contain any audio data after its tag. It may be damaged; nothing was changed.";
        };
        QTest::addRow("other extension, in capitals")
            << "Song.FLAC" << std::optional<QByteArray>("not read") << int(Kind::NotMP3)
            << "Tag editing currently supports MP3 files only. This is a .flac file \u2014 its metadata can "
               "be "
               "viewed but not saved.";
        QTest::addRow("mp3 then another extension")
            << "song.mp3.bak" << std::optional<QByteArray>("x") << int(Kind::NotMP3)
            << "Tag editing currently supports MP3 files only. This is a .bak file \u2014 its metadata can "
               "be "
               "viewed but not saved.";
        QTest::addRow("folder named like a song")
            << "Ünïcode album.mp3" << std::optional<QByteArray>() << int(Kind::Unreadable)
            << "Couldn't read Ünïcode album.mp3.";
        QTest::addRow("zero bytes") << "empty.mp3" << std::optional<QByteArray>("") << int(Kind::NoAudioFound)
                                    << damaged("empty.mp3");
        QTest::addRow("tag claims more than the file")
            << "short.mp3" << std::optional<QByteArray>(id3Header(3, 0, 5000) + QByteArray(900, 'a'))
            << int(Kind::NoAudioFound) << damaged("short.mp3");
        QTest::addRow("nothing between tag and trailer")
            << "bare.mp3" << std::optional<QByteArray>(id3Header(4, 0, 4) + "abcd" + id3v1Trailer("x"))
            << int(Kind::NoAudioFound) << damaged("bare.mp3");
    }

    void refusals() {
        QFETCH(QString, name);
        QFETCH(std::optional<QByteArray>, contents);
        QFETCH(int, kind);
        QFETCH(QString, sentence);
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        QVERIFY(contents ? writeFile(path, *contents) : QDir(dir.path()).mkdir(name));

        const Written result = runWriter(path);

        QVERIFY(result.error);
        QCOMPARE(int(result.error->kind), kind);
        QCOMPARE(result.error->url, QUrl::fromLocalFile(path));
        QCOMPARE(result.error->description(), sentence);
        QVERIFY(result.after == result.before);
        QCOMPARE(folderEntries(dir.path()), QStringList{name});
    }

    // An image of 2^28 bytes cannot be described by a syncsafe size: refused, never written cut short.
    void oversizedArtworkIsRefused() {
        // Untouched pages of an anonymous read-only mapping cost no memory, so the test stays light.
        const qsizetype size = qsizetype(ID3TagWriter::syncsafeLimit);
        void* pages =
            ::mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        QVERIFY(pages != MAP_FAILED);
        const QByteArray huge = QByteArray::fromRawData(static_cast<const char*>(pages), size);
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        QVERIFY(writeFile(path, QByteArray(4000, 'a')));

        const Written result = runWriter(path, huge);
        const bool tagRefused = !ID3TagWriter::buildTag(MusicMetadata(), huge).has_value();
        ::munmap(pages, size_t(size));

        QVERIFY(tagRefused);
        QVERIFY(result.error);
        QCOMPARE(result.error->kind, Kind::TooLarge);
        QCOMPARE(
            result.error->description(),
            "The tags for song.mp3 would be larger than an MP3 tag can hold (256 MB); nothing was changed.");
        QVERIFY(result.after == result.before);
    }

    // A read-only folder and a full disk: the reason comes back and the file and its folder are untouched.
    void unwritable() {
        const QByteArray audio = plainAudio();
        if (audio.isEmpty())
            QSKIP("ffmpeg cannot make an MP3 here");
        const auto refused = [&](const QString& path, const QByteArray& artwork, int errorNumber) {
            const Written result = runWriter(path, artwork);
            QVERIFY(result.error);
            QCOMPARE(result.error->kind, Kind::Unwritable);
            QCOMPARE(result.error->description(),
                     QStringLiteral("Couldn't save song.mp3: %1.").arg(qt_error_string(errorNumber)));
            QVERIFY(result.after == audio);
            QCOMPARE(folderEntries(QFileInfo(path).path()), QStringList{"song.mp3"});
        };
        fixtures::LockedFolder folder;
        if (folder.isValid()) {
            QVERIFY(writeFile(folder.filePath("song.mp3"), audio));
            QVERIFY(folder.lock());
            refused(folder.filePath("song.mp3"), QByteArray(), folder.writeError());
        }
        fixtures::ScratchMount disk(audio.size() + 64 * 1024);
        if (!disk.isValid())
            QSKIP("cannot mount a small file system here");
        QVERIFY(writeFile(disk.filePath("song.mp3"), audio));
        refused(disk.filePath("song.mp3"), "\xFF\xD8\xFF" + QByteArray(256 * 1024, 'j'), ENOSPC);
    }
};

QTEST_GUILESS_MAIN(ID3TagWriterTest)
#include "id3_tag_writer_test.moc"

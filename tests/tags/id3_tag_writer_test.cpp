#include "tags/ID3TagWriter.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/ScratchMount.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using fixtures::folderEntries;
using fixtures::readFile;
using fixtures::writeFile;

using Kind = ID3TagWriter::WriteError::Kind;
using Range = ID3TagWriter::Range;

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

const QByteArray oldTrailer = "TAG" + QByteArray(125, 'o');

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

    // Frames, syncsafe sizes and picture types, byte for byte.
    void pieces_data() {
        QTest::addColumn<QByteArray>("actual");
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("text, trimmed, UTF-8")
            << ID3TagWriter::textFrame("TIT2", " Café\n")
            << "TIT2" + bytes({0, 0, 0, 6, 0, 0, 3}) + "Caf" + bytes({0xC3, 0xA9});
        QTest::addRow("comment") << ID3TagWriter::commentFrame("\tHi there ")
                                 << "COMM" + bytes({0, 0, 0, 13, 0, 0, 3}) + "eng" + bytes({0}) + "Hi there";
        QTest::addRow("picture") << ID3TagWriter::pictureFrame(bytes({0x89, 'P', 'N', 'G'}))
                                 << "APIC" + bytes({0, 0, 0, 17, 0, 0, 3}) + "image/png" + bytes({0, 3, 0}) +
                                        bytes({0x89, 'P', 'N', 'G'});
        QTest::addRow("frame of 200 bytes") << ID3TagWriter::frame("TXXX", QByteArray(200, 'x'))
                                            << "TXXX" + bytes({0, 0, 1, 0x48, 0, 0}) + QByteArray(200, 'x');
        QTest::addRow("syncsafe") << ID3TagWriter::syncsafe(300016) << bytes({0, 0x12, 0x27, 0x70});
        QTest::addRow("largest syncsafe")
            << ID3TagWriter::syncsafe((1 << 28) - 1) << bytes({0x7F, 0x7F, 0x7F, 0x7F});
        QTest::addRow("PNG needs four bytes")
            << ID3TagWriter::imageMimeType(bytes({0x89, 0x50, 0x4E})) << QByteArray("image/jpeg");
        QTest::addRow("GIF") << ID3TagWriter::imageMimeType("GIF89a") << QByteArray("image/jpeg");
    }
    void pieces() {
        QFETCH(QByteArray, actual);
        QFETCH(QByteArray, expected);
        QCOMPARE(actual.toHex(' '), expected.toHex(' '));
    }

    void audioRange_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<Range>("range");
        const QByteArray audio(1000, 'a');
        const QByteArray tag = id3Header(4, 0, 20) + QByteArray(20, 't');
        QTest::addRow("no tags") << audio << Range{0, 1000};
        QTest::addRow("footer flag") << id3Header(4, 0x10, 20) + QByteArray(20, 't') + "3DI" +
                                            QByteArray(7, 0) + audio
                                     << Range{40, 1000};
        QTest::addRow("size bytes masked")
            << "ID3" + bytes({3, 0, 0, 0x80, 0x80, 0x80, 0x85}) + "12345" + audio << Range{15, 1000};
        QTest::addRow("tag and trailer") << tag + audio + oldTrailer << Range{30, 1000};
        QTest::addRow("127 bytes beginning TAG") << "TAG" + QByteArray(124, 'x') << Range{0, 127};
        QTest::addRow("9 bytes beginning ID3") << QByteArray("ID3\x04\0\0\0\0", 9) << Range{0, 9};
        QTest::addRow("second tag kept as audio") << tag + tag + audio << Range{30, 1030};
        QTest::addRow("empty file") << QByteArray() << Range{};
        QTest::addRow("tag longer than the file") << id3Header(4, 0, 2000) + audio << Range{};
    }
    void audioRange() {
        QFETCH(QByteArray, data);
        QFETCH(Range, range);
        const Range found = ID3TagWriter::audioRange(data);
        QCOMPARE(found.start, range.start);
        QCOMPARE(found.length, range.length);
    }

    // The whole trailer; each row also pins one rule of the track byte and one of the genre byte.
    void id3v1Trailer_data() {
        QTest::addColumn<QString>("track");
        QTest::addColumn<QString>("genre");
        QTest::addColumn<int>("trackByte");
        QTest::addColumn<int>("genreByte");
        QTest::addRow("3/12, Hard Rock") << "3/12"
                                         << "Hard Rock" << 3 << 79;
        QTest::addRow("+9, jazz in lower case") << "+9"
                                                << "jazz" << 9 << 8;
        QTest::addRow("0300 is over 255, Alt. Rock") << "0300"
                                                     << "Alt. Rock" << 255 << 40;
        QTest::addRow("huge, AlternRock") << "99999999999999999999999"
                                          << "AlternRock" << 255 << 255;
        QTest::addRow("negative, Gangsta alone") << "-2"
                                                 << "Gangsta" << 0 << 255;
        QTest::addRow("A1, trimmed Blues") << "A1"
                                           << "\u2028 Blues \t" << 0 << 0;
        QTest::addRow("leading space, numeric reference") << " 3"
                                                          << "(8)" << 0 << 255;
        QTest::addRow("empty pieces dropped, no genre") << "/5/"
                                                        << "" << 5 << 255;
        QTest::addRow("empty, Psychedelic") << ""
                                            << "Psychedelic" << 0 << 67;
        QTest::addRow("non-ASCII digit, Gangsta Rap") << "\u0663"
                                                      << "Gangsta Rap" << 0 << 59;
    }
    void id3v1Trailer() {
        QFETCH(QString, track);
        QFETCH(QString, genre);
        QFETCH(int, trackByte);
        QFETCH(int, genreByte);
        const MusicMetadata metadata{"Title", "Artist",     "Album", "Album Artist",
                                     track,   "1997-05-01", genre,   "Note"};
        QCOMPARE(ID3TagWriter::buildID3v1Tag(metadata).toHex(' '),
                 ("TAG" + padded("Title", 30) + padded("Artist", 30) + padded("Album", 30) + "1997" +
                  padded("Note", 28) + bytes({0, trackByte, genreByte}))
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

    void rewriteKeepsTheAudio_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("prefix");
        QTest::addColumn<QByteArray>("suffix");
        const QByteArray body = bytes({0, 0, 0, 6, 1, 0}) + "TIT2" + bytes({0, 0, 0, 4, 0, 0, 3}) + "Old";
        QTest::addRow("no tags, name in capitals") << "SONG.MP3" << QByteArray() << QByteArray();
        QTest::addRow("extended header, footer, trailer")
            << "song.mp3"
            << id3Header(4, 0x50, quint32(body.size())) + body + "3DI" + bytes({4, 0, 0x50}) +
                   sizeBytes(quint32(body.size()))
            << oldTrailer;
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
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("sentence");
        QTest::addRow("other extension, in capitals")
            << "song.mp3.FLAC" << std::optional<QByteArray>("not read") << Kind::NotMP3
            << "Tag editing currently supports MP3 files only. This is a .flac file \u2014 its metadata can "
               "be "
               "viewed but not saved.";
        QTest::addRow("folder named like a song") << "Ünïcode album.mp3" << std::optional<QByteArray>()
                                                  << Kind::Unreadable << "Couldn't read Ünïcode album.mp3.";
        QTest::addRow("only a header")
            << "bare.mp3" << std::optional<QByteArray>(id3Header(4, 0, 0)) << Kind::NoAudioFound
            << "bare.mp3 doesn't contain any audio data after its tag. It may be "
               "damaged; nothing was changed.";
    }
    void refusals() {
        QFETCH(QString, name);
        QFETCH(std::optional<QByteArray>, contents);
        QFETCH(Kind, kind);
        QFETCH(QString, sentence);
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        QVERIFY(contents ? writeFile(path, *contents) : QDir(dir.path()).mkdir(name));

        const Written result = runWriter(path);

        QVERIFY(result.error);
        QCOMPARE(result.error->kind, kind);
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
        const auto unmap = qScopeGuard([&] { ::munmap(pages, size_t(size)); });
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        QVERIFY(writeFile(path, QByteArray(4000, 'a')));

        const Written result =
            runWriter(path, QByteArray::fromRawData(static_cast<const char*>(pages), size));

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
        const auto refused = [&](const QString& folder, const QByteArray& artwork, int errorNumber) {
            const Written result = runWriter(folder + "/song.mp3", artwork);
            QVERIFY(result.error);
            QCOMPARE(result.error->kind, Kind::Unwritable);
            QCOMPARE(result.error->description(),
                     QStringLiteral("Couldn't save song.mp3: %1.").arg(qt_error_string(errorNumber)));
            QVERIFY(result.after == audio);
            QCOMPARE(folderEntries(folder), QStringList{"song.mp3"});
        };
        // Root writes through permission bits, so as root the read-only folder is a read-only mount.
        std::optional<fixtures::ScratchMount> mount;
        if (::geteuid() == 0)
            mount.emplace(16 << 20);
        QTemporaryDir plain;
        const QString folder = mount ? mount->path() : plain.path();
        if (!mount || mount->isValid()) {
            QVERIFY(writeFile(folder + "/song.mp3", audio));
            QVERIFY(mount ? mount->setReadOnly(true) : ::chmod(QFile::encodeName(folder), 0555) == 0);
            const auto unlock = qScopeGuard([&] { ::chmod(QFile::encodeName(folder), 0755); });
            refused(folder, QByteArray(), mount ? EROFS : EACCES);
        }
        fixtures::ScratchMount disk(audio.size() + 64 * 1024);
        if (!disk.isValid())
            QSKIP("cannot mount a small file system here");
        QVERIFY(writeFile(disk.filePath("song.mp3"), audio));
        refused(disk.path(), "\xFF\xD8\xFF" + QByteArray(256 * 1024, 'j'), ENOSPC);
    }
};

QTEST_GUILESS_MAIN(ID3TagWriterTest)
#include "id3_tag_writer_test.moc"

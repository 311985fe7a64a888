#include "tags/ID3TagWriter.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/ScratchMount.h"

#include <QDir>
#include <QFile>
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

// The frame identifiers of a tag the writer built, in order, checking each frame's size on the way.
QStringList frameIds(const QByteArray& tag) {
    QStringList ids;
    qsizetype offset = 10;
    while (offset + 10 <= tag.size()) {
        const QByteArray size = tag.mid(offset + 4, 4);
        const qsizetype body = (qsizetype(size[0]) << 21) | (qsizetype(size[1]) << 14) |
                               (qsizetype(size[2]) << 7) | qsizetype(size[3]);
        ids += QString::fromLatin1(tag.mid(offset, 4));
        offset += 10 + body;
    }
    return offset == tag.size() ? ids : QStringList{"<frames overrun the tag>"};
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

Written runWriter(const QString& path, const MusicMetadata& metadata = fullMetadata(),
                  const std::optional<QByteArray>& artwork = std::nullopt) {
    Written result;
    result.before = readFile(path);
    result.error = ID3TagWriter::write(metadata, artwork, QUrl::fromLocalFile(path));
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
    void blankValuesGiveAnEmptyTag();
    void frameBytes_data();
    void frameBytes();
    void framesInTableOrder_data();
    void framesInTableOrder();
    void syncsafe_data();
    void syncsafe();
    void imageMimeType_data();
    void imageMimeType();
    void audioRange_data();
    void audioRange();
    void id3v1Layout();
    void latin1Field_data();
    void latin1Field();
    void trackByte_data();
    void trackByte();
    void genreIndex_data();
    void genreIndex();

    void rewriteKeepsTheAudio_data();
    void rewriteKeepsTheAudio();
    void extensionInCapitalsIsAccepted();
    void refusedFilesStayUntouched_data();
    void refusedFilesStayUntouched();
    void errorSentences_data();
    void errorSentences();
    void oversizedArtworkIsRefused();
    void readOnlyFolder();
    void fullDisk();
};

void ID3TagWriterTest::blankValuesGiveAnEmptyTag() {
    const QString blank = " \t\n\u00A0\u2028";
    const MusicMetadata metadata{blank, blank, blank, blank, blank, blank, blank, blank};

    QCOMPARE(ID3TagWriter::buildTag(metadata, std::nullopt), QByteArray("ID3\x04\0\0\0\0\0\0", 10));
    QCOMPARE(ID3TagWriter::buildTag(metadata, QByteArray()), QByteArray("ID3\x04\0\0\0\0\0\0", 10));
    QCOMPARE(ID3TagWriter::buildID3v1Tag(metadata), "TAG" + QByteArray(124, '\0') + bytes({255}));
}

void ID3TagWriterTest::frameBytes_data() {
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("expected");

    QTest::addRow("text, trimmed, UTF-8")
        << ID3TagWriter::textFrame("TIT2", " Café\n")
        << "TIT2" + bytes({0, 0, 0, 6, 0, 0, 3}) + "Caf" + bytes({0xC3, 0xA9});
    QTest::addRow("text as typed") << ID3TagWriter::textFrame("TRCK", "3/12")
                                   << "TRCK" + bytes({0, 0, 0, 5, 0, 0, 3}) + "3/12";
    QTest::addRow("blank text") << ID3TagWriter::textFrame("TPE1", "  ") << QByteArray();
    QTest::addRow("comment") << ID3TagWriter::commentFrame("\tHi there ")
                             << "COMM" + bytes({0, 0, 0, 13, 0, 0, 3}) + "eng" + bytes({0}) + "Hi there";
    QTest::addRow("blank comment") << ID3TagWriter::commentFrame("\r\n") << QByteArray();
    QTest::addRow("png picture") << ID3TagWriter::pictureFrame(bytes({0x89, 'P', 'N', 'G'}))
                                 << "APIC" + bytes({0, 0, 0, 17, 0, 0, 3}) + "image/png" + bytes({0, 3, 0}) +
                                        bytes({0x89, 'P', 'N', 'G'});
    QTest::addRow("jpeg picture") << ID3TagWriter::pictureFrame(bytes({0xFF, 0xD8, 0xFF, 0xE0, 1}))
                                  << "APIC" + bytes({0, 0, 0, 19, 0, 0, 3}) + "image/jpeg" +
                                         bytes({0, 3, 0}) + bytes({0xFF, 0xD8, 0xFF, 0xE0, 1});
    QTest::addRow("no picture") << ID3TagWriter::pictureFrame(std::nullopt) << QByteArray();
    QTest::addRow("empty picture") << ID3TagWriter::pictureFrame(QByteArray()) << QByteArray();
    // 200 bytes of body: the size needs two of the seven-bit bytes.
    QTest::addRow("syncsafe body size") << ID3TagWriter::frame("TXXX", QByteArray(200, 'x'))
                                        << "TXXX" + bytes({0, 0, 1, 0x48, 0, 0}) + QByteArray(200, 'x');
}

void ID3TagWriterTest::frameBytes() {
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, expected);
    QCOMPARE(frame.toHex(' '), expected.toHex(' '));
}

void ID3TagWriterTest::framesInTableOrder_data() {
    QTest::addColumn<MusicMetadata>("metadata");
    QTest::addColumn<bool>("withArtwork");
    QTest::addColumn<QStringList>("ids");
    QTest::addRow("everything") << fullMetadata() << true
                                << QStringList{"TIT2", "TPE1", "TALB", "TPE2", "TRCK",
                                               "TDRC", "TCON", "COMM", "APIC"};
    QTest::addRow("year and comment")
        << MusicMetadata{"", "", "", "", "", "1997", "", "note"} << false << QStringList{"TDRC", "COMM"};
    QTest::addRow("album artist and cover")
        << MusicMetadata{"", " ", "", "VA", "", "", "", ""} << true << QStringList{"TPE2", "APIC"};
}

void ID3TagWriterTest::framesInTableOrder() {
    QFETCH(MusicMetadata, metadata);
    QFETCH(bool, withArtwork);
    QFETCH(QStringList, ids);
    const std::optional<QByteArray> artwork =
        withArtwork ? std::optional(QByteArray("\xFF\xD8\xFF") + QByteArray(300, 'j')) : std::nullopt;

    const std::optional<QByteArray> tag = ID3TagWriter::buildTag(metadata, artwork);

    QVERIFY(tag);
    QCOMPARE(tag->left(6), QByteArray("ID3\x04\0\0", 6));
    QCOMPARE(tag->mid(6, 4).toHex(), sizeBytes(quint32(tag->size() - 10)).toHex());
    QCOMPARE(frameIds(*tag), ids);
}

void ID3TagWriterTest::syncsafe_data() {
    QTest::addColumn<quint32>("n");
    QTest::addColumn<QByteArray>("expected");
    QTest::addRow("0") << 0u << bytes({0, 0, 0, 0});
    QTest::addRow("127") << 127u << bytes({0, 0, 0, 0x7F});
    QTest::addRow("128") << 128u << bytes({0, 0, 1, 0});
    QTest::addRow("255") << 255u << bytes({0, 0, 1, 0x7F});
    QTest::addRow("16384") << 16384u << bytes({0, 1, 0, 0});
    QTest::addRow("300016") << 300016u << bytes({0, 0x12, 0x27, 0x70});
    QTest::addRow("2^28 - 1") << quint32((1 << 28) - 1) << bytes({0x7F, 0x7F, 0x7F, 0x7F});
}

void ID3TagWriterTest::syncsafe() {
    QFETCH(quint32, n);
    QFETCH(QByteArray, expected);
    QCOMPARE(ID3TagWriter::syncsafe(n).toHex(), expected.toHex());
}

void ID3TagWriterTest::imageMimeType_data() {
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QByteArray>("mime");
    QTest::addRow("JPEG") << bytes({0xFF, 0xD8, 0xFF, 0xE1}) << QByteArray("image/jpeg");
    QTest::addRow("PNG") << bytes({0x89, 0x50, 0x4E, 0x47, 0x0D}) << QByteArray("image/png");
    QTest::addRow("PNG-like, four bytes") << bytes({0x89, 0x50, 0, 0}) << QByteArray("image/png");
    QTest::addRow("PNG start, too short") << bytes({0x89, 0x50, 0x4E}) << QByteArray("image/jpeg");
    QTest::addRow("GIF") << QByteArray("GIF89a") << QByteArray("image/jpeg");
    QTest::addRow("unknown") << QByteArray("hello") << QByteArray("image/jpeg");
    QTest::addRow("JPEG start, short") << bytes({0xFF, 0xD8}) << QByteArray("image/jpeg");
}

void ID3TagWriterTest::imageMimeType() {
    QFETCH(QByteArray, image);
    QFETCH(QByteArray, mime);
    QCOMPARE(ID3TagWriter::imageMimeType(image), mime);
}

void ID3TagWriterTest::audioRange_data() {
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("length");

    const QByteArray audio(1000, 'a');
    const QByteArray tag = id3Header(4, 0, 20) + QByteArray(20, 't');
    QTest::addRow("no tags") << audio << qint64(0) << qint64(1000);
    QTest::addRow("leading tag") << tag + audio << qint64(30) << qint64(1000);
    QTest::addRow("version bytes not examined")
        << id3Header(2, 0, 20) + QByteArray(20, 't') + audio << qint64(30) << qint64(1000);
    QTest::addRow("footer flag") << id3Header(4, 0x10, 20) + QByteArray(20, 't') + "3DI" + QByteArray(7, 0) +
                                        audio
                                 << qint64(40) << qint64(1000);
    QTest::addRow("extended header inside the size")
        << id3Header(4, 0x40, 26) + QByteArray(26, 'e') + audio << qint64(36) << qint64(1000);
    QTest::addRow("size bytes masked")
        << "ID3" + bytes({3, 0, 0, 0x80, 0x80, 0x80, 0x85}) + "12345" + audio << qint64(15) << qint64(1000);
    QTest::addRow("trailer") << audio + id3v1Trailer("t") << qint64(0) << qint64(1000);
    QTest::addRow("tag and trailer") << tag + audio + id3v1Trailer("t") << qint64(30) << qint64(1000);
    QTest::addRow("TAG not 128 from the end") << audio + "TAG" << qint64(0) << qint64(1003);
    QTest::addRow("127 bytes beginning TAG") << "TAG" + QByteArray(124, 'x') << qint64(0) << qint64(127);
    QTest::addRow("9 bytes beginning ID3") << QByteArray("ID3\x04\0\0\0\0", 9) << qint64(0) << qint64(9);
    QTest::addRow("second tag kept as audio") << tag + tag + audio << qint64(30) << qint64(1030);
    QTest::addRow("empty file") << QByteArray() << qint64(0) << qint64(0);
    QTest::addRow("header only") << id3Header(4, 0, 0) << qint64(0) << qint64(0);
    QTest::addRow("trailer only") << id3v1Trailer("t") << qint64(0) << qint64(0);
    QTest::addRow("tag then trailer") << tag + id3v1Trailer("t") << qint64(0) << qint64(0);
    QTest::addRow("tag longer than the file") << id3Header(4, 0, 2000) + audio << qint64(0) << qint64(0);
    QTest::addRow("footer past the end") << id3Header(4, 0x10, 995) + audio << qint64(0) << qint64(0);
}

void ID3TagWriterTest::audioRange() {
    QFETCH(QByteArray, data);
    QFETCH(qint64, start);
    QFETCH(qint64, length);
    const ID3TagWriter::Range range = ID3TagWriter::audioRange(data);
    QCOMPARE(range.length, length);
    if (length > 0)
        QCOMPARE(range.start, start);
}

void ID3TagWriterTest::id3v1Layout() {
    const MusicMetadata metadata{"Title", "Artist",     "Album",     "Album Artist",
                                 "7",     "1997-05-01", "Hard Rock", "Note"};
    const QByteArray tag = ID3TagWriter::buildID3v1Tag(metadata);

    QCOMPARE(tag.size(), 128);
    QCOMPARE(tag.left(3), QByteArray("TAG"));
    QCOMPARE(tag.mid(3, 30), "Title" + QByteArray(25, '\0'));
    QCOMPARE(tag.mid(33, 30), "Artist" + QByteArray(24, '\0'));
    QCOMPARE(tag.mid(63, 30), "Album" + QByteArray(25, '\0'));
    QCOMPARE(tag.mid(93, 4), QByteArray("1997"));
    QCOMPARE(tag.mid(97, 28), "Note" + QByteArray(24, '\0'));
    QCOMPARE(int(tag[125]), 0);
    QCOMPARE(int(quint8(tag[126])), 7);
    QCOMPARE(int(quint8(tag[127])), 79);
    QVERIFY(!tag.contains("Album Artist"));
}

void ID3TagWriterTest::latin1Field_data() {
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("expected");
    QTest::addRow("padded") << "Abc" << 6 << QByteArray("Abc\0\0\0", 6);
    QTest::addRow("31 characters cut to 30") << QString(30, 'x') + "y" << 30 << QByteArray(30, 'x');
    QTest::addRow("Latin-1 letter") << "Café" << 5 << bytes({'C', 'a', 'f', 0xE9, 0});
    QTest::addRow("decomposed letter") << "Cafe\u0301" << 4 << bytes({'C', 'a', 'f', 0xE9});
    QTest::addRow("outside Latin-1") << "東京 ŉ €" << 8 << QByteArray("?? ? ?\0\0", 8);
    QTest::addRow("one ? per character beyond the BMP") << "a😀b" << 4 << QByteArray("a?b\0", 4);
    QTest::addRow("trimmed") << "\u00A0 x\t\n" << 2 << QByteArray("x\0", 2);
    QTest::addRow("cut by bytes after conversion") << "ééééé" << 4 << bytes({0xE9, 0xE9, 0xE9, 0xE9});
}

void ID3TagWriterTest::latin1Field() {
    QFETCH(QString, value);
    QFETCH(int, size);
    QFETCH(QByteArray, expected);
    QCOMPARE(ID3TagWriter::latin1Field(value, size).toHex(' '), expected.toHex(' '));
}

void ID3TagWriterTest::trackByte_data() {
    QTest::addColumn<QString>("trackNumber");
    QTest::addColumn<int>("expected");
    QTest::addRow("3/12") << "3/12" << 3;
    QTest::addRow("plain") << "7" << 7;
    QTest::addRow("plus sign") << "+9" << 9;
    QTest::addRow("0300 is over 255") << "0300" << 255;
    QTest::addRow("255") << "255" << 255;
    QTest::addRow("256") << "256" << 255;
    QTest::addRow("huge") << "99999999999999999999999" << 255;
    QTest::addRow("negative") << "-2" << 0;
    QTest::addRow("A1") << "A1" << 0;
    QTest::addRow("leading space") << " 3" << 0;
    QTest::addRow("trailing space") << "3 " << 0;
    QTest::addRow("empty pieces dropped") << "/5/" << 5;
    QTest::addRow("only slashes") << "//" << 0;
    QTest::addRow("empty") << "" << 0;
    QTest::addRow("sign alone") << "-" << 0;
    QTest::addRow("non-ASCII digits") << "\u0663" << 0;
}

void ID3TagWriterTest::trackByte() {
    QFETCH(QString, trackNumber);
    QFETCH(int, expected);
    QCOMPARE(int(ID3TagWriter::trackByte(trackNumber)), expected);
}

void ID3TagWriterTest::genreIndex_data() {
    QTest::addColumn<QString>("genre");
    QTest::addColumn<int>("expected");
    QTest::addRow("Blues") << "Blues" << 0;
    QTest::addRow("jazz in lower case") << "jazz" << 8;
    QTest::addRow("Alt. Rock") << "Alt. Rock" << 40;
    QTest::addRow("AlternRock") << "AlternRock" << 255;
    QTest::addRow("Gangsta alone") << "Gangsta" << 255;
    QTest::addRow("Gangsta Rap") << "GANGSTA RAP" << 59;
    QTest::addRow("Psychedelic") << "Psychedelic" << 67;
    QTest::addRow("trimmed") << "\u2028 Hard Rock \t" << 79;
    QTest::addRow("blank") << "  " << 255;
    QTest::addRow("numeric reference is not a name") << "(8)" << 255;
}

void ID3TagWriterTest::genreIndex() {
    QFETCH(QString, genre);
    QFETCH(int, expected);
    QCOMPARE(int(ID3TagWriter::genreIndex(genre)), expected);
}

void ID3TagWriterTest::rewriteKeepsTheAudio_data() {
    QTest::addColumn<QByteArray>("prefix");
    QTest::addColumn<QByteArray>("suffix");

    // A v2.3 frame holding UTF-16 text, then the whole tag unsynchronised: every 0xFF gets a 0x00 after it.
    QByteArray v23Frame = "TIT2" + bytes({0, 0, 0, 9, 0, 0, 1, 0xFF, 0xFE, 'O', 0, 'l', 0, 'd', 0});
    v23Frame.replace(QByteArray("\xFF"), QByteArray("\xFF\x00", 2));
    const QByteArray v24Frame = "TIT2" + bytes({0, 0, 0, 4, 0, 0, 3}) + "Old";
    const QByteArray extendedHeader = bytes({0, 0, 0, 6, 1, 0});
    const QByteArray v22Frame = "TT2" + bytes({0, 0, 4, 0}) + "Old";

    QTest::addRow("no tags") << QByteArray() << QByteArray();
    QTest::addRow("ID3v2.2 with padding")
        << id3Header(2, 0, quint32(v22Frame.size() + 100)) + v22Frame + QByteArray(100, '\0') << QByteArray();
    QTest::addRow("ID3v2.3 unsynchronised")
        << id3Header(3, 0x80, quint32(v23Frame.size())) + v23Frame << QByteArray();
    QTest::addRow("ID3v2.4 extended header")
        << id3Header(4, 0x40, quint32(extendedHeader.size() + v24Frame.size())) + extendedHeader + v24Frame
        << QByteArray();
    QTest::addRow("ID3v2.4 with footer") << id3Header(4, 0x10, quint32(v24Frame.size())) + v24Frame + "3DI" +
                                                bytes({4, 0, 0x10}) + sizeBytes(quint32(v24Frame.size()))
                                         << QByteArray();
    QTest::addRow("ID3v1 only") << QByteArray() << id3v1Trailer("Old");
    QTest::addRow("ID3v2.4 and ID3v1")
        << id3Header(4, 0, quint32(v24Frame.size())) + v24Frame << id3v1Trailer("Old");
}

// The new file is the new tag, the old audio byte for byte and the new trailer; it decodes to the same
// samples, and a second identical save changes nothing.
void ID3TagWriterTest::rewriteKeepsTheAudio() {
    QFETCH(QByteArray, prefix);
    QFETCH(QByteArray, suffix);
    const QByteArray audio = plainAudio();
    if (audio.isEmpty())
        QSKIP("ffmpeg cannot make an MP3 here");
    QTemporaryDir dir;
    const QString path = dir.filePath("song.mp3");
    QVERIFY(writeFile(path, prefix + audio + suffix));
    const QByteArray decodedBefore = decodedAudioChecksum(path);
    const QByteArray artwork = "\xFF\xD8\xFF" + QByteArray(5000, 'j');

    const Written first = runWriter(path, fullMetadata(), artwork);

    QCOMPARE(first.error, std::nullopt);
    const QByteArray tag = *ID3TagWriter::buildTag(fullMetadata(), artwork);
    QVERIFY(first.after == tag + audio + ID3TagWriter::buildID3v1Tag(fullMetadata()));
    QCOMPARE(decodedAudioChecksum(path), decodedBefore);

    const Written second = runWriter(path, fullMetadata(), artwork);
    QCOMPARE(second.error, std::nullopt);
    QVERIFY(second.after == first.after);
    QCOMPARE(folderEntries(dir.path()), QStringList{"song.mp3"});
}

void ID3TagWriterTest::extensionInCapitalsIsAccepted() {
    QTemporaryDir dir;
    const QString path = dir.filePath("SONG.MP3");
    QVERIFY(writeFile(path, QByteArray(500, 'a')));

    const Written result = runWriter(path);

    QCOMPARE(result.error, std::nullopt);
    QVERIFY(result.after.contains(QByteArray(500, 'a')));
}

void ID3TagWriterTest::refusedFilesStayUntouched_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("kind");
    QTest::addRow("m4a") << "song.m4a" << QByteArray("not read") << int(Kind::NotMP3);
    QTest::addRow("no extension") << "song" << QByteArray("x") << int(Kind::NotMP3);
    QTest::addRow("mp3 then another extension") << "song.mp3.bak" << QByteArray("x") << int(Kind::NotMP3);
    QTest::addRow("zero bytes") << "empty.mp3" << QByteArray() << int(Kind::NoAudioFound);
    QTest::addRow("10-byte header of size 0")
        << "header.mp3" << id3Header(4, 0, 0) << int(Kind::NoAudioFound);
    QTest::addRow("tag claims more than the file")
        << "short.mp3" << id3Header(3, 0, 5000) + QByteArray(900, 'a') << int(Kind::NoAudioFound);
    QTest::addRow("nothing between tag and trailer")
        << "bare.mp3" << id3Header(4, 0, 4) + "abcd" + id3v1Trailer("x") << int(Kind::NoAudioFound);
    QTest::addRow("trailer only") << "v1.mp3" << id3v1Trailer("x") << int(Kind::NoAudioFound);
}

void ID3TagWriterTest::refusedFilesStayUntouched() {
    QFETCH(QString, name);
    QFETCH(QByteArray, contents);
    QFETCH(int, kind);
    QTemporaryDir dir;
    const QString path = dir.filePath(name);
    QVERIFY(writeFile(path, contents));

    const Written result = runWriter(path);

    QVERIFY(result.error);
    QCOMPARE(int(result.error->kind), kind);
    QCOMPARE(result.error->url, QUrl::fromLocalFile(path));
    QVERIFY(result.after == contents);
    QCOMPARE(folderEntries(dir.path()), QStringList{name});
}

void ID3TagWriterTest::errorSentences_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isFolder"); // made as a folder in a temporary directory; otherwise never created
    QTest::addColumn<QString>("sentence");
    QTest::addRow("m4a")
        << "Song.m4a" << false
        << "Tag editing currently supports MP3 files only. This is a .m4a file \u2014 its metadata "
           "can be viewed but not saved.";
    QTest::addRow("extension in capitals")
        << "Song.FLAC" << false
        << "Tag editing currently supports MP3 files only. This is a .flac file "
           "\u2014 its metadata can be viewed but not saved.";
    QTest::addRow("missing file") << "Ünïcode song.mp3" << false << "Couldn't read Ünïcode song.mp3.";
    QTest::addRow("folder named like a song") << "album.mp3" << true << "Couldn't read album.mp3.";
}

void ID3TagWriterTest::errorSentences() {
    QFETCH(QString, name);
    QFETCH(bool, isFolder);
    QFETCH(QString, sentence);
    QTemporaryDir dir;
    if (isFolder)
        QVERIFY(QDir(dir.path()).mkdir(name));

    const std::optional<ID3TagWriter::WriteError> error =
        ID3TagWriter::write(fullMetadata(), std::nullopt, QUrl::fromLocalFile(dir.filePath(name)));

    QVERIFY(error);
    QCOMPARE(error->description(), sentence);
}

// An image of 2^28 bytes cannot be described by a syncsafe size: refused, never written cut short.
void ID3TagWriterTest::oversizedArtworkIsRefused() {
    // Untouched pages of an anonymous read-only mapping cost no memory, so the test stays light.
    const qsizetype size = qsizetype(ID3TagWriter::syncsafeLimit);
    void* pages =
        ::mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    QVERIFY(pages != MAP_FAILED);
    const QByteArray huge = QByteArray::fromRawData(static_cast<const char*>(pages), size);
    QTemporaryDir dir;
    const QString path = dir.filePath("song.mp3");
    QVERIFY(writeFile(path, QByteArray(4000, 'a')));

    const Written result = runWriter(path, fullMetadata(), huge);
    const bool tagRefused = !ID3TagWriter::buildTag(MusicMetadata(), huge).has_value();
    ::munmap(pages, size_t(size));

    QVERIFY(tagRefused);
    QVERIFY(result.error);
    QCOMPARE(result.error->kind, Kind::TooLarge);
    QCOMPARE(result.error->description(),
             "The tags for song.mp3 would be larger than an MP3 tag can hold (256 MB); nothing was changed.");
    QVERIFY(result.after == result.before);
}

void ID3TagWriterTest::readOnlyFolder() {
    const QByteArray audio = plainAudio();
    if (audio.isEmpty())
        QSKIP("ffmpeg cannot make an MP3 here");
    fixtures::LockedFolder folder;
    if (!folder.isValid())
        QSKIP("running as root without the right to mount: no folder is read-only to this process");
    const QString path = folder.filePath("song.mp3");
    QVERIFY(writeFile(path, audio));
    QVERIFY(folder.lock());

    const Written result = runWriter(path);

    QVERIFY(result.error);
    QCOMPARE(result.error->kind, Kind::Unwritable);
    QCOMPARE(result.error->description(),
             QStringLiteral("Couldn't save song.mp3: %1.").arg(qt_error_string(folder.writeError())));
    QVERIFY(result.after == audio);
    QCOMPARE(folderEntries(folder.path()), QStringList{"song.mp3"});
}

void ID3TagWriterTest::fullDisk() {
    const QByteArray audio = plainAudio();
    if (audio.isEmpty())
        QSKIP("ffmpeg cannot make an MP3 here");
    fixtures::ScratchMount disk(audio.size() + 64 * 1024);
    if (!disk.isValid())
        QSKIP("cannot mount a small file system here");
    const QString path = disk.filePath("song.mp3");
    QVERIFY(writeFile(path, audio));

    const Written result = runWriter(path, fullMetadata(), "\xFF\xD8\xFF" + QByteArray(256 * 1024, 'j'));

    QVERIFY(result.error);
    QCOMPARE(result.error->kind, Kind::Unwritable);
    QCOMPARE(result.error->reason, qt_error_string(ENOSPC));
    QVERIFY(result.after == audio);
    QCOMPARE(folderEntries(disk.path()), QStringList{"song.mp3"});
}

QTEST_GUILESS_MAIN(ID3TagWriterTest)
#include "id3_tag_writer_test.moc"

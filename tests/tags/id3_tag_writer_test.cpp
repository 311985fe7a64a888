#include "tags/ID3TagWriter.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/ScratchMount.h"

#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mman.h>
#include <sys/stat.h>

namespace {

using namespace fixtures;

QByteArray bytes(std::initializer_list<int> values) {
    QByteArray result;
    for (const int value : values)
        result += char(value);
    return result;
}

// An ID3v2 header, its size bytes written out here independently of the writer.
QByteArray id3Header(int version, int flags, quint32 n) {
    return "ID3" + bytes({version, 0, flags, int(n >> 21) & 0x7F, int(n >> 14) & 0x7F, int(n >> 7) & 0x7F,
                          int(n) & 0x7F});
}

// MPEG audio without any tag, made once per program.
QByteArray plainAudio() {
    static QTemporaryDir dir;
    static const QString path = dir.filePath("plain.mp3");
    static const QByteArray audio =
        fixtures::makeAudio(path, 1.0, {"-id3v2_version", "0", "-write_id3v1", "0"}) ? readFile(path)
                                                                                     : QByteArray();
    return audio;
}

MusicMetadata fullMetadata() {
    return MusicMetadata{" Café del Mar ", "Sigur Rós", "Ágætis byrjun", "Various Artists",
                         "3/12",           "1999",      "Jazz",          "Line one\nLine two"};
}

// The save is refused with `sentence`, and the file and its folder are as they were.
void expectRefusal(const QString& path, const std::optional<QByteArray>& artwork, const QString& sentence) {
    const QByteArray before = readFile(path);
    const QStringList entries = folderEntries(QFileInfo(path).path());
    const std::optional<ID3TagWriter::WriteError> error =
        ID3TagWriter::write(fullMetadata(), artwork, QUrl::fromLocalFile(path));
    QVERIFY(error);
    QCOMPARE(error->description(), sentence);
    QVERIFY(readFile(path) == before);
    QCOMPARE(folderEntries(QFileInfo(path).path()), entries);
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
    // The pure steps, byte for byte.
    void pieces_data() {
        QTest::addColumn<QByteArray>("actual");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char* name, const QByteArray& actual, const QByteArray& expected) {
            QTest::addRow("%s", name) << actual << expected;
        };
        const QString blank = " \t\n\u00A0\u2028";
        const MusicMetadata blanks{blank, blank, blank, blank, blank, blank, blank, blank};
        row("blank values, empty artwork", *ID3TagWriter::buildTag(blanks, QByteArray()),
            QByteArray("ID3\x04\0\0\0\0\0\0", 10));
        row("blank trailer", ID3TagWriter::buildID3v1Tag(blanks),
            "TAG" + QByteArray(124, '\0') + bytes({255}));
        row("syncsafe", ID3TagWriter::syncsafe(300016), bytes({0, 0x12, 0x27, 0x70}));
        row("PNG needs four bytes", ID3TagWriter::imageMimeType(bytes({0x89, 0x50, 0x4E})), "image/jpeg");

        // The audio audioRange() finds between the old tags.
        const QByteArray audio(1000, 'a');
        const QByteArray tag = id3Header(4, 0, 20) + QByteArray(20, 't');
        const auto audioOf = [](const QByteArray& data) {
            const ID3TagWriter::Range range = ID3TagWriter::audioRange(data);
            return data.mid(range.start, range.length);
        };
        row("second tag kept as audio", audioOf(tag + tag + audio), tag + audio);
        row("tag longer than the file", audioOf(id3Header(4, 0, 2000) + audio), {});

        // The trailer's track and genre bytes (its layout is read back by mutagen).
        const auto ends = [](const QString& track, const QString& genre) {
            return ID3TagWriter::buildID3v1Tag({{}, {}, {}, {}, track, {}, genre, {}}).right(2);
        };
        row("0300 is over 255, Alt. Rock", ends("0300", "Alt. Rock"), bytes({255, 40}));
        row("leading space, trimmed Blues", ends(" 3", "\u2028 Blues \t"), bytes({0, 0}));

        row("Latin-1 from a decomposed letter", ID3TagWriter::latin1Field("Cafe\u0301", 4),
            bytes({'C', 'a', 'f', 0xE9}));
        row("cut by bytes after conversion", ID3TagWriter::latin1Field("ééééé", 4),
            bytes({0xE9, 0xE9, 0xE9, 0xE9}));
    }
    void pieces() {
        QFETCH(QByteArray, actual);
        QFETCH(QByteArray, expected);
        QCOMPARE(actual.toHex(' '), expected.toHex(' '));
    }

    // The new file is the new tag, the old audio byte for byte and the new trailer; it decodes to the same
    // samples, and a second identical save changes nothing. The name in capitals is accepted; an old tag's
    // extended header and footer and the old trailer go.
    void rewriteKeepsTheAudio() {
        const QByteArray audio = plainAudio();
        if (audio.isEmpty())
            QSKIP("ffmpeg cannot make an MP3 here");
        const QByteArray body = bytes({0, 0, 0, 6, 1, 0}) + "TIT2" + bytes({0, 0, 0, 4, 0, 0, 3}) + "Old";
        const QByteArray tagged = id3Header(4, 0x50, quint32(body.size())) + body +
                                  id3Header(4, 0x50, quint32(body.size())).replace(0, 3, "3DI") + audio +
                                  "TAG" + QByteArray(125, 'o');
        const QByteArray artwork = "\xFF\xD8\xFF" + QByteArray(5000, 'j');
        QTemporaryDir dir;
        const QString path = dir.filePath("SONG.MP3");
        QVERIFY(writeFile(path, tagged));
        const QByteArray decodedBefore = decodedAudioChecksum(path);

        QCOMPARE(ID3TagWriter::write(fullMetadata(), artwork, QUrl::fromLocalFile(path)), std::nullopt);

        const QByteArray written = readFile(path);
        QVERIFY(written == *ID3TagWriter::buildTag(fullMetadata(), artwork) + audio +
                               ID3TagWriter::buildID3v1Tag(fullMetadata()));
        QCOMPARE(decodedAudioChecksum(path), decodedBefore);
        QCOMPARE(ID3TagWriter::write(fullMetadata(), artwork, QUrl::fromLocalFile(path)), std::nullopt);
        QVERIFY(readFile(path) == written);
    }

    void refusals() {
        QTemporaryDir dir;
        // A leading dot names a hidden file; it does not start an extension.
        QVERIFY(writeFile(dir.filePath(".mp3"), QByteArray(4000, 'a')));
        expectRefusal(
            dir.filePath(".mp3"), std::nullopt,
            "Tag editing currently supports MP3 files only. This is a . file \u2014 its metadata can "
            "be viewed but not saved.");
        // Write-protected by its owner: refused even where the folder (or the superuser) could replace it.
        QVERIFY(writeFile(dir.filePath("locked.mp3"), QByteArray(4000, 'a')));
        QCOMPARE(::chmod(QFile::encodeName(dir.filePath("locked.mp3")), 0444), 0);
        expectRefusal(dir.filePath("locked.mp3"), std::nullopt,
                      "Couldn't save locked.mp3: " + qt_error_string(EACCES) + ".");
        // Not a file to read (a pipe would never end).
        QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath("Ünïcode pipe.mp3")).constData(), 0600), 0);
        const auto pipe = ID3TagWriter::write(fullMetadata(), std::nullopt,
                                              QUrl::fromLocalFile(dir.filePath("Ünïcode pipe.mp3")));
        QVERIFY(pipe);
        QCOMPARE(pipe->description(), "Couldn't read Ünïcode pipe.mp3.");
        QVERIFY(writeFile(dir.filePath("bare.mp3"), id3Header(4, 0, 0)));
        expectRefusal(
            dir.filePath("bare.mp3"), std::nullopt,
            "bare.mp3 doesn't contain any audio data after its tag. It may be damaged; nothing was changed.");

        // An image of 2^28 bytes cannot be described by a syncsafe size: refused, never written cut short.
        // Untouched pages of an anonymous read-only mapping cost no memory, so the test stays light.
        const qsizetype size = qsizetype(ID3TagWriter::syncsafeLimit);
        void* pages =
            ::mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        QVERIFY(pages != MAP_FAILED);
        const auto unmap = qScopeGuard([&] { ::munmap(pages, size_t(size)); });
        QVERIFY(writeFile(dir.filePath("song.mp3"), QByteArray(4000, 'a')));
        expectRefusal(
            dir.filePath("song.mp3"), QByteArray::fromRawData(static_cast<const char*>(pages), size),
            "The tags for song.mp3 would be larger than an MP3 tag can hold (256 MB); nothing was changed.");
    }

    // A full disk and a read-only file system: the reason comes back and the file and its folder are
    // untouched.
    void unwritable() {
        const QByteArray audio = plainAudio();
        fixtures::ScratchMount disk(audio.size() + 64 * 1024);
        if (audio.isEmpty() || !disk.isValid())
            QSKIP("needs ffmpeg and the right to mount a small file system");
        const QString path = disk.path() + "/song.mp3";
        QVERIFY(writeFile(path, audio));
        const auto sentence = [](int error) {
            return QStringLiteral("Couldn't save song.mp3: %1.").arg(qt_error_string(error));
        };
        expectRefusal(path, "\xFF\xD8\xFF" + QByteArray(256 * 1024, 'j'), sentence(ENOSPC));
        QVERIFY(disk.makeReadOnly());
        expectRefusal(path, QByteArray(), sentence(EROFS));
    }
};

QTEST_GUILESS_MAIN(ID3TagWriterTest)
#include "id3_tag_writer_test.moc"

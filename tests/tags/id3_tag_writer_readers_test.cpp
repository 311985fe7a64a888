// A file written by ID3TagWriter, read back by a reader we did not write: mutagen.
#include "tags/ID3TagWriter.h"

#include "support/Fixtures.h"
#include "support/Pictures.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The tag's version, then every frame of the ID3v2 tag in file order as "ID|encoding|fields…" (the ID3v1
// trailer not merged in), then the trailer's fields on their own.
const char* const mutagenDump = R"(
import sys, json, hashlib
from mutagen.id3 import ID3, ParseID3v1
tag = ID3(sys.argv[1], load_v1=False)
def fields(f):
    if f.FrameID == "APIC": return [f.mime, int(f.type), f.desc, hashlib.sha256(f.data).hexdigest()]
    return ([f.lang, f.desc] if f.FrameID == "COMM" else []) + [str(t) for t in f.text]
v1 = ParseID3v1(open(sys.argv[1], "rb").read()[-128:]) or {}
print(json.dumps(["v%d.%d" % tag.version[:2]] +
                 ["|".join(map(str, [f.FrameID, int(f.encoding)] + fields(f))) for f in tag.values()] +
                 sorted("v1 %s=%s" % (k, v.genres[0] if k == "TCON" else v) for k, v in v1.items())))
)";

QStringList mutagenView(const QString& path) {
    const fixtures::ToolResult result = fixtures::run(fixtures::systemPython(), {"-c", mutagenDump, path});
    const QVariant lines = QJsonDocument::fromJson(result.out).array().toVariantList();
    return result.exitCode == 0 ? lines.toStringList() : QStringList{QString::fromUtf8(result.err)};
}

// Text that ISO-8859-1 cannot hold, blanks to trim, and a line break inside the comment.
const MusicMetadata metadata{
    " Café del Mar \u2014 \u2713 ", "Sigur Rós", "Ágætis byrjun", "Various", "3/12", "1999", "\tJazz",
    "Line one\nLine two\u2028"};

} // namespace

class ID3TagWriterReadersTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    const QString m_song = m_dir.filePath("source.mp3"); // with ffmpeg's own ID3v2 tag and an ID3v1 trailer

private slots:
    void initTestCase() {
        if (!fixtures::makeAudio(m_song, 1.0, {"-metadata", "title=Old title", "-write_id3v1", "1"}))
            QSKIP("ffmpeg cannot make an MP3 here");
    }

    // mutagen finds an ID3v2.4 tag of exactly our frames, in order, all UTF-8, and the trailer on its own.
    void readBack() {
        const QByteArray artwork = fixtures::pictureBytes("PNG", Qt::darkCyan, 48);
        QCOMPARE(ID3TagWriter::write(metadata, artwork, QUrl::fromLocalFile(m_song)), std::nullopt);
        const QByteArray artworkHash = QCryptographicHash::hash(artwork, QCryptographicHash::Sha256).toHex();
        QCOMPARE(mutagenView(m_song),
                 (QStringList{"v2.4", "TIT2|3|Café del Mar \u2014 \u2713", "TPE1|3|Sigur Rós",
                              "TALB|3|Ágætis byrjun", "TPE2|3|Various", "TRCK|3|3/12", "TDRC|3|1999",
                              "TCON|3|Jazz", "COMM|3|eng||Line one\nLine two",
                              "APIC|3|image/png|3||" + artworkHash, "v1 COMM=Line one\nLine two",
                              "v1 TALB=Ágætis byrjun", "v1 TCON=Jazz", "v1 TDRC=1999",
                              "v1 TIT2=Café del Mar ? ?", "v1 TPE1=Sigur Rós", "v1 TRCK=3"}));
    }
};

QTEST_GUILESS_MAIN(ID3TagWriterReadersTest)
#include "id3_tag_writer_readers_test.moc"

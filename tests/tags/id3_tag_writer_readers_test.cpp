// Files written by ID3TagWriter, read back by readers we did not write: mutagen, and TagLib, the library
// the program itself reads tags with.
#include "tags/ID3TagWriter.h"

#include "support/Fixtures.h"
#include "support/Pictures.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <attachedpictureframe.h>
#include <id3v2tag.h>
#include <mpegfile.h>

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

QString fromTagLib(const TagLib::String& text) {
    return QString::fromStdString(text.to8Bit(true));
}

// Text that ISO-8859-1 cannot hold, blanks to trim, and a line break inside the comment; then the frames
// every reader must show for it, in the writer's order.
const MusicMetadata metadata{
    " Café del Mar \u2014 \u2713 ", "Sigur Rós", "Ágætis byrjun", "Various", "3/12", "1999", "\tJazz",
    "Line one\nLine two\u2028"};
const QList<std::pair<const char*, QString>> frames = {{"TIT2", "Café del Mar \u2014 \u2713"},
                                                       {"TPE1", "Sigur Rós"},
                                                       {"TALB", "Ágætis byrjun"},
                                                       {"TPE2", "Various"},
                                                       {"TRCK", "3/12"},
                                                       {"TDRC", "1999"},
                                                       {"TCON", "Jazz"},
                                                       {"COMM", "Line one\nLine two"}};

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

    void readBack_data() {
        QTest::addColumn<QByteArray>("artwork");
        QTest::addColumn<QString>("mime");
        QTest::addRow("JPEG cover") << fixtures::pictureBytes("JPG", Qt::darkCyan, 48) << "image/jpeg";
        QTest::addRow("PNG cover") << fixtures::pictureBytes("PNG", Qt::darkCyan, 48) << "image/png";
    }
    void readBack() {
        QFETCH(QByteArray, artwork);
        QFETCH(QString, mime);
        const QString path = m_dir.filePath(mime.section('/', 1) + ".mp3");
        QVERIFY(QFile::copy(m_song, path));
        QCOMPARE(ID3TagWriter::write(metadata, artwork, QUrl::fromLocalFile(path)), std::nullopt);

        // mutagen: an ID3v2.4 tag of exactly our frames, in order, all UTF-8; the trailer on its own.
        QStringList expected = {"v2.4"};
        for (const auto& [frame, text] : frames)
            expected += QString("%1|3|%2%3").arg(frame, frame == QLatin1String("COMM") ? "eng||" : "", text);
        expected +=
            "APIC|3|" + mime + "|3||" + QCryptographicHash::hash(artwork, QCryptographicHash::Sha256).toHex();
        expected += {"v1 COMM=Line one\nLine two", "v1 TALB=Ágætis byrjun", "v1 TCON=Jazz", "v1 TDRC=1999",
                     "v1 TIT2=Café del Mar ? ?",   "v1 TPE1=Sigur Rós",     "v1 TRCK=3"};
        QCOMPARE(mutagenView(path), expected);

        TagLib::MPEG::File file(QFile::encodeName(path).constData(), false);
        QVERIFY(file.hasID3v2Tag());
        const TagLib::ID3v2::FrameListMap& map = file.ID3v2Tag()->frameListMap();
        for (const auto& [frame, text] : frames)
            QCOMPARE(fromTagLib(map[frame].front()->toString()), text);
        const auto* picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(map["APIC"].front());
        QVERIFY(picture && fromTagLib(picture->mimeType()) == mime);
        QCOMPARE(picture->type(), TagLib::ID3v2::AttachedPictureFrame::FrontCover);
        QVERIFY(QByteArray(picture->picture().data(), int(picture->picture().size())) == artwork);
    }
};

QTEST_GUILESS_MAIN(ID3TagWriterReadersTest)
#include "id3_tag_writer_readers_test.moc"

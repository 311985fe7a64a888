// Files written by ID3TagWriter, read back by readers we did not write: mutagen, eyeD3, ffprobe and TagLib.
#include "tags/ID3TagWriter.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/Pictures.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

// Tags with text that ISO-8859-1 cannot hold, blanks to trim, and a line break inside the comment.
MusicMetadata sampleMetadata() {
    return {" Café del Mar \u2014 \u2713 ", "Sigur Rós", "Ágætis byrjun", "Various", "3/12", "1999", "\tJazz",
            "Line one\nLine two\u2028"};
}

// The values every reader must show for sampleMetadata(), in the writer's frame order, with ffprobe's key and
// eyeD3's line.
struct Expected {
    const char* frame;
    const char* probeKey;
    const char* eyeD3;
    QString text;
};
const QList<Expected> expected = {
    {"TIT2", "title", "title: %1", "Café del Mar \u2014 \u2713"},
    {"TPE1", "artist", "artist: %1", "Sigur Rós"},
    {"TALB", "album", "album: %1", "Ágætis byrjun"},
    {"TPE2", "album_artist", "album artist: %1", "Various"},
    {"TRCK", "track", "track: %1", "3/12"},
    {"TDRC", "date", "recording date: %1", "1999"},
    {"TCON", "genre", "genre: %1 (id 8)", "Jazz"},
    {"COMM", "comment", "Comment: [Description: ] [Lang: eng]\n%1\n", "Line one\nLine two"},
};

} // namespace

class ID3TagWriterReadersTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
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
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        QVERIFY(QFile::copy(m_song, path));
        QCOMPARE(ID3TagWriter::write(sampleMetadata(), artwork, QUrl::fromLocalFile(path)), std::nullopt);

        // mutagen: an ID3v2.4 tag of exactly our frames, in order, all UTF-8; the trailer on its own.
        QStringList frames = {"v2.4"};
        for (const Expected& value : expected)
            frames += QString("%1|3|%2%3")
                          .arg(value.frame, value.frame == QLatin1String("COMM") ? "eng||" : "", value.text);
        const QString sha256 = QCryptographicHash::hash(artwork, QCryptographicHash::Sha256).toHex();
        frames += "APIC|3|" + mime + "|3||" + sha256;
        frames += {"v1 COMM=Line one\nLine two", "v1 TALB=Ágætis byrjun", "v1 TCON=Jazz", "v1 TDRC=1999",
                   "v1 TIT2=Café del Mar ? ?",   "v1 TPE1=Sigur Rós",     "v1 TRCK=3"};
        QCOMPARE(mutagenView(path), frames);

        const fixtures::ToolResult eyed3 = fixtures::run("eyeD3", {"--no-color", path});
        QCOMPARE(eyed3.exitCode, 0);
        const QString shown = QString::fromUtf8(eyed3.out);
        QStringList lines = {
            "ID3 v2.4:",
            QString("FRONT_COVER Image: [Size: %1 bytes] [Type: %2]").arg(artwork.size()).arg(mime)};
        for (const Expected& value : expected)
            lines += QString(value.eyeD3).arg(value.text);
        for (const QString& line : lines)
            QVERIFY2(shown.contains(line), qPrintable(line + " not in:\n" + shown));

        const fixtures::ToolResult probe =
            fixtures::run("ffprobe", {"-v", "error", "-show_entries",
                                      "format_tags:stream=codec_name:stream_tags", "-of", "json", path});
        QCOMPARE(probe.exitCode, 0);
        const QJsonObject probed = QJsonDocument::fromJson(probe.out).object();
        for (const Expected& value : expected)
            QCOMPARE(probed["format"]["tags"][value.probeKey].toString(), value.text);
        QStringList streams;
        for (const QJsonValue& stream : probed["streams"].toArray())
            streams += stream["codec_name"].toString() + ' ' + stream["tags"]["comment"].toString();
        QCOMPARE(streams,
                 (QStringList{"mp3 ", (mime == "image/png" ? "png" : "mjpeg") + QString(" Cover (front)")}));

        TagLib::MPEG::File file(QFile::encodeName(path).constData(), false);
        QVERIFY(file.hasID3v2Tag());
        const TagLib::ID3v2::FrameListMap& map = file.ID3v2Tag()->frameListMap();
        for (const Expected& value : expected)
            QCOMPARE(fromTagLib(map[value.frame].front()->toString()), value.text);
        const auto* picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(map["APIC"].front());
        QVERIFY(picture);
        QCOMPARE(fromTagLib(picture->mimeType()), mime);
        QCOMPARE(picture->type(), TagLib::ID3v2::AttachedPictureFrame::FrontCover);
        QVERIFY(QByteArray(picture->picture().data(), int(picture->picture().size())) == artwork);
    }

    // Files written by other tools, copied under an .mp3 name: each is rewritten as its old tags' sizes say
    // (the old audio lies between start and end), or refused untouched (start -1).
    void corpus() {
        const QList<std::tuple<const char*, qint64, qint64>> files = {
            {"mutagen/tests/data/id3v22-test.mp3", 2225, 5120},
            {"mutagen/tests/data/id3v23_unsynch.id3", 186, 320},
            {"mutagen/tests/data/audacious-trailing-id32-id31.mp3", 0, 15272}, // appended tag and footer kept
            {"mutagen/tests/data/silence-44-s-v1.mp3", 0, 14942},
            {"mutagen/tests/data/emptyfile.mp3", -1, -1},
            {"taglib/tests/data/extended-header.mp3", -1, -1},
            {"taglib/tests/data/excessive_alloc.mp3", -1, -1},
        };
        for (const auto& [file, start, end] : files) {
            const QString source = fixtures::corpusFile(file);
            if (source.isEmpty())
                QSKIP("the shared corpus is not beside this checkout");
            QTemporaryDir dir;
            const QString path = dir.filePath("corpus.mp3");
            QVERIFY(QFile::copy(source, path));
            const QByteArray old = fixtures::readFile(path);

            const std::optional<ID3TagWriter::WriteError> error =
                ID3TagWriter::write(sampleMetadata(), std::nullopt, QUrl::fromLocalFile(path));

            QVERIFY2(error.has_value() == (start < 0), file);
            QVERIFY2(fixtures::readFile(path) ==
                         (error ? old
                                : *ID3TagWriter::buildTag(sampleMetadata(), std::nullopt) +
                                      old.mid(start, end - start) +
                                      ID3TagWriter::buildID3v1Tag(sampleMetadata())),
                     file);
        }
    }

private:
    QTemporaryDir m_dir;
    const QString m_song = m_dir.filePath("source.mp3"); // with ffmpeg's own ID3v2 tag and an ID3v1 trailer
};

QTEST_GUILESS_MAIN(ID3TagWriterReadersTest)
#include "id3_tag_writer_readers_test.moc"

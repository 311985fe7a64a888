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

// Every frame of the ID3v2 tag in file order (the ID3v1 trailer not merged in), and the trailer on its own.
const char* const mutagenDump = R"(
import sys, json, hashlib
from mutagen.id3 import ID3, ParseID3v1
path = sys.argv[1]
tag = ID3(path, load_v1=False)
frames = []
for f in tag.values():
    d = {"id": f.FrameID, "encoding": int(f.encoding)}
    if f.FrameID == "APIC":
        d.update(mime=f.mime, type=int(f.type), desc=f.desc, sha256=hashlib.sha256(f.data).hexdigest())
    elif f.FrameID == "COMM":
        d.update(lang=f.lang, desc=f.desc, text=[str(t) for t in f.text])
    else:
        d.update(text=[str(t) for t in f.text])
    frames.append(d)
with open(path, "rb") as fh:
    fh.seek(-128, 2)
    v1 = ParseID3v1(fh.read(128)) or {}
print(json.dumps({"version": list(tag.version), "frames": frames,
                  "v1": {k: (v.genres[0] if k == "TCON" else str(v)) for k, v in v1.items()}}))
)";

QJsonObject mutagenView(const QString& path) {
    const fixtures::ToolResult result = fixtures::run(fixtures::systemPython(), {"-c", mutagenDump, path});
    if (result.exitCode != 0)
        qWarning() << "mutagen:" << result.err;
    return QJsonDocument::fromJson(result.out).object();
}

QJsonObject frameNamed(const QJsonObject& view, const QString& id) {
    for (const QJsonValue& frame : view["frames"].toArray()) {
        if (frame["id"].toString() == id)
            return frame.toObject();
    }
    return {};
}

QString firstText(const QJsonObject& frame) {
    return frame["text"].toArray().first().toString();
}

QString sha256(const QByteArray& data) {
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

QString fromTagLib(const TagLib::String& text) {
    return QString::fromStdString(text.to8Bit(true));
}

// Tags with text that ISO-8859-1 cannot hold, blanks to trim, and a line break inside the comment.
MusicMetadata sampleMetadata() {
    return MusicMetadata{" Café del Mar \u2014 \u2713 ",
                         "Sigur Rós",
                         "Ágætis byrjun",
                         "Various Artists",
                         "3/12",
                         "1999",
                         "\tJazz",
                         "Line one\nLine two\u2028"};
}

// The values every reader must show for sampleMetadata(), keyed by frame.
const QMap<QString, QString>& expectedText() {
    static const QMap<QString, QString> values = {
        {"TIT2", "Café del Mar \u2014 \u2713"},
        {"TPE1", "Sigur Rós"},
        {"TALB", "Ágætis byrjun"},
        {"TPE2", "Various Artists"},
        {"TRCK", "3/12"},
        {"TDRC", "1999"},
        {"TCON", "Jazz"},
        {"COMM", "Line one\nLine two"},
    };
    return values;
}

// The text frames in the order the writer puts them.
const QStringList& textFrameIds() {
    static const QStringList ids = {"TIT2", "TPE1", "TALB", "TPE2", "TRCK", "TDRC", "TCON", "COMM"};
    return ids;
}

} // namespace

class ID3TagWriterReadersTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        m_song = m_dir.filePath("source.mp3");
        if (!fixtures::makeAudio(
                m_song, 1.0,
                {"-metadata", "title=Old title", "-metadata", "genre=Polka", "-write_id3v1", "1"}))
            QSKIP("ffmpeg cannot make an MP3 here");
    }

    void readBack_data() {
        QTest::addColumn<QByteArray>("artwork");
        QTest::addColumn<QString>("mime");
        QTest::addColumn<QString>("ffmpegCodec");
        QTest::addRow("JPEG cover") << fixtures::pictureBytes("JPG", Qt::darkCyan, 48) << "image/jpeg"
                                    << "mjpeg";
        QTest::addRow("PNG cover") << fixtures::pictureBytes("PNG", Qt::darkCyan, 48) << "image/png"
                                   << "png";
        QTest::addRow("no cover") << QByteArray() << ""
                                  << "";
    }

    void readBack() {
        QFETCH(QByteArray, artwork);
        QFETCH(QString, mime);
        QFETCH(QString, ffmpegCodec);
        QTemporaryDir dir;
        const QString path = writeSample(dir.path(), artwork);
        QVERIFY(!path.isEmpty());

        // mutagen: an ID3v2.4 tag of exactly our frames, in order, all UTF-8; the trailer on its own.
        const QJsonObject view = mutagenView(path);
        QCOMPARE(view["version"].toArray(), (QJsonArray{2, 4, 0}));
        QStringList ids;
        for (const QJsonValue& frame : view["frames"].toArray()) {
            ids += frame["id"].toString();
            QCOMPARE(frame["encoding"].toInt(), 3);
        }
        QCOMPARE(ids, textFrameIds() + (artwork.isEmpty() ? QStringList() : QStringList{"APIC"}));
        for (auto it = expectedText().begin(); it != expectedText().end(); ++it)
            QCOMPARE(firstText(frameNamed(view, it.key())), it.value());
        QCOMPARE(frameNamed(view, "COMM")["lang"].toString(), "eng");
        QCOMPARE(frameNamed(view, "COMM")["desc"].toString(), "");
        if (!artwork.isEmpty()) {
            const QJsonObject picture = frameNamed(view, "APIC");
            QCOMPARE(picture["mime"].toString(), mime);
            QCOMPARE(picture["type"].toInt(), 3);
            QCOMPARE(picture["desc"].toString(), "");
            QCOMPARE(picture["sha256"].toString(), sha256(artwork));
        }
        QCOMPARE(view["v1"].toObject(), (QJsonObject{{"TIT2", "Café del Mar ? ?"},
                                                     {"TPE1", "Sigur Rós"},
                                                     {"TALB", "Ágætis byrjun"},
                                                     {"TDRC", "1999"},
                                                     {"COMM", "Line one\nLine two"},
                                                     {"TRCK", "3"},
                                                     {"TCON", "Jazz"}}));

        // eyeD3
        const fixtures::ToolResult eyed3 = fixtures::run("eyeD3", {"--no-color", path});
        QCOMPARE(eyed3.exitCode, 0);
        const QString shown = QString::fromUtf8(eyed3.out);
        for (const QString& line :
             {QStringLiteral("ID3 v2.4:"), QStringLiteral("title: Café del Mar \u2014 \u2713"),
              QStringLiteral("artist: Sigur Rós"), QStringLiteral("album: Ágætis byrjun"),
              QStringLiteral("album artist: Various Artists"), QStringLiteral("recording date: 1999"),
              QStringLiteral("track: 3/12"), QStringLiteral("genre: Jazz (id 8)"),
              QStringLiteral("Comment: [Description: ] [Lang: eng]\nLine one\nLine two\n")})
            QVERIFY2(shown.contains(line), qPrintable(line + " not in:\n" + shown));
        const QString cover =
            QStringLiteral("FRONT_COVER Image: [Size: %1 bytes] [Type: %2]").arg(artwork.size()).arg(mime);
        QCOMPARE(shown.contains(cover), !artwork.isEmpty());

        // ffprobe
        const fixtures::ToolResult probe = fixtures::run(
            "ffprobe", {"-v", "error", "-show_entries",
                        "format_tags:stream=codec_name,codec_type:stream_tags", "-of", "json", path});
        QCOMPARE(probe.exitCode, 0);
        const QJsonObject probed = QJsonDocument::fromJson(probe.out).object();
        const QJsonObject tags = probed["format"]["tags"].toObject();
        const QStringList probeKeys = {"title", "artist", "album", "album_artist",
                                       "track", "date",   "genre", "comment"};
        for (qsizetype i = 0; i < probeKeys.size(); ++i)
            QCOMPARE(tags[probeKeys[i]].toString(), expectedText()[textFrameIds()[i]]);
        const QJsonArray streams = probed["streams"].toArray();
        QCOMPARE(streams.size(), artwork.isEmpty() ? 1 : 2);
        QCOMPARE(streams[0]["codec_name"].toString(), "mp3");
        if (!artwork.isEmpty()) {
            QCOMPARE(streams[1]["codec_name"].toString(), ffmpegCodec);
            QCOMPARE(streams[1]["tags"]["comment"].toString(), "Cover (front)");
        }

        // TagLib
        TagLib::MPEG::File file(QFile::encodeName(path).constData(), false);
        QVERIFY(file.isValid());
        QVERIFY(file.hasID3v2Tag() && file.hasID3v1Tag());
        TagLib::ID3v2::Tag* v2 = file.ID3v2Tag();
        QCOMPARE(int(v2->header()->majorVersion()), 4);
        for (auto it = expectedText().begin(); it != expectedText().end(); ++it) {
            const TagLib::ID3v2::FrameList frames = v2->frameListMap()[it.key().toLatin1().constData()];
            QCOMPARE(frames.size(), 1u);
            QCOMPARE(fromTagLib(frames.front()->toString()), it.value());
        }
        const TagLib::ID3v2::FrameList pictures = v2->frameListMap()["APIC"];
        QCOMPARE(pictures.size(), artwork.isEmpty() ? 0u : 1u);
        if (!artwork.isEmpty()) {
            const auto* picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(pictures.front());
            QVERIFY(picture);
            QCOMPARE(fromTagLib(picture->mimeType()), mime);
            QCOMPARE(picture->type(), TagLib::ID3v2::AttachedPictureFrame::FrontCover);
            QVERIFY(QByteArray(picture->picture().data(), int(picture->picture().size())) == artwork);
        }
    }

    void corpus_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<qint64>("audioStart"); // where the old audio begins and ends; -1: no audio, refused
        QTest::addColumn<qint64>("audioEnd");
        QTest::addRow("ID3v2.2 with padding") << "mutagen/tests/data/id3v22-test.mp3" << 2225LL << 5120LL;
        QTest::addRow("ID3v2.3 unsynchronised tag")
            << "mutagen/tests/data/id3v23_unsynch.id3" << 186LL << 320LL;
        QTest::addRow("ID3v2.4 and ID3v1.1") << "mutagen/tests/data/id3v1v2-combined.mp3" << 2225LL << 5120LL;
        QTest::addRow("bogus extended-header flag") << "mutagen/tests/data/issue_21.id3" << 256LL << 32768LL;
        QTest::addRow("appended tag with footer, v1 inside")
            << "mutagen/tests/data/audacious-trailing-id32-id31.mp3" << 0LL << 15272LL;
        QTest::addRow("ID3v1 only") << "mutagen/tests/data/silence-44-s-v1.mp3" << 0LL << 14942LL;
        QTest::addRow("no tags") << "mutagen/tests/data/no-tags.mp3" << 0LL << 2504LL;
        QTest::addRow("zero bytes") << "mutagen/tests/data/emptyfile.mp3" << -1LL << -1LL;
        QTest::addRow("ID3v2.4 extended header, no audio")
            << "taglib/tests/data/extended-header.mp3" << -1LL << -1LL;
        QTest::addRow("tag claims more than the file")
            << "taglib/tests/data/excessive_alloc.mp3" << -1LL << -1LL;
    }

    // Each file, copied under an .mp3 name, is rewritten as its old tags' sizes say, or refused untouched.
    void corpus() {
        QFETCH(QString, file);
        QFETCH(qint64, audioStart);
        QFETCH(qint64, audioEnd);
        const QString source = fixtures::corpusFile(file);
        if (source.isEmpty())
            QSKIP("the shared corpus is not beside this checkout");
        QTemporaryDir dir;
        const QString path = dir.filePath("corpus.mp3");
        QVERIFY(QFile::copy(source, path));
        const QByteArray old = fixtures::readFile(path);
        const QByteArray artwork = fixtures::pictureBytes("JPG", Qt::darkCyan, 48);

        const std::optional<ID3TagWriter::WriteError> error =
            ID3TagWriter::write(sampleMetadata(), artwork, QUrl::fromLocalFile(path));

        if (audioStart < 0) {
            QVERIFY(error);
            QCOMPARE(error->kind, ID3TagWriter::WriteError::Kind::NoAudioFound);
            QCOMPARE(error->description(),
                     "corpus.mp3 doesn't contain any audio data after its tag. It may be "
                     "damaged; nothing was changed.");
            QVERIFY(fixtures::readFile(path) == old);
            return;
        }
        QCOMPARE(error, std::nullopt);
        const QByteArray written = fixtures::readFile(path);
        const QByteArray tag = *ID3TagWriter::buildTag(sampleMetadata(), artwork);
        QVERIFY(written.startsWith(tag));
        QVERIFY(written.endsWith(ID3TagWriter::buildID3v1Tag(sampleMetadata())));
        QVERIFY(written.mid(tag.size(), written.size() - tag.size() - 128) ==
                old.mid(audioStart, audioEnd - audioStart));
        const QJsonObject view = mutagenView(path);
        QCOMPARE(view["version"].toArray(), (QJsonArray{2, 4, 0}));
        QCOMPARE(firstText(frameNamed(view, "TIT2")), expectedText()["TIT2"]);
        QCOMPARE(view["v1"]["TRCK"].toString(), "3");
    }

private:
    QString writeSample(const QString& folder, const std::optional<QByteArray>& artwork) {
        const QString path = folder + "/song.mp3";
        if (!QFile::copy(m_song, path))
            return {};
        const std::optional<ID3TagWriter::WriteError> error =
            ID3TagWriter::write(sampleMetadata(), artwork, QUrl::fromLocalFile(path));
        return error ? QString() : path;
    }

    QTemporaryDir m_dir;
    QString m_song; // an MP3 with ffmpeg's own ID3v2 tag and an ID3v1 trailer
};

QTEST_GUILESS_MAIN(ID3TagWriterReadersTest)
#include "id3_tag_writer_readers_test.moc"

#include "ui/InspectorRules.h"

#include "support/MusicFolder.h"

#include <QTest>

namespace {

Track trackAt(const QString& path, bool missing = false, ArtworkSource source = {}) {
    Track track;
    track.setUrl(QUrl::fromLocalFile(path));
    track.isMissing = missing;
    track.setArtworkSource(source);
    return track;
}

} // namespace

// The inspector's sentences and its save rule, apart from the widgets that show them.
class InspectorRulesTest : public QObject {
    Q_OBJECT

private slots:
    void factsLine_data() {
        QTest::addColumn<FileDetails>("facts");
        QTest::addColumn<QString>("line");
        QTest::addRow("mp3") << FileDetails{"MP3", 7'300'000, 245} << "MP3 · 7.3 MB · 4:05 · ≈238 kbps";
        QTest::addRow("rate truncated")
            << FileDetails{"MP3", 1'000, 0.0159} << "MP3 · 1.0 kB · 0:00 · ≈503 kbps";
        QTest::addRow("unknown duration") << FileDetails{"MP3", 7'300'000, 0} << "MP3 · 7.3 MB";
        QTest::addRow("rate below 1 kbps") << FileDetails{"FLAC", 100, 60} << "FLAC · 100 bytes · 1:00";
        QTest::addRow("absurd rate left out")
            << FileDetails{"MP3", 1'000'000, 1e-300} << "MP3 · 1.0 MB · 0:00";
    }
    void factsLine() {
        QFETCH(FileDetails, facts);
        QFETCH(QString, line);
        QCOMPARE(::factsLine(facts), line);
    }

    void loadsFileFacts() {
        fixtures::MusicFolder music;
        Track track = trackAt(music.addFile("Song.Mp3", QByteArray(1234, 'x')));
        track.duration = 2;
        QCOMPARE(loadFileDetails(track), (FileDetails{"MP3", 1234, 2}));
        QCOMPARE(loadFileDetails(trackAt(music.filePath("gone"))), (FileDetails{"", 0, 0}));
    }

    // Save needs an MP3 on disk, no save running, and an edit or the folder image to embed; the embed box
    // shows only for a folder image of an MP3 on disk.
    void canSave_data() {
        QTest::addColumn<Track>("track");
        QTest::addColumn<bool>("edited");
        QTest::addColumn<bool>("embed");
        QTest::addColumn<bool>("saving");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<bool>("offersEmbedding");
        const ArtworkSource folder = ArtworkSource::folder(QUrl::fromLocalFile("/m/cover.jpg"));
        const Track mp3 = trackAt("/m/a.mp3", false, folder);
        QTest::addRow("edited mp3") << mp3 << true << false << false << true << true;
        QTest::addRow("upper-case extension")
            << trackAt("/m/a.MP3", false, folder) << true << false << false << true << true;
        QTest::addRow("only the embed box") << mp3 << false << true << false << true << true;
        QTest::addRow("nothing to write") << trackAt("/m/a.mp3") << false << false << false << false << false;
        QTest::addRow("embedded art") << trackAt("/m/a.mp3", false, ArtworkSource::embedded()) << true
                                      << false << false << true << false;
        QTest::addRow("missing file")
            << trackAt("/m/a.mp3", true, folder) << true << true << false << false << false;
        QTest::addRow("m4a") << trackAt("/m/a.m4a", false, folder) << true << true << false << false << false;
        QTest::addRow("no extension")
            << trackAt("/m/mp3", false, folder) << true << true << false << false << false;
        QTest::addRow("save running") << mp3 << true << false << true << false << true;
    }
    void canSave() {
        QFETCH(Track, track);
        QFETCH(bool, edited);
        QFETCH(bool, embed);
        QFETCH(bool, saving);
        QFETCH(bool, expected);
        QFETCH(bool, offersEmbedding);
        QCOMPARE(::canSave(track, edited, embed, saving), expected);
        QCOMPARE(offersArtworkEmbedding(track), offersEmbedding);
    }

    // The first case that applies wins.
    void footerNote_data() {
        QTest::addColumn<Track>("track");
        QTest::addColumn<QString>("saveError");
        QTest::addColumn<bool>("edited");
        QTest::addColumn<FooterNote>("note");
        using Kind = FooterNote::Kind;
        QTest::addRow("missing before not mp3")
            << trackAt("/m/a.m4a", true) << "boom" << true
            << FooterNote{Kind::Info, "File is missing — nothing can be saved."};
        QTest::addRow("not mp3 before the error")
            << trackAt("/m/a.M4A") << "boom" << true
            << FooterNote{Kind::Info, "Saving supports MP3 files only. This is a .m4a file."};
        QTest::addRow("no extension")
            << trackAt("/m/song") << QString() << false
            << FooterNote{Kind::Info, "Saving supports MP3 files only. This is a . file."};
        QTest::addRow("error before edits")
            << trackAt("/m/a.mp3") << "boom" << true << FooterNote{Kind::Warning, "boom"};
        QTest::addRow("edits") << trackAt("/m/a.mp3") << QString() << true
                               << FooterNote{Kind::Plain,
                                             "Changes are written into the file's ID3 tags when you save."};
        QTest::addRow("nothing to say") << trackAt("/m/a.mp3") << QString() << false << FooterNote{};
    }
    void footerNote() {
        QFETCH(Track, track);
        QFETCH(QString, saveError);
        QFETCH(bool, edited);
        QFETCH(FooterNote, note);
        QCOMPARE(::footerNote(track, saveError.isNull() ? std::nullopt : std::optional(saveError), edited),
                 note);
    }

    // One value or several; none means agreement.
    void lookupTexts() {
        RemoteMetadata remote;
        remote.sourceName = "MusicBrainz";
        QCOMPARE(lookupSummary(remote, 0), "MusicBrainz agrees with your local metadata.");
        QCOMPARE(lookupSummary(remote, 1), "MusicBrainz suggests 1 different value, shown in grey below.");
        QCOMPARE(lookupSummary(remote, 3), "MusicBrainz suggests 3 different values, shown in grey below.");
        QCOMPARE(useAllTitle(remote, 1), "Replace 1 local field with MusicBrainz data?");
        QCOMPARE(useAllTitle(remote, 3), "Replace 3 local fields with MusicBrainz data?");
        QCOMPARE(useAllButtonText(1), "Replace 1 Field");
        QCOMPARE(useAllButtonText(3), "Replace 3 Fields");
    }

    // A score of 0 means MusicBrainz gave none: no badge.
    void confidenceBadge() {
        QCOMPARE(::confidenceBadge(0), std::nullopt);
        QCOMPARE(::confidenceBadge(1), "1% match");
    }
};

QTEST_GUILESS_MAIN(InspectorRulesTest)
#include "inspector_rules_test.moc"

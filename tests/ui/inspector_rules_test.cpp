#include "ui/InspectorRules.h"

#include "support/MusicFolder.h"

#include <QTest>

namespace {

Track trackAt(const QString& path, bool missing = false, ArtworkSource source = {}) {
    Track track;
    track.url = QUrl::fromLocalFile(path);
    track.isMissing = missing;
    track.artworkSource = source;
    return track;
}

RemoteMetadata fromMusicBrainz(int confidence = 0) {
    RemoteMetadata remote;
    remote.sourceName = "MusicBrainz";
    remote.confidence = confidence;
    return remote;
}

} // namespace

// The inspector's sentences and its save rule, apart from the widgets that show them.
class InspectorRulesTest : public QObject {
    Q_OBJECT

private slots:
    void factsLine_data() {
        QTest::addColumn<FileFacts>("facts");
        QTest::addColumn<QString>("line");
        QTest::addRow("mp3") << FileFacts{"MP3", 7'300'000, 245} << "MP3 · 7.3 MB · 4:05 · ≈238 kbps";
        QTest::addRow("rate truncated") << FileFacts{"MP3", 1'000, 0.0159} << "MP3 · 1.0 kB · 0:00 · ≈503 kbps";
        QTest::addRow("unknown duration") << FileFacts{"MP3", 7'300'000, 0} << "MP3 · 7.3 MB";
        QTest::addRow("rate below 1 kbps") << FileFacts{"FLAC", 100, 60} << "FLAC · 100 bytes · 1:00";
        QTest::addRow("no extension, unreadable") << FileFacts{"", 0, 0} << " · 0 bytes";
        QTest::addRow("absurd rate left out") << FileFacts{"MP3", 1'000'000, 1e-300} << "MP3 · 1.0 MB · 0:00";
    }
    void factsLine() {
        QFETCH(FileFacts, facts);
        QFETCH(QString, line);
        QCOMPARE(::factsLine(facts), line);
    }

    void loadsFileFacts() {
        fixtures::MusicFolder music;
        Track track = trackAt(music.addFile("Song.Mp3", QByteArray(1234, 'x')));
        track.duration = 2;
        QCOMPARE(loadFileFacts(track), (FileFacts{"MP3", 1234, 2}));
        QCOMPARE(loadFileFacts(trackAt(music.filePath("gone"))), (FileFacts{"", 0, 0}));
    }

    // Save needs an MP3 on disk, no save running, and an edit or the folder image to embed.
    void canSave_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("missing");
        QTest::addColumn<bool>("edited");
        QTest::addColumn<bool>("embed");
        QTest::addColumn<bool>("saving");
        QTest::addColumn<bool>("expected");
        QTest::addRow("edited mp3") << "/m/a.mp3" << false << true << false << false << true;
        QTest::addRow("upper-case extension") << "/m/a.MP3" << false << true << false << false << true;
        QTest::addRow("only the embed box") << "/m/a.mp3" << false << false << true << false << true;
        QTest::addRow("nothing to write") << "/m/a.mp3" << false << false << false << false << false;
        QTest::addRow("missing file") << "/m/a.mp3" << true << true << true << false << false;
        QTest::addRow("m4a") << "/m/a.m4a" << false << true << true << false << false;
        QTest::addRow("no extension") << "/m/mp3" << false << true << true << false << false;
        QTest::addRow("save running") << "/m/a.mp3" << false << true << false << true << false;
    }
    void canSave() {
        QFETCH(QString, path);
        QFETCH(bool, missing);
        QFETCH(bool, edited);
        QFETCH(bool, embed);
        QFETCH(bool, saving);
        QFETCH(bool, expected);
        QCOMPARE(::canSave(trackAt(path, missing), edited, embed, saving), expected);
    }

    void offersArtworkEmbedding_data() {
        QTest::addColumn<Track>("track");
        QTest::addColumn<bool>("offered");
        const ArtworkSource folder = ArtworkSource::folder(QUrl::fromLocalFile("/m/cover.jpg"));
        QTest::addRow("folder image, mp3") << trackAt("/m/a.mp3", false, folder) << true;
        QTest::addRow("embedded") << trackAt("/m/a.mp3", false, ArtworkSource::embedded()) << false;
        QTest::addRow("none") << trackAt("/m/a.mp3") << false;
        QTest::addRow("m4a") << trackAt("/m/a.m4a", false, folder) << false;
        QTest::addRow("missing") << trackAt("/m/a.mp3", true, folder) << false;
    }
    void offersArtworkEmbedding() {
        QFETCH(Track, track);
        QFETCH(bool, offered);
        QCOMPARE(::offersArtworkEmbedding(track), offered);
    }

    // The first case that applies wins.
    void footerNote_data() {
        QTest::addColumn<Track>("track");
        QTest::addColumn<QString>("saveError");
        QTest::addColumn<FooterNote>("note");
        using Kind = FooterNote::Kind;
        QTest::addRow("missing before not mp3")
            << trackAt("/m/a.m4a", true) << "boom"
            << FooterNote{Kind::Info, "File is missing — nothing can be saved."};
        QTest::addRow("not mp3 before the error")
            << trackAt("/m/a.M4A") << "boom"
            << FooterNote{Kind::Info, "Saving supports MP3 files only. This is a .m4a file."};
        QTest::addRow("no extension")
            << trackAt("/m/song") << QString()
            << FooterNote{Kind::Info, "Saving supports MP3 files only. This is a . file."};
        QTest::addRow("error before edits")
            << trackAt("/m/a.mp3") << "boom" << FooterNote{Kind::Warning, "boom"};
        QTest::addRow("edits") << trackAt("/m/a.mp3") << QString()
                               << FooterNote{Kind::Plain,
                                             "Changes are written into the file's ID3 tags when you save."};
    }
    void footerNote() {
        QFETCH(Track, track);
        QFETCH(QString, saveError);
        QFETCH(FooterNote, note);
        QCOMPARE(::footerNote(track, saveError.isNull() ? std::nullopt : std::optional(saveError), true),
                 note);
    }

    void saysNothingWithoutEdits() {
        QCOMPARE(::footerNote(trackAt("/m/a.mp3"), std::nullopt, false), FooterNote{});
    }

    void lookupTexts_data() {
        QTest::addColumn<int>("differing");
        QTest::addColumn<QString>("summary");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("button");
        QTest::addRow("none") << 0 << "MusicBrainz agrees with your local metadata." << QString()
                              << QString();
        QTest::addRow("one") << 1 << "MusicBrainz suggests 1 different value, shown in grey below."
                             << "Replace 1 local field with MusicBrainz data?"
                             << "Replace 1 Field";
        QTest::addRow("several") << 3 << "MusicBrainz suggests 3 different values, shown in grey below."
                                 << "Replace 3 local fields with MusicBrainz data?"
                                 << "Replace 3 Fields";
    }
    void lookupTexts() {
        QFETCH(int, differing);
        QFETCH(QString, summary);
        QFETCH(QString, title);
        QFETCH(QString, button);
        QCOMPARE(lookupSummary(fromMusicBrainz(), differing), summary);
        if (differing > 0) {
            QCOMPARE(useAllTitle(fromMusicBrainz(), differing), title);
            QCOMPARE(useAllButtonText(differing), button);
        }
    }

    void confidenceBadge() {
        QCOMPARE(::confidenceBadge(0), std::nullopt);
        QCOMPARE(::confidenceBadge(1), "1% match");
        QCOMPARE(::confidenceBadge(87), "87% match");
    }
};

QTEST_GUILESS_MAIN(InspectorRulesTest)
#include "inspector_rules_test.moc"

#include "ui/TrackInspector.h"

#include "playback/MpvAudioPlayer.h"
#include "services/MetadataService.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FakeAudioPlayer.h"
#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "tags/ID3TagWriter.h"
#include "ui/InspectorModel.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

#include <memory>

using Response = LocalHttpServer::Response;

namespace {

const QByteArray searchPath = "/ws/2/recording";
const QColor orange(255, 149, 0);

// One recording as MusicBrainz answers a search: title Yesterday, artist The Beatles, album Help!, track 13,
// year 1965, genre Pop Rock.
Response recording(int score) {
    return Response::json(
        QStringLiteral(
            R"({"recordings":[{"title":"Yesterday","score":%1,"artist-credit":[{"name":"The Beatles"}],
            "releases":[{"title":"Help!","date":"1965-08-06","media":[{"track":[{"number":"13"}]}]}],
            "tags":[{"name":"pop rock","count":3}]}]})")
            .arg(score)
            .toUtf8());
}

} // namespace

// The inspector over a real store, real MP3 files and a MusicBrainz of its own on 127.0.0.1.
class TrackInspectorTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;
    std::unique_ptr<fixtures::MusicFolder> m_music;
    std::unique_ptr<LocalHttpServer> m_server;
    std::unique_ptr<MetadataService> m_service;
    std::unique_ptr<LibraryStore> m_store;
    std::unique_ptr<TrackInspector> m_dialog;

    // A song in the playlist whose file says: title Yesterday, artist "the beatles", year 1965, so that
    // the recording above differs in album, track and genre only. Its cover is the folder's image.
    Track song() {
        Track track = fixtures::trackAt(m_music->addSong("a.mp3"), "Yesterday");
        track.setArtist("the beatles");
        track.setYear("1965");
        track.setArtworkSource(ArtworkSource::folder(m_music->url("cover.jpg")));
        track.duration = 1;
        m_store->setTracks({track});
        return track;
    }

    void open(const Track& track) {
        m_dialog = std::make_unique<TrackInspector>(track, *m_store, *m_service);
        m_dialog->show();
    }

    template <typename T = QWidget> T* part(const QString& name, const QString& row = {}) const {
        const QWidget* within = row.isEmpty() ? m_dialog.get() : m_dialog->findChild<QWidget*>(row);
        return within ? within->findChild<T*>(name) : nullptr;
    }
    QString text(const QString& name, const QString& row = {}) const {
        return part<QLabel>(name, row)->text();
    }
    bool shows(const QString& name, const QString& row = {}) const { return part(name, row)->isVisible(); }
    QString lookupText() const { return text("lookupText"); }
    bool canSave() const { return part<QPushButton>("save")->isEnabled(); }
    void type(const QString& row, const QString& replacement) {
        auto* editor = part<QLineEdit>(QString(), row);
        editor->selectAll();
        QTest::keyClick(editor, Qt::Key_Backspace);
        QTest::keyClicks(editor, replacement);
    }

private slots:
    void init() {
        QVERIFY2(!fixtures::sampleSong().isEmpty(), "ffmpeg makes the songs");
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_music = std::make_unique<fixtures::MusicFolder>();
        m_server = std::make_unique<LocalHttpServer>();
        QVERIFY(m_server->start());
        m_server->serve(searchPath, recording(89));
        // A service per case, so that no case waits for the previous one's turn.
        m_service = std::make_unique<MetadataService>(m_server->url(searchPath).toString());
        m_store = std::make_unique<LibraryStore>(&m_home->settings, MpvAudioPlayer::factory(),
                                                 [](const QString&) { return std::nullopt; });
    }

    // The store goes before the settings it writes to.
    void cleanup() {
        m_dialog.reset();
        m_store.reset();
    }

    // The lookup row from "checking" to each outcome, with the match's confidence (orange below 90).
    void lookupRow_data() {
        QTest::addColumn<Response>("response"); // NeverAnswer: the service's port is closed
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("badge");
        const QString found = "MusicBrainz suggests 3 different values, shown in grey below.";
        QTest::addRow("found, unsure") << recording(89) << found << "89% match";
        QTest::addRow("found, sure") << recording(90) << found << "90% match";
        QTest::addRow("no recording")
            << Response::json(R"({"recordings":[]})")
            << "No online match found for this track. Local metadata is shown." << QString();
        QTest::addRow("offline") << Response::neverAnswer()
                                 << "No Internet music services available for metadata." << QString();
    }
    void lookupRow() {
        QFETCH(Response, response);
        QFETCH(QString, shown);
        QFETCH(QString, badge);
        if (response.kind == Response::Kind::NeverAnswer) {
            m_service = std::make_unique<MetadataService>(
                QString("http://127.0.0.1:%1/ws/2/recording").arg(LocalHttpServer::closedPort()));
        }
        m_server->serve(searchPath, response);
        open(song());
        QCOMPARE(lookupText(), "Checking online music services…");
        QTRY_COMPARE(lookupText(), shown);
        QCOMPARE(shows("useAll"), shown.contains("suggests"));
        QCOMPARE(shows("confidence") ? text("confidence") : QString(), badge);
        QCOMPARE(part<QLabel>("confidence")->palette().color(QPalette::WindowText) == orange,
                 badge.startsWith("89"));
    }

    // Suggestions follow the draft: Use takes one, typing the file's value back restores it, Use All takes
    // the rest after its confirmation. Markers, the summary and Save follow; ticking only the embed box is
    // something to save too. (Which values differ is the comparison's own test.)
    void takesSuggestions() {
        open(song());
        QTRY_VERIFY(lookupText().contains("MusicBrainz"));
        QVERIFY(shows("suggestionDot", "album") && !shows("edited", "album"));
        QCOMPARE(text("suggestion", "album"), "Help!");
        QVERIFY(!canSave());

        part<QAbstractButton>("use", "album")->click();
        QCOMPARE(part<QLineEdit>(QString(), "album")->text(), "Help!");
        QVERIFY(!shows("suggestionDot", "album") && !shows("suggestionLine", "album"));
        QVERIFY(shows("edited", "album"));
        QCOMPARE(lookupText(), "MusicBrainz suggests 2 different values, shown in grey below.");
        QVERIFY(canSave());

        type("album", "");
        QVERIFY(shows("suggestionDot", "album") && !shows("edited", "album"));
        QVERIFY(!canSave());
        part<QCheckBox>("embedFolderArtwork")->setChecked(true);
        QVERIFY(canSave());

        part<QPushButton>("useAll")->click();
        for (QAbstractButton* button : m_dialog->findChild<QMessageBox*>()->buttons()) {
            if (button->text() == "Replace 3 Fields")
                button->click(); // under any other name nothing is replaced, and the summary below says so
        }
        QCOMPARE(lookupText(), "MusicBrainz agrees with your local metadata.");
        QVERIFY(!shows("useAll"));
        QVERIFY(shows("edited", "album") && shows("edited", "genre"));
        QCOMPARE(part<QLineEdit>(QString(), "genre")->text(), "Pop Rock");
    }

    // The comment, a text box unlike the other fields, reaches the draft too.
    void commentReachesTheDraft() {
        open(song());
        part<QPlainTextEdit>(QString(), "comment")->setPlainText("1\n2");
        QCOMPARE(m_dialog->findChild<InspectorModel*>()->draft().comment, "1\n2");
    }

    // The file is written elsewhere; meanwhile the dialog shows it and cannot save twice. A failed save
    // keeps the dialog open with the store's message, in orange; Save can be tried again. (A save that
    // works, read back by mutagen, is the window's end-to-end test.)
    void showsAFailedSave() {
        const Track track = song();
        open(track);
        QFile::remove(track.url().toLocalFile());
        type("title", "Today");
        QTest::keyClick(m_dialog.get(), Qt::Key_Return);
        QVERIFY(!canSave());
        QVERIFY(shows("saving"));
        QTRY_COMPARE(text("footerNote"),
                     (ID3TagWriter::WriteError{ID3TagWriter::WriteError::Kind::Unreadable, track.url(), {}}
                          .description()));
        QCOMPARE(part<QLabel>("footerNote")->palette().color(QPalette::WindowText), orange);
        QVERIFY(m_dialog->isVisible());
        QVERIFY(canSave());
    }

    // A lookup waiting for its turn when the dialog closes is never sent.
    void closedDialogSendsNothing() {
        QVERIFY(fixtures::await(m_service->lookup("First", "", ""), 20000));
        open(song());
        QTest::keyClick(m_dialog.get(), Qt::Key_Escape);
        QVERIFY(!m_dialog->isVisible());
        QVERIFY(fixtures::await(m_service->lookup("Later", "", ""), 20000));
        QCOMPARE(m_server->requests().size(), 2);
        QVERIFY(!m_server->requests().last().target.contains("Yesterday"));
    }
};

QTEST_MAIN(TrackInspectorTest)
#include "track_inspector_test.moc"

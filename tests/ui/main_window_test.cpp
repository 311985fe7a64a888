// The main window over a real store, engine and update checker, with a scripted audio player and file
// dialogs that answer in place of the user: commands and their enabled states, the list's visibility,
// the search field, the status line and every alert.
#include "playback/PlayerEngine.h"
#include "services/MetadataService.h"
#include "services/UpdateChecker.h"
#include "store/LibraryStore.h"
#include "ui/MainWindow.h"
#include "ui/WindowActions.h"

#include "support/FakeAudioPlayer.h"
#include "support/ScratchHome.h"

#include <QAction>
#include <QDesktopServices>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTest>
#include <QToolButton>

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<fixtures::ScratchHome> m_home;
    fixtures::FakeAudioBackend m_backend;
    std::optional<QUrl> m_saveAnswer; // what the save dialog answers
    QList<QUrl> m_chosenMusic;        // what the Add Music dialog answers
    std::optional<QUrl> m_chosenPlaylist;
    std::unique_ptr<LibraryStore> m_store;
    std::unique_ptr<UpdateChecker> m_updater;
    std::unique_ptr<MetadataService> m_metadata;
    std::unique_ptr<MainWindow> m_window;
    QList<QUrl> m_opened; // addresses handed to the desktop

    WindowActions& actions() { return m_window->actions(); }
    PlayerEngine& engine() { return *m_store->engine(); }

    // Three songs of 60 s each, as a list with changes not yet saved to a file.
    void fillPlaylist() {
        QList<Track> tracks;
        for (const QString name : {"a", "b", "c", "d"}) {
            tracks << fixtures::trackAt(m_home->dir.filePath(name + ".mp3"), name.toUpper(), true);
            tracks.last().duration = 60;
        }
        m_store->setTracks(tracks);
        m_store->remove({tracks.last().id});
    }

    // A playlist of two songs, each new.mp3 beside it.
    QString writePlaylist(const QString& name) {
        QFile playlist(m_home->dir.filePath(name));
        playlist.open(QIODevice::WriteOnly);
        playlist.write("new.mp3\nnew.mp3\n");
        return playlist.fileName();
    }

    QMessageBox* alert(const QString& name) { return m_window->findChild<QMessageBox*>(name); }

    void press(const QString& name, const QString& button) {
        QMessageBox* box = alert(name);
        QVERIFY2(box && box->isVisible(), qPrintable(name));
        const QList<QAbstractButton*> buttons = box->buttons();
        const auto it = std::find_if(buttons.begin(), buttons.end(),
                                     [&](QAbstractButton* b) { return b->text() == button; });
        QVERIFY2(it != buttons.end(), qPrintable(button));
        (*it)->click();
        QTRY_VERIFY(!alert(name));
    }

public slots:
    void openUrl(const QUrl& url) { m_opened << url; }

private slots:
    void initTestCase() {
        QDesktopServices::setUrlHandler("https", this, "openUrl");
        qputenv("ORVELLE_UPDATE_FEED_URL", "http://127.0.0.1:9/appcast.json");
    }
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler("https"); }

    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_saveAnswer.reset();
        m_chosenMusic.clear();
        m_chosenPlaylist.reset();
        m_opened.clear();
        m_store = std::make_unique<LibraryStore>(&m_home->settings, m_backend.factory(),
                                                 [this](const QString&) { return m_saveAnswer; });
        m_updater = std::make_unique<UpdateChecker>(&m_home->settings, "1.0");
        m_metadata = std::make_unique<MetadataService>("http://127.0.0.1:9/ws/2/recording");
        FileDialogs dialogs;
        dialogs.choosePlaylistFile = [this](QWidget*) { return m_chosenPlaylist; };
        dialogs.chooseMusicFiles = [this](QWidget*) { return m_chosenMusic; };
        m_window = std::make_unique<MainWindow>(*m_store, *m_updater, *m_metadata, dialogs, m_home->settings);
    }
    void cleanup() {
        m_window.reset();
        m_metadata.reset();
        m_updater.reset();
        m_store.reset();
    }

    // The playlist commands wait for songs; Check for Updates waits for a check to end.
    void enabledStates() {
        WindowActions& a = actions();
        for (const bool full : {false, true}) {
            if (full)
                fillPlaylist();
            for (QAction* action : {a.closePlaylist, a.savePlaylist, a.savePlaylistAs, a.playPause})
                QVERIFY2(action->isEnabled() == full, qPrintable(action->text()));
        }
        m_updater->checkNow();
        QVERIFY(!a.checkForUpdates->isEnabled());
        QTRY_VERIFY(a.checkForUpdates->isEnabled());
    }

    // Space plays and pauses, except in a text field, which takes it as text. The menu item says what it
    // will do. (Ctrl+F and Escape in the search field are the end-to-end test's.)
    void playbackCommands() {
        fillPlaylist();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        auto* search = m_window->findChild<QLineEdit*>("search");
        search->setFocus();
        QTest::keyClick(search, Qt::Key_Space);
        QCOMPARE(search->text(), " ");
        QVERIFY(!engine().isPlaying());
        m_window->setFocus();
        QTest::keyClick(m_window.get(), Qt::Key_Space);
        QVERIFY(engine().isPlaying());
        QCOMPARE(actions().playPause->text(), "Pause");
        QTest::keyClick(m_window.get(), Qt::Key_Space); // loaded but paused
        QCOMPARE(actions().playPause->text(), "Play");
        actions().repeatOne->trigger();
        QVERIFY(engine().repeatMode() == RepeatMode::One);
    }

    // The View menu's item flips the stored preference; absent counts as shown. A search shows a hidden
    // list and hides it again when cleared, unless the user showed it.
    void listVisibility() {
        actions().toggleSongList->trigger();
        QCOMPARE(m_home->settings.value(MainWindow::songListVisibleKey), QVariant(false));
        QVERIFY(!m_window->isListVisible());
        fillPlaylist();
        QCOMPARE(m_window->findChild<QLabel*>("hiddenCaption")->text(), "3 songs hidden");
        QCOMPARE(m_window->findChild<QToolButton*>("listToggle")->toolTip(), "Show the song list");
        auto* search = m_window->findChild<QLineEdit*>("search");
        search->setText("be");
        QVERIFY(m_window->isListVisible());
        search->clear();
        QVERIFY(!m_window->isListVisible());
        actions().toggleSongList->trigger();
        search->setText("be");
        search->clear();
        QVERIFY(m_window->isListVisible());
    }

    // Started with the list hidden, the window opens at its fixed part's height. Hiding the list shrinks
    // the window to that part, keeping its top; showing it restores it.
    void hidingResizesWindow() {
        m_home->settings.setValue(MainWindow::songListVisibleKey, false);
        MainWindow window(*m_store, *m_updater, *m_metadata, FileDialogs{}, m_home->settings);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTRY_VERIFY(window.height() < 300);
        window.setListVisible(true);
        QTRY_VERIFY(window.height() > 500);
        const QRect shown = window.geometry();
        window.setListVisible(false);
        QTRY_VERIFY(window.height() < 300);
        QCOMPARE(window.geometry().top(), shown.top());
        window.setListVisible(true);
        QTRY_COMPARE(window.geometry(), shown);
    }

    void titleAndSubtitle() {
        QCOMPARE(m_window->subtitle(), "0 songs");
        QCOMPARE(m_window->windowTitle(), "Untitled Playlist[*]");
        fillPlaylist();
        QCOMPARE(m_window->subtitle(), "3 songs · 3:00");
        m_saveAnswer = QUrl::fromLocalFile(m_home->dir.filePath("Mix.m3u8"));
        m_store->save();
        QCOMPARE(m_window->windowTitle(), "Mix[*]");
        QVERIFY(!m_window->isWindowModified());
        m_store->moveTrack(m_store->tracks().first().id, 1);
        QVERIFY(m_window->isWindowModified());
        QVERIFY2(m_window->subtitle().startsWith("3 songs · 3:00 · Edited"),
                 qPrintable(m_window->subtitle()));
        // A song that cannot be played says why there.
        m_backend.unreadable.insert(m_store->tracks().first().url().toLocalFile(), "Broken file.");
        engine().playTrackAt(0);
        QVERIFY2(m_window->subtitle().contains("Broken file."), qPrintable(m_window->subtitle()));
    }

    void closeConfirmation_data() {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("saveChosen");
        QTest::addColumn<int>("songsLeft");
        QTest::addRow("close without saving") << "Close Without Saving" << false << 0;
        QTest::addRow("cancel") << "Cancel" << false << 3;
        QTest::addRow("save first, dialog cancelled") << "Save First…" << false << 3;
        QTest::addRow("save first, saved") << "Save First…" << true << 0;
    }
    void closeConfirmation() {
        QFETCH(QString, button);
        QFETCH(bool, saveChosen);
        QFETCH(int, songsLeft);
        fillPlaylist();
        if (saveChosen)
            m_saveAnswer = QUrl::fromLocalFile(m_home->dir.filePath("Saved.m3u8"));
        actions().closePlaylist->trigger();
        press("closeConfirmation", button);
        QCOMPARE(m_store->tracks().size(), songsLeft);
        QVERIFY(!m_store->pendingClearConfirmation());
        QCOMPARE(QFile::exists(m_home->dir.filePath("Saved.m3u8")), saveChosen);
    }

    void replaceConfirmation() {
        fillPlaylist();
        m_store->requestOpenPlaylist(QUrl::fromLocalFile(writePlaylist("other.m3u")));
        press("replaceConfirmation", "Replace");
        QVERIFY(m_store->pendingOpenURL().isEmpty());
        QTRY_COMPARE(m_store->tracks().size(), 2);
    }

    // Each row is named after the button it presses.
    void updateAvailable_data() {
        QTest::addColumn<bool>("notesUrl");
        QTest::addColumn<QUrl>("opened");
        QTest::addColumn<QString>("skipped");
        QTest::addRow("Download") << false << QUrl("https://example.org/2.0.deb") << QString();
        QTest::addRow("What's New") << true << QUrl("https://example.org/notes") << QString();
        QTest::addRow("Skip This Version") << true << QUrl() << "2.0";
    }
    void updateAvailable() {
        QFETCH(bool, notesUrl);
        QFETCH(QUrl, opened);
        QFETCH(QString, skipped);
        const std::optional<QUrl> notes =
            notesUrl ? std::optional(QUrl("https://example.org/notes")) : std::nullopt;
        m_updater->setAvailableUpdate(
            UpdateChecker::Release{"2.0", QUrl("https://example.org/2.0.deb"), {}, {}, notes, "Faster."});
        QMessageBox* box = alert("updateAvailable");
        QCOMPARE(box->informativeText(), "Version 2.0 is available. You have 1.0.\n\nFaster.");
        QCOMPARE(box->buttons().size(), notesUrl ? 4 : 3);
        press("updateAvailable", QTest::currentDataTag());
        QCOMPARE(m_opened, opened.isEmpty() ? QList<QUrl>() : QList<QUrl>{opened});
        QCOMPARE(m_home->settings.value(UpdateChecker::skippedVersionKey).toString(), skipped);
        QVERIFY(!m_updater->availableUpdate());
    }

    // The file commands hand what the dialogs chose to the store: Add Music adds, Add Songs from
    // Playlist appends the playlist's songs, Open Playlist replaces the (saved) list.
    void fileCommands() {
        const QString song = m_home->dir.filePath("new.mp3");
        QFile(song).open(QIODevice::WriteOnly);
        m_chosenMusic = {QUrl::fromLocalFile(song)};
        m_chosenPlaylist = QUrl::fromLocalFile(writePlaylist("list.m3u"));
        actions().addMusic->trigger();
        QTRY_COMPARE(m_store->tracks().size(), 1);
        actions().addSongsFromPlaylist->trigger();
        QTRY_COMPARE(m_store->tracks().size(), 3);
        m_store->clear();
        m_store->setTracks({fixtures::trackAt(song)});
        actions().openPlaylist->trigger();
        QTRY_COMPARE(m_store->playlistURL(), m_chosenPlaylist);
        QCOMPARE(m_store->tracks().size(), 2);
    }

    // The two one-button alerts: the manual check's result and the store's error.
    void messages() {
        m_updater->setManualCheckResult(QString("You're up to date."));
        QCOMPARE(alert("updateResult")->informativeText(), "You're up to date.");
        press("updateResult", "OK");
        QVERIFY(!m_updater->manualCheckResult());
        m_store->setErrorMessage("The file could not be saved.");
        QCOMPARE(alert("error")->text(), "Something went wrong");
        press("error", "OK");
        QVERIFY(m_store->errorMessage().isEmpty());
    }
};

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"

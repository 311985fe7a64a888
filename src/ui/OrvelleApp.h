#pragma once

#include "playback/AudioPlayer.h"
#include "ui/FileDialogs.h"

#include <QList>
#include <QObject>
#include <QUrl>

#include <memory>

class LibraryStore;
class MainWindow;
class NowPlaying;
class QSettings;
class UpdateChecker;

// The program's long-lived objects, made in this order: the playlist store (with its player engine), the
// update checker, the desktop's media controls (MPRIS), then the window. Once the window is first shown
// the last session is restored and the update check runs if due, side by side.
//
// Files to open (command line, another launch, MPRIS OpenUri) wait until the session is back, so the
// restored list does not replace them. Main thread only.
class OrvelleApp : public QObject {
    Q_OBJECT
public:
    OrvelleApp(QSettings& settings, AudioPlayerFactory audio, FileDialogs dialogs, QObject* parent = nullptr);
    ~OrvelleApp() override;

    // Shows the window and starts the restore and the update check.
    void start();
    // Opens or adds `urls` as a drop on the window would, once the session is restored.
    void open(const QList<QUrl>& urls);
    // Brings the window to the front.
    void raise();

    LibraryStore& store() const { return *m_store; }
    UpdateChecker& updater() const { return *m_updater; }
    MainWindow& window() const { return *m_window; }

signals:
    // The session file's songs are in the list (or there was none to restore).
    void sessionRestored();

private:
    // Made in this order and so destroyed the other way round: the window, which observes the others,
    // goes first, and the media controls before the store's engine.
    std::unique_ptr<LibraryStore> m_store;
    std::unique_ptr<UpdateChecker> m_updater;
    std::unique_ptr<NowPlaying> m_nowPlaying;
    std::unique_ptr<MainWindow> m_window;
    bool m_restored = false;
    QList<QUrl> m_waiting;
};

#pragma once

#include "ui/FileDialogs.h"

#include <QObject>

#include <functional>

class LibraryStore;
class PlayerEngine;
class QAction;
class QActionGroup;
class QMenuBar;
class QWidget;
class UpdateChecker;

// The window's commands: each with its text, shortcut, enabled rule and action, shared by the menu bar
// and the toolbar. Every action calls an operation of the store, the engine or the update checker; the
// window supplies what only it can do (the About box, the song list's visibility).
class WindowActions : public QObject {
    Q_OBJECT
public:
    struct WindowHooks {
        std::function<void()> showAbout;
        std::function<void()> toggleSongList;
    };

    WindowActions(LibraryStore& store, UpdateChecker& updater, FileDialogs dialogs, QWidget* window,
                  WindowHooks hooks);

    // File, View, Playback and Help, in that order.
    void fillMenuBar(QMenuBar* bar) const;

    // File
    QAction* closePlaylist;
    QAction* addMusic;
    QAction* addFolder;
    QAction* openPlaylist;
    QAction* addSongsFromPlaylist;
    QAction* openPlaylistReplacing; // the toolbar's wording of Open Playlist
    QAction* savePlaylist;
    QAction* savePlaylistAs;
    QAction* quit;
    // View
    QAction* toggleSongList;
    // Playback
    QAction* playPause;
    QAction* next;
    QAction* previous;
    QAction* skipForward;
    QAction* skipBack;
    QAction* shuffle;
    QAction* repeatOff;
    QAction* repeatAll;
    QAction* repeatOne;
    QAction* volumeUp;
    QAction* volumeDown;
    // Help
    QAction* about;
    QAction* checkForUpdates;

private:
    QAction* make(const QString& text, const QKeySequence& shortcut, std::function<void()> action);
    void refresh();

    LibraryStore& m_store;
    PlayerEngine& m_engine;
    UpdateChecker& m_updater;
    FileDialogs m_dialogs;
    QWidget* m_window;
    QActionGroup* m_repeat;
};

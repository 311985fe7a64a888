#pragma once

#include <QList>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QWidget;

// The four file dialogs the window and its menus run. Each is modal and returns once the user has
// closed it; cancelling yields nothing. Held as functions so tests can answer in place of the user.
struct FileDialogs {
    // Several playable files or folders; empty when cancelled.
    std::function<QList<QUrl>(QWidget* parent)> chooseMusicFiles;
    // Several folders; empty when cancelled.
    std::function<QList<QUrl>(QWidget* parent)> chooseFolders;
    // One playlist file.
    std::function<std::optional<QUrl>(QWidget* parent)> choosePlaylistFile;
    // Where to save the playlist, its extension settled (see playlistSaveUrl).
    std::function<std::optional<QUrl>(QWidget* parent, const QString& suggestedName)> chooseSaveDestination;

    // The desktop's own dialogs where Qt offers them (the portal), Qt's otherwise.
    static FileDialogs system();
};

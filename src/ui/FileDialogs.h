#pragma once

#include <QList>
#include <QString>
#include <QStringList>
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

// The file the save dialog's answer stands for: kept when its extension (in any case) is a playlist
// extension, otherwise with ".m3u8" appended, so "Mix.txt" is saved as "Mix.txt.m3u8".
QUrl playlistSaveUrl(const QUrl& chosen);

// Name filters standing in for file types: the fifteen playable extensions (nothing else may be chosen),
// and the playlist extensions followed by "All files" (the user may still pick any file).
QStringList audioNameFilters();
QStringList playlistNameFilters();

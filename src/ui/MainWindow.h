#pragma once

#include "ui/FileDialogs.h"

#include <QMainWindow>

class LibraryStore;
class MetadataService;
class UpdateChecker;

// The program's one window: its menus, toolbar and status line, the transport bar, the song list and
// every dialog the playlist and the update checker ask for. Closing it quits the program.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(LibraryStore& store, UpdateChecker& updater, MetadataService& metadata, FileDialogs dialogs,
               QWidget* parent = nullptr);
};

#include "ui/MainWindow.h"

MainWindow::MainWindow(LibraryStore&, UpdateChecker&, MetadataService&, FileDialogs, QWidget* parent)
    : QMainWindow(parent) {}

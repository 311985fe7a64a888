#pragma once

#include <QList>
#include <QUrl>

// Shows files selected in the desktop's file manager, through org.freedesktop.FileManager1.ShowItems on the
// session bus. Without a file manager answering there, the folder of the first file is opened instead
// (QDesktopServices, which needs a QGuiApplication). Returns at once; main thread.
namespace FileBrowser {

void showItems(const QList<QUrl>& files);

} // namespace FileBrowser

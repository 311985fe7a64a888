#pragma once

#include <QList>
#include <QUrl>

class LibraryStore;

// Files dropped on the window or handed to the program (command line, second launch, MPRIS OpenUri):
// the first playlist file among them is opened, replacing the list when the list is empty or nothing
// but playlists came, appending otherwise, and the other files of that batch are left out; without a
// playlist file, everything is added at the end.
void handleIncomingURLs(LibraryStore& store, const QList<QUrl>& urls);

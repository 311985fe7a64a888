#pragma once

#include <QList>
#include <QUrl>

// The playable files among URLs the user chose, in the order given: a file is kept when its extension is
// playable; a folder is replaced by the playable files found in it and all its subfolders, sorted by path in
// natural order (NaturalOrder.h); a URL with nothing on disk is dropped. Hidden entries (names beginning
// with a dot) are skipped with everything inside them, symbolic links to folders are followed but no folder
// is visited twice (so link cycles end), and a folder that cannot be read adds nothing. Duplicates stay.
// Blocking file-system work; safe from any thread.
QList<QUrl> collectPlayableFiles(const QList<QUrl>& urls);

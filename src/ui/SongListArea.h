#pragma once

#include "library/Track.h"

#include <QWidget>

class CoverThumbnails;
class LibraryStore;
class PlayerEngine;
struct FileDialogs;

// The lower part of the main window: the playlist's songs (or the empty view, or the no-matches
// message), with search filtering, selection, the row controls and menu, reordering and file drops.
class SongListArea : public QWidget {
    Q_OBJECT
public:
    SongListArea(LibraryStore& store, PlayerEngine& engine, CoverThumbnails& covers,
                 const FileDialogs& dialogs, QWidget* parent = nullptr);

    // Shows only the songs matching the search field's text (empty: all of them).
    void setSearchText(const QString& text);

signals:
    // The user asked to see and edit a song's tags.
    void inspectRequested(const Track& track);
    // Where the rows' titles start, so the transport bar can line up with them.
    void artworkLeadingChanged(int inset);
};

#pragma once

#include "library/Track.h"

#include <QSet>
#include <QUuid>
#include <QWidget>

class ContentUnavailableMessage;
class CoverThumbnails;
class DropHighlightOverlay;
class EmptyPlaylistView;
class LibraryStore;
class PlayerEngine;
class PlayingIndicator;
class QListView;
class QMenu;
class QStackedWidget;
class SongListView;
class TrackFilterModel;
class TrackListModel;
class TrackRowDelegate;
struct FileDialogs;

// The lower part of the main window: the playlist's songs (or the empty view, or the no-matches
// message), with search filtering, selection, the row controls and menu, reordering and file drops.
// It holds only view state (selection, search text, drag target); every change goes through the store.
class SongListArea : public QWidget {
    Q_OBJECT
public:
    enum class Page { Empty, NoMatches, List };

    SongListArea(LibraryStore& store, PlayerEngine& engine, CoverThumbnails& covers,
                 const FileDialogs& dialogs, QWidget* parent = nullptr);
    ~SongListArea() override;

    // Shows only the songs matching the search field's text (empty: all of them).
    void setSearchText(const QString& text);

    Page page() const;
    QListView* listView() const;
    EmptyPlaylistView* emptyView() const { return m_empty; }
    ContentUnavailableMessage* noMatchesMessage() const { return m_noMatches; }
    const PlayingIndicator& playingIndicator() const { return *m_indicator; }
    // Files are being dragged over the area.
    bool isDropTargeted() const { return m_dropTargeted; }

    QSet<QUuid> selectedIds() const;
    // The context menu of the song at `row` of the list as shown (deleted when closed).
    QMenu* rowMenu(int row);

signals:
    // The user asked to see and edit a song's tags.
    void inspectRequested(const Track& track);
    // Where the rows' titles start, so the transport bar can line up with them.
    void artworkLeadingChanged(int inset);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    Track trackAt(const QModelIndex& index) const;
    // "Remove from Playlist" and a row's remove button: the whole selection when it holds the row.
    void removeRow(const QModelIndex& index);
    void removeSelection();
    void showPage();
    void setDropTargeted(bool targeted);
    void followListSize();
    void reportArtworkLeading();
    void followIndicator();
    void repaintIndicator();

    LibraryStore& m_store;
    PlayerEngine& m_engine;
    TrackListModel* m_model;
    TrackFilterModel* m_filter;
    PlayingIndicator* m_indicator;
    TrackRowDelegate* m_delegate;
    SongListView* m_view;
    EmptyPlaylistView* m_empty;
    ContentUnavailableMessage* m_noMatches;
    QStackedWidget* m_pages;
    DropHighlightOverlay* m_overlay;
    bool m_dropTargeted = false;
    int m_numberDigits = 0;
    int m_artworkLeading = -1;
};

#pragma once

#include "ui/TrackRowLayout.h"

#include <QListView>
#include <QPersistentModelIndex>
#include <QUuid>

class QMimeData;
class TrackListModel;
class TrackRowDelegate;

// The list of song rows. Turns clicks on a row's controls into signals (the delegate's geometry says
// which control), starts reorder drags from the grip only, shows the 2-point insertion line under a
// reorder drag and accepts or refuses its drop. Dropped files are left to the parent widget.
class SongListView : public QListView {
    Q_OBJECT
public:
    SongListView(const TrackListModel& tracks, TrackRowDelegate& delegate, QWidget* parent = nullptr);

    // What a grip drag carries: the song's id as a UUID string.
    static QMimeData* reorderPayload(const QUuid& id);

signals:
    void infoClicked(const QModelIndex& index);
    void removeClicked(const QModelIndex& index);
    // A double click on a row, or Enter on the current row.
    void playRequested(const QModelIndex& index);
    // The Delete key: remove the selection.
    void deleteRequested();
    // The context menu key or a right click; `index` may be invalid (below the last row).
    void menuRequested(const QModelIndex& index, const QPoint& globalPos);
    // A reorder drop was accepted: `dragged` goes where `onto` stands.
    void reorderDropped(const QUuid& dragged, const QModelIndex& onto);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    TrackRowLayout::Part partAt(const QModelIndex& index, QPoint pos) const;
    // The id a reorder payload names, or a null id when it names none.
    static QUuid payloadId(const QMimeData* mime);
    void setDropTarget(const QModelIndex& target, const QUuid& dragged);

    const TrackListModel& m_tracks;
    TrackRowDelegate& m_delegate;
    QPersistentModelIndex m_pressedIndex; // a press on one of a row's controls
    TrackRowLayout::Part m_pressedPart = TrackRowLayout::Part::None;
    QPoint m_pressPos;
    QPersistentModelIndex m_dropTarget; // the row under a reorder drag (`dropTargetID`)
    bool m_lineBelow = false;           // the dragged song lies above the target: the line is at its bottom
};

#include "ui/SongListView.h"

#include "ui/TrackListModel.h"
#include "ui/TrackRowDelegate.h"

#include <QApplication>
#include <QDrag>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>

namespace {

constexpr int insertionLineHeight = 2;

// The parts of a row a press acts on by itself, leaving the selection alone.
bool isControl(TrackRowLayout::Part part) {
    using Part = TrackRowLayout::Part;
    return part == Part::Info || part == Part::Remove || part == Part::Grip || part == Part::Warning;
}

QUuid rowId(const QModelIndex& index) {
    return index.data(TrackListModel::TrackRole).value<Track>().id;
}

} // namespace

SongListView::SongListView(const TrackListModel& tracks, TrackRowDelegate& delegate, QWidget* parent)
    : QListView(parent)
    , m_tracks(tracks)
    , m_delegate(delegate) {
    setItemDelegate(&delegate);
    setUniformItemSizes(true); // every row is as tall as the first: layout costs nothing per row
    setSelectionMode(ExtendedSelection);
    setAlternatingRowColors(true);
    setEditTriggers(NoEditTriggers);
    setDragEnabled(false); // only the grip starts drags
    setAcceptDrops(true);
    setDropIndicatorShown(false);
}

QMimeData* SongListView::reorderPayload(const QUuid& id) {
    auto* mime = new QMimeData;
    mime->setText(id.toString(QUuid::WithoutBraces));
    return mime;
}

QUuid SongListView::payloadId(const QMimeData* mime) {
    if (!mime || !mime->hasText())
        return {};
    // The first item of the payload; anything that is not a UUID string refuses the drop.
    return QUuid::fromString(mime->text().section(QLatin1Char('\n'), 0, 0).trimmed());
}

TrackRowLayout::Part SongListView::partAt(const QModelIndex& index, QPoint pos) const {
    if (!index.isValid())
        return TrackRowLayout::Part::None;
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.rect = visualRect(index);
    return m_delegate.layout(option, index).partAt(pos);
}

void SongListView::mousePressEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    const TrackRowLayout::Part part = partAt(index, event->position().toPoint());
    if (event->button() == Qt::LeftButton && isControl(part)) {
        // A control acts on its row without changing the selection.
        m_pressedIndex = index;
        m_pressedPart = part;
        m_pressPos = event->position().toPoint();
        event->accept();
        return;
    }
    QListView::mousePressEvent(event);
}

void SongListView::mouseMoveEvent(QMouseEvent* event) {
    if (m_pressedPart == TrackRowLayout::Part::None) {
        QListView::mouseMoveEvent(event);
        return;
    }
    const bool farEnough =
        (event->position().toPoint() - m_pressPos).manhattanLength() >= QApplication::startDragDistance();
    if (m_pressedPart == TrackRowLayout::Part::Grip && m_delegate.canReorder() && farEnough &&
        m_pressedIndex.isValid()) {
        const QUuid id = rowId(m_pressedIndex);
        m_pressedPart = TrackRowLayout::Part::None;
        auto* drag = new QDrag(this);
        drag->setMimeData(reorderPayload(id));
        drag->setPixmap(viewport()->grab(visualRect(m_pressedIndex))); // the row travels with the pointer
        drag->exec(Qt::MoveAction);
    }
}

void SongListView::mouseReleaseEvent(QMouseEvent* event) {
    if (m_pressedPart == TrackRowLayout::Part::None) {
        QListView::mouseReleaseEvent(event);
        return;
    }
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index == m_pressedIndex && partAt(index, event->position().toPoint()) == m_pressedPart) {
        if (m_pressedPart == TrackRowLayout::Part::Info)
            emit infoClicked(index);
        else if (m_pressedPart == TrackRowLayout::Part::Remove)
            emit removeClicked(index);
    }
    m_pressedPart = TrackRowLayout::Part::None;
    m_pressedIndex = QPersistentModelIndex();
}

void SongListView::mouseDoubleClickEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (isControl(partAt(index, event->position().toPoint())))
        return;
    QListView::mouseDoubleClickEvent(event);
    if (index.isValid() && event->button() == Qt::LeftButton)
        emit playRequested(index);
}

void SongListView::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        emit deleteRequested();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (currentIndex().isValid())
            emit playRequested(currentIndex());
        return;
    default:
        QListView::keyPressEvent(event);
    }
}

void SongListView::contextMenuEvent(QContextMenuEvent* event) {
    const QModelIndex index =
        event->reason() == QContextMenuEvent::Keyboard ? currentIndex() : indexAt(event->pos());
    const QPoint at = event->reason() == QContextMenuEvent::Keyboard && index.isValid()
                          ? viewport()->mapToGlobal(visualRect(index).center())
                          : event->globalPos();
    emit menuRequested(index, at);
}

void SongListView::dragEnterEvent(QDragEnterEvent* event) {
    // Files go to the parent (the whole area takes them); reorder drags only while reordering is on.
    if (event->mimeData()->hasUrls() || !event->mimeData()->hasText() || !m_delegate.canReorder()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
}

void SongListView::dragMoveEvent(QDragMoveEvent* event) {
    const QPoint pos = event->position().toPoint();
    const QRect edges = viewport()->rect().adjusted(0, autoScrollMargin(), 0, -autoScrollMargin());
    if (hasAutoScroll() && !edges.contains(pos))
        startAutoScroll(); // scrolls while the pointer stays near the top or bottom edge
    const QModelIndex target = indexAt(pos);
    setDropTarget(target, payloadId(event->mimeData()));
    event->acceptProposedAction();
}

void SongListView::dragLeaveEvent(QDragLeaveEvent*) {
    setDropTarget({}, {});
}

void SongListView::dropEvent(QDropEvent* event) {
    setDropTarget({}, {});
    const QModelIndex target = indexAt(event->position().toPoint());
    const QUuid dragged = payloadId(event->mimeData());
    if (!m_delegate.canReorder() || dragged.isNull() || !target.isValid()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    emit reorderDropped(dragged, target);
}

void SongListView::setDropTarget(const QModelIndex& target, const QUuid& dragged) {
    if (m_dropTarget.isValid())
        viewport()->update(visualRect(m_dropTarget));
    // No line on the dragged song itself.
    m_dropTarget = target.isValid() && rowId(target) != dragged ? QPersistentModelIndex(target)
                                                                : QPersistentModelIndex();
    if (!m_dropTarget.isValid())
        return;
    const int draggedRow = m_tracks.rowOf(dragged);
    m_lineBelow = draggedRow >= 0 && draggedRow < target.data(TrackListModel::NumberRole).toInt() - 1;
    viewport()->update(visualRect(m_dropTarget));
}

void SongListView::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    if (!m_dropTarget.isValid())
        return;
    const QRect row = visualRect(m_dropTarget);
    const int y = m_lineBelow ? row.bottom() + 1 - insertionLineHeight : row.top();
    QPainter painter(viewport());
    painter.fillRect(QRect(row.left(), y, row.width(), insertionLineHeight),
                     palette().color(QPalette::Highlight));
}

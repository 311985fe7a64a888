#pragma once

#include "ui/TrackRowLayout.h"

#include <QIcon>
#include <QStyledItemDelegate>

class CoverThumbnails;
class PlayingIndicator;

// Paints one song row (`TrackRow`): the number or the playing indicator, the cover (a placeholder until
// its thumbnail is ready), the display title with the artist and album below, the missing-file warning,
// and the info, remove and drag-grip controls. Tooltips come from the same geometry; clicks are the
// view's (SongListView), which asks partAt.
class TrackRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    TrackRowDelegate(CoverThumbnails& covers, PlayingIndicator& indicator, QObject* parent = nullptr);

    // Drag reordering is allowed (no search): the grip is drawn enabled and says so.
    void setCanReorder(bool canReorder) { m_canReorder = canReorder; }
    bool canReorder() const { return m_canReorder; }
    // Digits of the largest number, so every row's text column starts at the same place.
    void setNumberDigits(int digits) { m_numberDigits = digits; }

    TrackRowLayout layout(const QStyleOptionViewItem& option, const QModelIndex& index) const;
    // The row's help text at `part`, or an empty string.
    QString helpText(TrackRowLayout::Part part) const;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

private:
    void paintCover(QPainter& painter, const QRect& rect, const QModelIndex& index, const QWidget* widget,
                    const QPalette& palette) const;
    void paintGrip(QPainter& painter, const QRect& rect, const QColor& color) const;

    CoverThumbnails& m_covers;
    PlayingIndicator& m_indicator;
    // Looked up once: a theme lookup per painted row would cost more than the row.
    QIcon m_warningIcon;
    QIcon m_infoIcon;
    QIcon m_removeIcon;
    QIcon m_placeholderIcon;
    bool m_canReorder = true;
    int m_numberDigits = 2;
};

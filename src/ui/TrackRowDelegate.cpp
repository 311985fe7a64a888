#include "ui/TrackRowDelegate.h"

#include "ui/CoverThumbnails.h"
#include "ui/Icons.h"
#include "ui/PlayingIndicator.h"
#include "ui/TrackListModel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

namespace {

constexpr int coverRadius = 4;

// The text colour at the opacity of the secondary, tertiary and quaternary styles.
QColor faded(QColor color, double opacity) {
    color.setAlphaF(color.alphaF() * opacity);
    return color;
}

void paintIcon(QPainter& painter, const QRect& rect, const QIcon& icon, QIcon::Mode mode = QIcon::Normal) {
    const int side = TrackRowGeometry::iconSide;
    const QRect iconRect(rect.center() - QPoint(side / 2, side / 2), QSize(side, side));
    icon.paint(&painter, iconRect, Qt::AlignCenter, mode);
}

} // namespace

TrackRowDelegate::TrackRowDelegate(CoverThumbnails& covers, PlayingIndicator& indicator, QObject* parent)
    : QStyledItemDelegate(parent)
    , m_covers(covers)
    , m_indicator(indicator)
    , m_warningIcon(Icons::named(QStringLiteral("dialog-warning")))
    , m_infoIcon(Icons::named(QStringLiteral("dialog-information")))
    , m_removeIcon(Icons::named(QStringLiteral("user-trash")))
    , m_placeholderIcon(Icons::named(QStringLiteral("audio-x-generic"))) {}

TrackRowLayout TrackRowDelegate::layout(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const bool missing = index.data(TrackListModel::TrackRole).value<Track>().isMissing;
    return TrackRowGeometry::layout(option.rect, option.font, m_numberDigits, missing);
}

QString TrackRowDelegate::helpText(TrackRowLayout::Part part) const {
    switch (part) {
    case TrackRowLayout::Part::Warning:
        return QStringLiteral("This file isn't at the path saved in the playlist.");
    case TrackRowLayout::Part::Info:
        return QStringLiteral("Show and edit this file's metadata");
    case TrackRowLayout::Part::Remove:
        return QStringLiteral("Remove from the playlist \u2014 the file itself isn't deleted");
    case TrackRowLayout::Part::Grip:
        return m_canReorder ? QStringLiteral("Drag to reorder")
                            : QStringLiteral("Clear the search to reorder songs");
    default:
        return {};
    }
}

QSize TrackRowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return {option.rect.width(), TrackRowGeometry::rowHeight(option.font)};
}

void TrackRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &option, painter, widget); // selection, alternate rows

    const Track track = index.data(TrackListModel::TrackRole).value<Track>();
    const TrackRowLayout row =
        TrackRowGeometry::layout(option.rect, option.font, m_numberDigits, track.isMissing);
    const bool selected = option.state & QStyle::State_Selected;
    const QPalette& palette = option.palette;
    const QColor text = selected ? palette.color(QPalette::HighlightedText) : palette.color(QPalette::Text);
    const QColor accent = selected ? text : palette.color(QPalette::Highlight);

    painter->save();
    if (index.data(TrackListModel::IsCurrentRole).toBool()) {
        m_indicator.paint(*painter, row.number, accent);
    } else {
        painter->setPen(faded(text, 0.45));
        painter->setFont(option.font);
        painter->drawText(row.number, Qt::AlignRight | Qt::AlignVCenter,
                          QString::number(index.data(TrackListModel::NumberRole).toInt()));
    }

    paintCover(*painter, row.cover, index, widget, palette);

    painter->setFont(option.font);
    painter->setPen(text);
    const QFontMetrics titleMetrics(option.font);
    painter->drawText(row.title, Qt::AlignLeft | Qt::AlignVCenter,
                      titleMetrics.elidedText(displayTitle(track), Qt::ElideRight, row.title.width()));
    const QFont caption = TrackRowGeometry::captionFont(option.font);
    painter->setFont(caption);
    painter->setPen(faded(text, 0.6));
    const QString subtitle = displayArtist(track) + QStringLiteral(" \u2014 ") + displayAlbum(track);
    painter->drawText(row.subtitle, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(caption).elidedText(subtitle, Qt::ElideRight, row.subtitle.width()));

    if (!row.warning.isEmpty())
        paintIcon(*painter, row.warning, m_warningIcon);
    paintIcon(*painter, row.info, m_infoIcon);
    paintIcon(*painter, row.remove, m_removeIcon);
    paintGrip(*painter, row.grip, faded(text, m_canReorder ? 0.6 : 0.2));
    painter->restore();
}

void TrackRowDelegate::paintCover(QPainter& painter, const QRect& rect, const QModelIndex& index,
                                  const QWidget* widget, const QPalette& palette) const {
    const qreal ratio = widget ? widget->devicePixelRatioF() : 1.0;
    const QPixmap cover =
        m_covers.thumbnail(index.data(TrackListModel::TrackRole).value<Track>(), rect.size() * ratio);
    QPainterPath clip;
    clip.addRoundedRect(rect, coverRadius, coverRadius);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (!cover.isNull()) {
        painter.setClipPath(clip);
        painter.drawPixmap(rect, cover);
    } else {
        painter.fillPath(clip, faded(palette.color(QPalette::Text), 0.2));
        paintIcon(painter, rect, m_placeholderIcon, QIcon::Disabled);
    }
    painter.restore();
}

// Three short lines, the grip's drawing in every theme.
void TrackRowDelegate::paintGrip(QPainter& painter, const QRect& rect, const QColor& color) const {
    const QPointF centre = QRectF(rect).center();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, 1.5, Qt::SolidLine, Qt::RoundCap));
    for (const double dy : {-4.0, 0.0, 4.0})
        painter.drawLine(QPointF(centre.x() - 6, centre.y() + dy), QPointF(centre.x() + 6, centre.y() + dy));
    painter.restore();
}

bool TrackRowDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                                 const QStyleOptionViewItem& option, const QModelIndex& index) {
    if (event->type() != QEvent::ToolTip)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const QString help = helpText(layout(option, index).partAt(event->pos()));
    if (help.isEmpty()) {
        QToolTip::hideText();
        return false;
    }
    QToolTip::showText(event->globalPos(), help, view);
    return true;
}

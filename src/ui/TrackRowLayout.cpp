#include "ui/TrackRowLayout.h"

#include <QFontMetrics>

#include <algorithm>

namespace {

constexpr int margin = 8;      // leading and trailing edges
constexpr int gap = 8;         // between number, cover and text
constexpr int controlGap = 4;  // between the trailing controls
constexpr int lineGap = 2;     // between the title and the caption line
constexpr int verticalPad = 6; // above and below the tallest part

QRect centredSquare(int x, int side, const QRect& row) {
    return {x, row.top() + (row.height() - side) / 2, side, side};
}

} // namespace

TrackRowLayout::Part TrackRowLayout::partAt(QPoint pos) const {
    const std::pair<const QRect&, Part> parts[] = {
        {warning, Part::Warning},
        {info, Part::Info},
        {remove, Part::Remove},
        {grip, Part::Grip},
        {number, Part::Number},
        {cover, Part::Cover},
        {title.united(subtitle), Part::Text},
    };
    for (const auto& [rect, part] : parts) {
        if (rect.contains(pos))
            return part;
    }
    return Part::None;
}

QFont TrackRowGeometry::captionFont(const QFont& rowFont) {
    QFont font = rowFont;
    font.setPointSizeF(rowFont.pointSizeF() > 0 ? rowFont.pointSizeF() * 0.85 : 9);
    return font;
}

int TrackRowGeometry::rowHeight(const QFont& rowFont) {
    const int text = QFontMetrics(rowFont).height() + lineGap + QFontMetrics(captionFont(rowFont)).height();
    return std::max(text, coverSide) + 2 * verticalPad;
}

TrackRowLayout TrackRowGeometry::layout(const QRect& rect, const QFont& rowFont, int numberDigits,
                                        bool missing) {
    const QFontMetrics titleMetrics(rowFont);
    const QFontMetrics captionMetrics(captionFont(rowFont));
    TrackRowLayout row;
    const int numberWidth =
        std::max(titleMetrics.horizontalAdvance(QString(std::max(numberDigits, 2), '0')), 16);
    row.number = {rect.left() + margin, rect.top(), numberWidth, rect.height()};
    row.cover = centredSquare(row.number.right() + 1 + gap, coverSide, rect);

    // Controls from the trailing edge: grip, remove, info, and the warning when the file is missing.
    int x = rect.right() + 1 - margin - controlSide;
    row.grip = centredSquare(x, controlSide, rect);
    x -= controlSide + controlGap;
    row.remove = centredSquare(x, controlSide, rect);
    x -= controlSide + controlGap;
    row.info = centredSquare(x, controlSide, rect);
    if (missing) {
        x -= controlSide + controlGap;
        row.warning = centredSquare(x, controlSide, rect);
    }

    const int textLeft = row.cover.right() + 1 + gap + 2;
    const int textWidth = std::max(0, x - gap - textLeft);
    const int textHeight = titleMetrics.height() + lineGap + captionMetrics.height();
    const int top = rect.top() + (rect.height() - textHeight) / 2;
    row.title = {textLeft, top, textWidth, titleMetrics.height()};
    row.subtitle = {textLeft, top + titleMetrics.height() + lineGap, textWidth, captionMetrics.height()};
    return row;
}

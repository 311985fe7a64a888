#pragma once

#include <QColor>
#include <QIcon>
#include <QPainterPath>
#include <QRectF>

// The save button's drawing of a 3.5-inch floppy disk, made from a path so it scales to any size.
namespace FloppyDiskShape {
// The outline (body, shutter, label) for `rect`; fractions apply to width and height separately.
QPainterPath path(const QRectF& rect);
} // namespace FloppyDiskShape

namespace FloppyDiskIcon {
// Line width for an icon of side `size`: 8.5% of the size, at least 1.
qreal lineWidth(qreal size);
// The shape stroked in `color`, in a square of side `size` (device-independent pixels).
QIcon icon(qreal size, const QColor& color);
} // namespace FloppyDiskIcon

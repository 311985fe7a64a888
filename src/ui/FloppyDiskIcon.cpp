#include "ui/FloppyDiskIcon.h"

QPainterPath FloppyDiskShape::path(const QRectF&) {
    return {};
}

qreal FloppyDiskIcon::lineWidth(qreal) {
    return 1;
}

QIcon FloppyDiskIcon::icon(qreal, const QColor&) {
    return {};
}

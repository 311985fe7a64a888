#include "ui/FloppyDiskIcon.h"

#include "ui/PaintedIconEngine.h"

#include <QPainter>
#include <QPen>

#include <algorithm>

QPainterPath FloppyDiskShape::path(const QRectF& rect) {
    const auto at = [&rect](qreal fx, qreal fy) {
        return QPointF(rect.x() + fx * rect.width(), rect.y() + fy * rect.height());
    };
    const auto box = [&](qreal left, qreal top, qreal width, qreal height) {
        return QRectF(at(left, top), at(left + width, top + height));
    };
    QPainterPath path;
    path.moveTo(at(0.10, 0.12));
    path.lineTo(at(0.78, 0.12));
    path.lineTo(at(0.90, 0.24));
    path.lineTo(at(0.90, 0.88));
    path.lineTo(at(0.10, 0.88));
    path.closeSubpath();
    path.addRect(box(0.34, 0.12, 0.24, 0.24)); // shutter
    path.addRect(box(0.26, 0.54, 0.48, 0.34)); // label
    return path;
}

qreal FloppyDiskIcon::lineWidth(qreal size) {
    return std::max<qreal>(size * 0.085, 1);
}

namespace {

// Strokes the shape at whatever size the button asks for, so it stays sharp at any scale. The line width
// follows the icon's nominal size, not the pixel size it is painted at.
class FloppyEngine : public PaintedIconEngine {
public:
    FloppyEngine(qreal size, QColor color)
        : m_size(size)
        , m_color(std::move(color)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        const qreal side = std::min(rect.width(), rect.height());
        const qreal scale = side / m_size;
        const qreal width = FloppyDiskIcon::lineWidth(m_size) * scale;
        QColor color = m_color;
        if (mode == QIcon::Disabled)
            color.setAlphaF(color.alphaF() * 0.4);
        QPen pen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        pen.setMiterLimit(10);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(pen);
        painter->setBrush(Qt::NoBrush);
        const QRectF square(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2, side,
                            side);
        painter->drawPath(FloppyDiskShape::path(square));
        painter->restore();
    }

    QIconEngine* clone() const override { return new FloppyEngine(m_size, m_color); }

private:
    qreal m_size;
    QColor m_color;
};

} // namespace

QIcon FloppyDiskIcon::icon(qreal size, const QColor& color) {
    return QIcon(new FloppyEngine(size, color));
}

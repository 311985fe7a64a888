#include "ui/DropHighlight.h"

#include <QPainter>

namespace {

constexpr int inset = 6;
constexpr qreal radius = 8;
constexpr qreal lineWidth = 2;
constexpr qreal dash = 10;
constexpr qreal fillOpacity = 0.06;
constexpr int fadeMs = 150;

} // namespace

void DropHighlight::paint(QPainter& painter, const QRect& rect, const QColor& accent, qreal opacity) {
    const QRectF shape = QRectF(rect).adjusted(inset, inset, -inset, -inset);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(opacity);
    QColor fill = accent;
    fill.setAlphaF(fillOpacity);
    QPen pen(accent, lineWidth);
    pen.setDashPattern({dash / lineWidth, dash / lineWidth}); // in units of the line's width
    painter.setPen(pen);
    painter.setBrush(fill);
    painter.drawRoundedRect(shape, radius, radius);
    painter.restore();
}

DropHighlightOverlay::DropHighlightOverlay(QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
    m_fade.setDuration(fadeMs);
    connect(&m_fade, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        m_opacity = value.toReal();
        update();
    });
    connect(&m_fade, &QVariantAnimation::finished, this, [this] { setVisible(m_shown); });
    hide();
}

void DropHighlightOverlay::setShown(bool shown) {
    if (shown == m_shown)
        return;
    m_shown = shown;
    m_fade.stop();
    m_fade.setStartValue(m_opacity);
    m_fade.setEndValue(shown ? 1.0 : 0.0);
    if (shown) {
        raise();
        show();
    }
    m_fade.start();
}

void DropHighlightOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    DropHighlight::paint(painter, rect(), palette().color(QPalette::Highlight), m_opacity);
}

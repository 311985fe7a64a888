#pragma once

#include <QVariantAnimation>
#include <QWidget>

class QPainter;

namespace DropHighlight {
// The highlight of a place files can be dropped on: a rounded rectangle (radius 8) inset 6 pixels in
// `rect`, filled with the accent at 6% and stroked in the accent, 2 pixels wide with dashes of 10,
// all at `opacity`.
void paint(QPainter& painter, const QRect& rect, const QColor& accent, qreal opacity = 1);
} // namespace DropHighlight

// That highlight over a sibling area, fading in and out; clicks pass through it.
class DropHighlightOverlay : public QWidget {
    Q_OBJECT
public:
    explicit DropHighlightOverlay(QWidget* parent);

    void setShown(bool shown);
    bool isShown() const { return m_shown; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_shown = false;
    qreal m_opacity = 0;
    QVariantAnimation m_fade;
};

#include "ui/TextStyles.h"

#include "ui/Icons.h"

#include <QApplication>
#include <QPainter>
#include <QWidget>

namespace TextStyles {

QColor colour(const QWidget* widget, Tone tone) {
    // From the application's palette, so that styling a widget twice does not fade it twice.
    QColor text = QApplication::palette(widget).color(QPalette::WindowText);
    switch (tone) {
    case Tone::Primary:
        return text;
    case Tone::Secondary:
        text.setAlphaF(0.6f);
        return text;
    case Tone::Tertiary:
        text.setAlphaF(0.45f);
        return text;
    case Tone::Quaternary:
        text.setAlphaF(0.2f);
        return text;
    case Tone::Orange:
        break;
    }
    return QColor(255, 149, 0);
}

void apply(QWidget* widget, Font font, Tone tone) {
    QFont chosen = QApplication::font();
    const qreal body = chosen.pointSizeF() > 0 ? chosen.pointSizeF() : 10;
    switch (font) {
    case Font::Body:
        break;
    case Font::Headline:
        chosen.setBold(true);
        break;
    case Font::Callout:
        chosen.setPointSizeF(body * 0.92);
        break;
    case Font::Caption:
        chosen.setPointSizeF(body * 0.85);
        break;
    case Font::Caption2:
        chosen.setPointSizeF(body * 0.78);
        break;
    }
    widget->setFont(chosen);
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, colour(widget, tone));
    palette.setColor(QPalette::Text, colour(widget, tone));
    widget->setPalette(palette);
}

QPixmap symbol(const QString& name, int size, const QColor& colour, qreal devicePixelRatio) {
    // A theme's "-symbolic" drawing is the one-colour outline made for this; full-colour icons would
    // flatten into a blot.
    const QIcon icon = QIcon::fromTheme(name + QStringLiteral("-symbolic"), Icons::named(name));
    QPixmap pixmap = icon.pixmap(QSize(size, size), devicePixelRatio);
    if (pixmap.isNull())
        return pixmap;
    // Symbols are drawn in one colour: keep the icon's shape and paint it over.
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), colour);
    return pixmap;
}

QPixmap canvas(const QWidget* widget, int size) {
    const qreal ratio = widget->devicePixelRatioF();
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    return pixmap;
}

} // namespace TextStyles

#pragma once

#include <QColor>
#include <QPixmap>
#include <QString>

class QWidget;

// The program's text styles, derived from the application font and the palette so that dark themes and
// the user's font size carry through.
namespace TextStyles {

enum class Font {
    Body,
    Headline, // body, bold
    Callout,  // ≈ 0.92 × body
    Caption,  // ≈ 0.85 × body
    Caption2, // ≈ 0.78 × body
};

enum class Tone {
    Primary,
    Secondary,  // text at 60% opacity
    Tertiary,   // text at 45%
    Quaternary, // text at 20%, for faint fills
    Orange,     // warnings and low confidence
};

// The colour of `tone` in `widget`'s palette.
QColor colour(const QWidget* widget, Tone tone);
// Sets `widget`'s font and text colour.
void apply(QWidget* widget, Font font, Tone tone = Tone::Primary);
// The freedesktop icon `name` at `size` device-independent pixels, recoloured to `colour`.
QPixmap symbol(const QString& name, int size, const QColor& colour, qreal devicePixelRatio);

// A transparent square of `size` device-independent pixels at `widget`'s resolution, to paint on.
QPixmap canvas(const QWidget* widget, int size);

} // namespace TextStyles

#pragma once

#include <QFont>
#include <QRect>

class QFontMetrics;

// Where each part of a song row stands: the one geometry that painting, clicks and tooltips all use, so a
// click can never land beside what is drawn. Sizes are device-independent pixels.
struct TrackRowLayout {
    enum class Part { None, Number, Cover, Text, Warning, Info, Remove, Grip };

    QRect number; // the number, or the playing indicator on the current song
    QRect cover;
    QRect title;
    QRect subtitle; // "artist — album"
    QRect warning;  // empty unless the file is missing
    QRect info;
    QRect remove;
    QRect grip;

    // The part under `pos` (Text covers the whole text column).
    Part partAt(QPoint pos) const;
};

namespace TrackRowGeometry {

inline constexpr int coverSide = 32;
inline constexpr int controlSide = 20; // the info, remove and grip controls, and the warning
inline constexpr int iconSide = 16;

// The caption font of the artist and album line, from the row's font.
QFont captionFont(const QFont& rowFont);
// A row's height for the row's font.
int rowHeight(const QFont& rowFont);
// The parts of a row in `rect` whose number column fits `numberDigits` digits.
TrackRowLayout layout(const QRect& rect, const QFont& rowFont, int numberDigits, bool missing);

} // namespace TrackRowGeometry

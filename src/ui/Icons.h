#pragma once

#include <QIcon>
#include <QString>

namespace Icons {
// The desktop theme's icon of this freedesktop name, or the program's own drawing of it when no theme
// has one, so every button shows an icon on any machine. Drawn in the palette's text colour.
QIcon named(const QString& freedesktopName);
// The program's own drawing alone; a null icon for a name it does not draw.
QIcon drawn(const QString& freedesktopName);
} // namespace Icons

#pragma once

#include <QByteArray>
#include <QColor>

namespace fixtures {

// An encoded square picture of one colour, in an image format Qt writes ("PNG", "JPG" …).
QByteArray pictureBytes(const char* format, QColor color, int side = 16);

} // namespace fixtures

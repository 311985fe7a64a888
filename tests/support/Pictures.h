#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>

namespace fixtures {

// The image encoded in a format Qt writes ("PNG", "JPEG" …); `quality` -1 is the format's default.
QByteArray encodedImage(const QImage& image, const char* format, int quality = -1);
// An encoded square picture of one colour.
QByteArray pictureBytes(const char* format, QColor color, int side = 16);

} // namespace fixtures

#include "support/Pictures.h"

#include <QBuffer>
#include <QImage>

namespace fixtures {

QByteArray pictureBytes(const char* format, QColor color, int side) {
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

} // namespace fixtures

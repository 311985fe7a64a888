#include "support/Pictures.h"

#include <QBuffer>

namespace fixtures {

QByteArray encodedImage(const QImage& image, const char* format, int quality) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format, quality);
    return bytes;
}

QByteArray pictureBytes(const char* format, QColor color, int side) {
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(color);
    return encodedImage(image, format);
}

} // namespace fixtures

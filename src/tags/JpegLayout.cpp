#include "JpegLayout.h"

#include <QList>

#include <algorithm>

namespace {

struct Component {
    int horizontal = 1; // sampling factors
    int vertical = 1;
};

int byteAt(const QByteArray& bytes, qsizetype index) {
    return index < bytes.size() ? quint8(bytes.at(index)) : -1;
}

// libjpeg keeps 64 coefficients of two bytes for every 8x8 block of every component.
qint64 coefficientBytes(QSize size, const QList<Component>& components) {
    int maxHorizontal = 1;
    int maxVertical = 1;
    for (const Component& c : components) {
        maxHorizontal = std::max(maxHorizontal, c.horizontal);
        maxVertical = std::max(maxVertical, c.vertical);
    }
    qint64 bytes = 0;
    for (const Component& c : components) {
        const qint64 columns = (qint64(size.width()) * c.horizontal / maxHorizontal + 7) / 8;
        const qint64 rows = (qint64(size.height()) * c.vertical / maxVertical + 7) / 8;
        bytes += columns * rows * 64 * 2;
    }
    return bytes;
}

bool isFrameMarker(int marker) {
    // SOF0 to SOF15, except DHT (C4), JPG (C8) and DAC (CC) which share the range.
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool isProgressive(int marker) {
    return marker == 0xC2 || marker == 0xC6 || marker == 0xCA || marker == 0xCE;
}

} // namespace

std::optional<JpegLayout> readJpegLayout(QIODevice& device) {
    if (device.read(2) != QByteArrayLiteral("\xFF\xD8"))
        return std::nullopt;
    JpegLayout layout;
    QList<Component> components;
    bool progressive = false;
    for (;;) {
        QByteArray marker = device.read(2);
        while (marker.size() == 2 && quint8(marker.at(1)) == 0xFF) // fill bytes before a marker
            marker = marker.sliced(1) + device.read(1);
        if (marker.size() < 2 || quint8(marker.at(0)) != 0xFF)
            return std::nullopt;
        const int code = quint8(marker.at(1));
        const QByteArray lengthBytes = device.read(2);
        const int length = byteAt(lengthBytes, 0) << 8 | byteAt(lengthBytes, 1);
        if (lengthBytes.size() < 2 || length < 2)
            return std::nullopt;
        const QByteArray body = device.read(length - 2);
        if (body.size() < length - 2)
            return std::nullopt;

        if (isFrameMarker(code)) {
            // precision, height, width, component count, then id, sampling factors, table per component
            const int count = byteAt(body, 5);
            if (count < 1 || body.size() < 6 + 3 * count)
                return std::nullopt;
            layout.size =
                QSize(byteAt(body, 3) << 8 | byteAt(body, 4), byteAt(body, 1) << 8 | byteAt(body, 2));
            for (int i = 0; i < count; ++i) {
                const int sampling = byteAt(body, 7 + 3 * i);
                components.append({std::max(sampling >> 4, 1), std::max(sampling & 0x0F, 1)});
            }
            progressive = isProgressive(code);
        } else if (code == 0xDA) {
            if (components.isEmpty() || body.isEmpty())
                return std::nullopt;
            layout.buffered = progressive || byteAt(body, 0) < components.size();
            layout.coefficientBytes = coefficientBytes(layout.size, components);
            return layout;
        } else if (code == 0xD9) {
            return std::nullopt;
        }
    }
}

#pragma once

#include <QIODevice>
#include <QSize>

#include <optional>

// What the headers of a JPEG file, up to its first scan, say about the memory needed to decode it.
struct JpegLayout {
    QSize size;
    // Progressive files, and files whose colour components come in separate scans, are decoded from a
    // buffer holding every coefficient of the full image, however small the requested output.
    bool buffered = false;
    qint64 coefficientBytes = 0; // size of that buffer
};

// Reads from the device's current position; nothing when it is not a JPEG or its headers are damaged.
std::optional<JpegLayout> readJpegLayout(QIODevice& device);

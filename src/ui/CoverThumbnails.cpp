#include "ui/CoverThumbnails.h"

#include "library/TrackArtwork.h"

#include <QBuffer>
#include <QImageReader>
#include <QtConcurrent>

namespace {

// Requests beyond this many are dropped, oldest first: they were for rows scrolled past long ago.
constexpr qsizetype maxQueued = 128;
constexpr int decoders = 2;

// The picture decoded straight at a size that covers `size`, then cropped to it; null when unreadable.
QImage decodeCovering(const QByteArray& bytes, QSize size) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize original = reader.size();
    if (original.isValid())
        reader.setScaledSize(original.scaled(size, Qt::KeepAspectRatioByExpanding));
    QImage image = reader.read();
    if (image.isNull())
        return {};
    if (image.size() != size)
        image = image.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    const QRect crop(QPoint((image.width() - size.width()) / 2, (image.height() - size.height()) / 2), size);
    return image.copy(crop).convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

} // namespace

CoverThumbnails::CoverThumbnails(QObject* parent, qsizetype maxCacheBytes)
    : QObject(parent) {
    m_cache.setMaxCost(maxCacheBytes);
    m_pool.setMaxThreadCount(decoders);
}

CoverThumbnails::~CoverThumbnails() {
    m_queue.clear();
    m_pool.waitForDone();
}

QPixmap CoverThumbnails::thumbnail(const Track& track, QSize devicePixels) {
    const QByteArray key = artworkKey(track);
    if (key.isEmpty() || devicePixels.isEmpty())
        return {};
    const QByteArray cacheKey = key + '@' + QByteArray::number(devicePixels.width()) + 'x' +
                                QByteArray::number(devicePixels.height());
    if (const QPixmap* cached = m_cache.object(cacheKey))
        return *cached;
    if (!m_pending.contains(cacheKey)) {
        m_pending.insert(cacheKey);
        m_queue.append({cacheKey, track, devicePixels});
        if (m_queue.size() > maxQueued)
            m_pending.remove(m_queue.takeFirst().cacheKey);
        startNext();
    }
    return {};
}

void CoverThumbnails::startNext() {
    while (m_running < decoders && !m_queue.isEmpty()) {
        Request request = m_queue.takeLast();
        ++m_running;
        QtConcurrent::run(&m_pool, [track = std::move(request.track), size = request.size] {
            const std::optional<QByteArray> bytes = loadArtwork(track);
            return bytes ? decodeCovering(*bytes, size) : QImage();
        }).then(this, [this, cacheKey = request.cacheKey](const QImage& image) { finish(cacheKey, image); });
    }
}

void CoverThumbnails::finish(const QByteArray& cacheKey, const QImage& image) {
    --m_running;
    ++m_decodes;
    m_pending.remove(cacheKey);
    // An unreadable picture is remembered as a null pixmap, so it is not decoded again at every repaint.
    const qsizetype cost = std::max<qsizetype>(1, image.sizeInBytes());
    m_cache.insert(cacheKey, new QPixmap(QPixmap::fromImage(image)), cost);
    startNext();
    emit ready();
}

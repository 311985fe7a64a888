#include "library/ArtworkInterner.h"

#include <QHash>
#include <QMutexLocker>

#include <algorithm>
#include <cstring>

namespace {

// Covers are tens or hundreds of kilobytes; the size with the first and last 4 KB tell most apart, and the
// full comparison settles the rest.
size_t sampleHash(const QByteArray& image) {
    constexpr qsizetype sample = 4096;
    const QByteArrayView bytes(image);
    if (bytes.size() <= 2 * sample)
        return qHash(bytes);
    return qHashMulti(0, bytes.size(), qHash(bytes.first(sample)), qHash(bytes.last(sample)));
}

} // namespace

ArtworkInterner& ArtworkInterner::shared() {
    static ArtworkInterner instance;
    return instance;
}

QByteArray ArtworkInterner::intern(const QByteArray& image) {
    if (image.isEmpty())
        return image;
    const size_t key = sampleHash(image);
    QMutexLocker lock(&m_mutex);
    const auto [first, last] = m_images.equal_range(key);
    for (auto it = first; it != last; ++it) {
        const QByteArray& held = it->second;
        if (held.size() == image.size() &&
            (held.constData() == image.constData() ||
             std::memcmp(held.constData(), image.constData(), image.size()) == 0))
            return held;
    }
    m_images.emplace(key, image);
    m_bytes += image.size();
    if (qsizetype(m_images.size()) >= m_sweepAtCount || m_bytes >= m_sweepAtBytes)
        sweepLocked();
    return image;
}

void ArtworkInterner::releaseUnused() {
    QMutexLocker lock(&m_mutex);
    sweepLocked();
}

void ArtworkInterner::sweepLocked() {
    // A buffer referenced only by this map cannot gain a holder meanwhile: copies are made under the lock.
    for (auto it = m_images.begin(); it != m_images.end();) {
        if (it->second.isDetached()) {
            m_bytes -= it->second.size();
            it = m_images.erase(it);
        } else {
            ++it;
        }
    }
    m_sweepAtCount = std::max(minimumSweepCount, 2 * qsizetype(m_images.size()));
    m_sweepAtBytes = std::max(minimumSweepBytes, 2 * m_bytes);
}

qsizetype ArtworkInterner::imageCount() const {
    QMutexLocker lock(&m_mutex);
    return qsizetype(m_images.size());
}

qsizetype ArtworkInterner::byteCount() const {
    QMutexLocker lock(&m_mutex);
    return m_bytes;
}

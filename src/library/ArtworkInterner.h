#pragma once

#include <QByteArray>
#include <QMutex>

#include <unordered_map>

// Keeps one buffer per distinct artwork image, so that twenty tracks carrying the same embedded cover hold
// twenty references to one QByteArray rather than twenty copies.
//
// Images are compared byte for byte (a hash of the image's size, head and tail only picks candidates).
// The interner holds a reference of its own to every image it has handed out; an image whose only
// remaining holder is the interner is dropped at the next sweep. Sweeps run when the number of images or
// their bytes has doubled since the last sweep (and at least 256 images or 32 MB have come in), so the
// interner holds at most about twice what the program's tracks still use, plus that allowance;
// releaseUnused() sweeps at once. Safe from any thread.
class ArtworkInterner {
public:
    ArtworkInterner() = default; // tests make their own
    ArtworkInterner(const ArtworkInterner&) = delete;
    ArtworkInterner& operator=(const ArtworkInterner&) = delete;

    // The one instance the loaders share.
    static ArtworkInterner& shared();

    // The one buffer holding these bytes: `image` itself the first time, an earlier equal buffer after.
    QByteArray intern(const QByteArray& image);

    // Drops every image no track holds any more.
    void releaseUnused();

    // Distinct images and their bytes currently held.
    qsizetype imageCount() const;
    qsizetype byteCount() const;

private:
    void sweepLocked();

    static constexpr qsizetype minimumSweepCount = 256;
    static constexpr qsizetype minimumSweepBytes = 32 * 1024 * 1024;

    mutable QMutex m_mutex;
    std::unordered_multimap<size_t, QByteArray> m_images; // sample hash -> image
    qsizetype m_bytes = 0;
    qsizetype m_sweepAtCount = minimumSweepCount;
    qsizetype m_sweepAtBytes = minimumSweepBytes;
};

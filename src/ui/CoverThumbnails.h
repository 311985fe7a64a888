#pragma once

#include "library/Track.h"

#include <QCache>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QSize>
#include <QThreadPool>

// Covers at the size a view shows them: each distinct picture is decoded once per size, off the main
// thread, and kept in a cache of bounded cost. Lives on the main thread.
class CoverThumbnails : public QObject {
    Q_OBJECT
public:
    // `maxCacheBytes`: what the decoded thumbnails may hold at most (4 bytes a pixel).
    explicit CoverThumbnails(QObject* parent = nullptr, qsizetype maxCacheBytes = 24 * 1024 * 1024);
    ~CoverThumbnails() override;

    // The track's cover scaled to fill `devicePixels`, or a null pixmap while it is being made or when
    // the track has none. `ready` is emitted once a requested thumbnail can be had.
    QPixmap thumbnail(const Track& track, QSize devicePixels);

    // Bytes the cached thumbnails hold now.
    qsizetype cachedBytes() const { return m_cache.totalCost(); }
    // Decodes finished so far (each distinct picture and size once, unless evicted meanwhile).
    int decodeCount() const { return m_decodes; }

signals:
    void ready();

private:
    struct Request {
        QByteArray cacheKey;
        Track track;
        QSize size;
    };
    void startNext();
    void finish(const QByteArray& cacheKey, const QImage& image);

    QCache<QByteArray, QPixmap> m_cache; // cost in bytes
    QSet<QByteArray> m_pending;          // queued or being decoded
    QList<Request> m_queue;              // newest last: what is on screen now goes first
    QThreadPool m_pool;                  // its own pool: decodes never wait behind imports
    int m_running = 0;
    int m_decodes = 0;
};

#include "library/TrackBatchLoader.h"

#include "library/MetadataLoader.h"

#include <QThreadPool>
#include <QtConcurrent>

#include <algorithm>

namespace TrackBatchLoader {

QList<Track> loadTracksNow(const QList<TrackRequest>& requests) {
    QList<Track> tracks(requests.size());
    QList<QFuture<Track>> batch;
    batch.reserve(batchSize);
    for (qsizetype start = 0; start < requests.size(); start += batchSize) {
        const qsizetype end = std::min<qsizetype>(start + batchSize, requests.size());
        batch.clear();
        for (qsizetype i = start; i < end; ++i)
            batch.append(MetadataLoader::loadTrack(requests[i].url, requests[i].hint));
        for (qsizetype i = start; i < end; ++i)
            tracks[i] = batch[i - start].result();
    }
    return tracks;
}

QFuture<QList<Track>> loadTracks(const QList<TrackRequest>& requests) {
    return QtConcurrent::run(importPool(), [requests] { return loadTracksNow(requests); });
}

QThreadPool* importPool() {
    // Overlapping imports each hold one thread while they wait; a few is plenty.
    static QThreadPool* pool = [] {
        auto* created = new QThreadPool;
        created->setMaxThreadCount(4);
        return created;
    }();
    return pool;
}

QList<TrackRequest> requestsFor(const QList<QUrl>& urls) {
    QList<TrackRequest> requests;
    requests.reserve(urls.size());
    for (const QUrl& url : urls)
        requests.append({url, std::nullopt});
    return requests;
}

QList<TrackRequest> requestsFor(const QList<PlaylistEntry>& entries) {
    QList<TrackRequest> requests;
    requests.reserve(entries.size());
    for (const PlaylistEntry& entry : entries)
        requests.append({entry.url, entry});
    return requests;
}

} // namespace TrackBatchLoader

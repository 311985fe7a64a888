#pragma once

#include "library/MetadataCache.h"
#include "library/PlaylistEntry.h"
#include "library/Track.h"

#include <QFuture>
#include <QList>
#include <QUrl>

#include <optional>

class QThreadPool;

// One file to load, with the #EXTINF or PLS values a playlist gave for it.
struct TrackRequest {
    QUrl url;
    std::optional<PlaylistEntry> hint;
};

// Loads many tracks the way MetadataLoader::loadTrackNow does, in chunks: the metadata cache answers for the
// files and folders it knows unchanged, and the rest are read side by side on the loaders' pool (each file
// once) and kept in the cache. Results keep the requests' order.
namespace TrackBatchLoader {

// Requests per chunk: bounds what a load holds beside its tracks (folder covers being scanned, entries not
// yet written to the cache).
inline constexpr qsizetype chunkSize = 2048;

// Blocking. Call it from a thread of importPool(), never from the main thread or a loader thread.
// `cacheFile` is the metadata cache to use (tests give their own).
QList<Track> loadTracksNow(const QList<TrackRequest>& requests,
                           const QString& cacheFile = MetadataCache::defaultFile());

// The threads that drive imports: each waits on its batches, so they are kept apart from the loaders'
// own pool, where a waiting driver could take the place of the loads it waits for.
QThreadPool* importPool();

QList<TrackRequest> requestsFor(const QList<QUrl>& urls);
QList<TrackRequest> requestsFor(const QList<PlaylistEntry>& entries);

} // namespace TrackBatchLoader

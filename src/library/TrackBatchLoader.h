#pragma once

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

// Loads many tracks through MetadataLoader in consecutive batches of eight: the loads of a batch run side by
// side and the next batch starts when the whole batch is done. Results keep the requests' order.
namespace TrackBatchLoader {

inline constexpr int batchSize = 8;

// Blocking. Call it from a thread of importPool(), never from the main thread or a loader thread.
QList<Track> loadTracksNow(const QList<TrackRequest>& requests);

// Runs loadTracksNow on importPool().
QFuture<QList<Track>> loadTracks(const QList<TrackRequest>& requests);

// The threads that drive imports: each waits on its batches, so they are kept apart from the loaders'
// own pool, where a waiting driver could take the place of the loads it waits for.
QThreadPool* importPool();

QList<TrackRequest> requestsFor(const QList<QUrl>& urls);
QList<TrackRequest> requestsFor(const QList<PlaylistEntry>& entries);

} // namespace TrackBatchLoader

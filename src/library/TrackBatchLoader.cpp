#include "library/TrackBatchLoader.h"

#include "library/FileMetadataReader.h"
#include "library/MetadataCache.h"
#include "library/MetadataLoader.h"

#include <QHash>
#include <QThreadPool>
#include <QtConcurrent>

#include <algorithm>

namespace TrackBatchLoader {

namespace {

// A request on its way to a track.
struct Pending {
    const TrackRequest* request = nullptr;
    QByteArray path;
    FileStamp stamp;
    std::optional<FileFacts> facts; // none while unknown
    QByteArray folder;              // for a song that shows its folder's cover
};

QByteArray folderOf(const QByteArray& path) {
    return path.left(std::max<qsizetype>(path.lastIndexOf('/'), 0));
}

// Reads what the cache does not know, files and folders, on the loaders' pool, and keeps it.
QList<Track> loadChunk(QList<Pending>& pending, MetadataCache& cache) {
    QtConcurrent::blockingMap(MetadataLoader::pool(), pending, [](Pending& item) {
        item.path = MetadataLoader::localPath(item.request->url);
        item.stamp = FileStamp::of(item.path);
    });
    QList<Pending*> unread;
    for (Pending& item : pending) {
        if (!item.stamp.exists)
            continue;
        item.facts = cache.facts(item.path, item.stamp);
        if (!item.facts)
            unread.append(&item);
    }
    static const FileMetadataReader reader;
    QtConcurrent::blockingMap(MetadataLoader::pool(), unread, [](Pending* item) {
        item->facts = MetadataLoader::readFacts(item->path, reader);
    });
    QList<MetadataCache::FileEntry> files;
    files.reserve(unread.size());
    for (const Pending* item : std::as_const(unread))
        files.append({item->path, item->stamp, *item->facts});

    // Folder covers, for the songs without a picture of their own: each folder once.
    QHash<QByteArray, FolderPicture> pictures;
    QList<std::pair<MetadataCache::FolderEntry, QUrl>> unscanned; // the folder, one of its songs
    for (Pending& item : pending) {
        if (!item.facts || !item.facts->embeddedArtwork.isEmpty())
            continue;
        item.folder = folderOf(item.path);
        if (pictures.contains(item.folder))
            continue;
        const std::optional<FolderPicture> known = cache.folderPicture(item.folder);
        pictures.insert(item.folder, known.value_or(FolderPicture()));
        if (!known)
            unscanned.append({MetadataCache::folderStamp(item.folder), item.request->url});
    }
    QtConcurrent::blockingMap(MetadataLoader::pool(), unscanned, [](auto& folder) {
        folder.first.picture = MetadataLoader::folderPicture(folder.second);
    });
    QList<MetadataCache::FolderEntry> folders;
    folders.reserve(unscanned.size());
    for (const auto& [folder, song] : std::as_const(unscanned)) {
        pictures.insert(folder.path, folder.picture);
        folders.append(folder);
    }
    cache.remember(files, folders);

    QList<Track> tracks;
    tracks.reserve(pending.size());
    for (const Pending& item : std::as_const(pending)) {
        const TrackRequest& request = *item.request;
        tracks.append(item.facts ? MetadataLoader::trackFrom(request.url, request.hint, *item.facts,
                                                             pictures.value(item.folder))
                                 : MetadataLoader::missingTrack(request.url, request.hint));
    }
    return tracks;
}

} // namespace

QList<Track> loadTracksNow(const QList<TrackRequest>& requests, const QString& cacheFile) {
    MetadataCache cache(cacheFile);
    QList<Track> tracks;
    tracks.reserve(requests.size());
    QList<Pending> pending;
    for (qsizetype start = 0; start < requests.size(); start += chunkSize) {
        const qsizetype end = std::min(start + chunkSize, requests.size());
        pending.resize(end - start);
        for (qsizetype i = start; i < end; ++i)
            pending[i - start] = Pending{&requests[i], {}, {}, {}, {}};
        tracks.append(loadChunk(pending, cache));
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

#include "library/TrackBatchLoader.h"

#include "library/BackgroundPriority.h"
#include "library/FileMetadataReader.h"
#include "library/MetadataCache.h"
#include "library/MetadataLoader.h"

#include <QHash>
#include <QSet>
#include <QThreadPool>
#include <QtConcurrent>

#include <algorithm>
#include <numeric>

namespace TrackBatchLoader {

namespace {

// A request on its way to a track.
struct Pending {
    const TrackRequest* request = nullptr;
    QByteArray path;
    QByteArray folder;
    FileStamp stamp;
    std::optional<FileFacts> facts; // none for a missing file
    bool read = false;              // facts read from the file now, not taken from the cache
    bool known = false;             // the cache had an entry for the file
};

QByteArray folderOf(const QByteArray& path) {
    return path.left(std::max<qsizetype>(path.lastIndexOf('/'), 0));
}

// Starts `work` on every element on the loaders' pool.
template <typename Sequence, typename Work> QFuture<void> startOnPool(Sequence& sequence, const Work& work) {
    return QtConcurrent::map(MetadataLoader::pool(), sequence, [&work](auto& item) {
        BackgroundPriority::lowerCurrentThread();
        work(item);
    });
}

// Runs `work` on every element on the loaders' pool and waits; nothing to do costs nothing.
template <typename Sequence, typename Work> void onPool(Sequence& sequence, const Work& work) {
    if (!sequence.isEmpty())
        startOnPool(sequence, work).waitForFinished();
}

// Files read at a time: while the pool reads a slice, this thread keeps what it read of the one before.
constexpr qsizetype readSlice = 512;

// The files the cache knows in the chunk's folders that are no longer there (deleted, or renamed since), so
// that their entries go and the cache does not grow with every rename. Where the chunk asked for every file
// the cache knows in a folder, as adding the folder does, nothing more is looked at; otherwise each file it
// did not ask for is looked at on the pool.
QList<QByteArray> goneFiles(const QList<Pending>& pending,
                            const QHash<QByteArray, QHash<QByteArray, MetadataCache::StoredFile>>& stored) {
    QList<QByteArray> gone;
    QHash<QByteArray, qsizetype> knownAsked; // folder -> known files asked for
    for (const Pending& item : pending) {
        if (!item.known)
            continue;
        if (!item.stamp.exists)
            gone.append(item.path);
        ++knownAsked[item.folder];
    }
    QSet<QByteArray> asked;
    QList<std::pair<QByteArray, bool>> unasked; // path, still there
    for (auto folder = stored.cbegin(); folder != stored.cend(); ++folder) {
        if (knownAsked.value(folder.key()) == folder->size())
            continue;
        if (asked.isEmpty()) {
            for (const Pending& item : pending)
                asked.insert(item.path);
        }
        for (auto name = folder->keyBegin(); name != folder->keyEnd(); ++name) {
            QByteArray path = folder.key() + '/' + *name;
            if (!asked.contains(path))
                unasked.append({std::move(path), true});
        }
    }
    onPool(unasked,
           [](std::pair<QByteArray, bool>& file) { file.second = FileStamp::of(file.first).exists; });
    for (const auto& [path, there] : std::as_const(unasked)) {
        if (!there)
            gone.append(path);
    }
    return gone;
}

// The chunk's tracks. Only the cache's connection works on this thread; stamps, checks, decoding, reading
// what the cache does not know and building the tracks run on the loaders' pool.
QList<Track> loadChunk(QList<Pending>& pending, MetadataCache& cache) {
    onPool(pending, [](Pending& item) {
        item.path = MetadataLoader::localPath(item.request->url);
        item.folder = folderOf(item.path);
    });
    QHash<QByteArray, QHash<QByteArray, MetadataCache::StoredFile>> stored; // folder -> name -> entry
    for (const Pending& item : std::as_const(pending)) {
        if (!stored.contains(item.folder))
            stored.insert(item.folder, cache.filesIn(item.folder));
    }
    static const FileMetadataReader reader(PictureData::Fingerprint); // only fingerprints are kept
    const auto read = [&stored](Pending& item) {
        const auto& files = *std::as_const(stored).constFind(item.folder);
        const auto entry = files.constFind(item.path.mid(item.folder.size() + 1));
        item.known = entry != files.cend();
        if (item.known) {
            item.stamp = FileStamp::of(item.path);
            if (!item.stamp.exists)
                return;
            item.facts = MetadataCache::facts(*entry, item.stamp);
            if (item.facts)
                return;
        }
        // A file the cache does not know is stamped as it is opened: one look at it, not two.
        const AssetMetadata metadata = reader.read(item.path, item.stamp);
        if (!item.stamp.exists)
            item.stamp = FileStamp::of(item.path); // not opened: missing, or there but unreadable
        if (!item.stamp.exists)
            return;
        item.facts = MetadataLoader::factsOf(item.path, metadata);
        item.read = true;
    };
    // The entries of what pending[from, to) read from the files.
    const auto readEntries = [&pending](qsizetype from, qsizetype to) {
        QList<MetadataCache::FileEntry> entries;
        for (qsizetype i = from; i < to; ++i) {
            const Pending& item = std::as_const(pending)[i];
            if (item.read)
                entries.append({item.path, item.stamp, *item.facts});
        }
        return entries;
    };

    // Folder covers, for the songs without a picture of their own: each folder once.
    struct FolderWork {
        QUrl song; // one of the folder's songs
        std::optional<MetadataCache::StoredFolder> stored;
        MetadataCache::FolderEntry entry;
        bool scanned = false;
    };
    const auto findPicture = [](FolderWork& work) {
        const std::optional<FolderPicture> known =
            work.stored ? MetadataCache::picture(*work.stored) : std::nullopt;
        if (known) {
            work.entry.picture = *known;
            return;
        }
        // Stamped before the search, so that a change during it makes the entry stale rather than wrong.
        const QByteArray path = work.entry.path;
        work.entry = MetadataCache::folderStamp(path);
        work.entry.picture = MetadataLoader::folderPicture(work.song);
        work.scanned = true;
    };
    QHash<QByteArray, qsizetype> folderIndex;
    QList<FolderWork> folders;
    folders.reserve(pending.size()); // never moved while the pool works on them

    // In rounds, each a slice of files to read and the covers of the folders the slice before needs, while
    // this thread keeps what that slice read; a last round for the last slice's folders.
    qsizetype kept = 0;    // the requests before this one have their entries kept and their folders known
    qsizetype started = 0; // the folders before this one are searched or being searched
    for (qsizetype start = 0; kept < pending.size(); start = std::min(start + readSlice, pending.size())) {
        for (qsizetype i = kept; i < start; ++i) {
            const Pending& item = std::as_const(pending)[i];
            if (item.facts && item.facts->embeddedArtwork.isEmpty() && !folderIndex.contains(item.folder)) {
                folderIndex.insert(item.folder, folders.size());
                folders.append(
                    {item.request->url, cache.folder(item.folder), {item.folder, 0, 0, {}}, false});
            }
        }
        Pending* const files = pending.data() + start;
        const qsizetype fileCount = std::min(start + readSlice, pending.size()) - start;
        FolderWork* const newFolders = folders.data() + started;
        QList<qsizetype> jobs(fileCount + folders.size() - started);
        std::iota(jobs.begin(), jobs.end(), 0);
        const auto job = [&](qsizetype i) {
            if (i < fileCount)
                read(files[i]);
            else
                findPicture(newFolders[i - fileCount]);
        };
        QFuture<void> round = startOnPool(jobs, job);
        cache.remember(readEntries(kept, start));
        kept = start;
        started = folders.size();
        round.waitForFinished();
    }

    QList<MetadataCache::FolderEntry> scannedFolders;
    for (const FolderWork& work : std::as_const(folders)) {
        if (work.scanned)
            scannedFolders.append(work.entry);
    }

    QList<Track> tracks(pending.size());
    Track* const built = tracks.data();
    QList<qsizetype> indexes(pending.size());
    std::iota(indexes.begin(), indexes.end(), 0);
    const auto build = [&](qsizetype i) {
        const Pending& item = pending.at(i);
        const TrackRequest& request = *item.request;
        if (!item.facts) {
            built[i] = MetadataLoader::missingTrack(request.url, request.hint);
            return;
        }
        const auto folder = folderIndex.constFind(item.folder);
        built[i] = MetadataLoader::trackFrom(
            request.url, request.hint, *item.facts,
            folder == folderIndex.cend() ? FolderPicture() : folders.at(*folder).entry.picture);
    };
    QFuture<void> building = startOnPool(indexes, build);
    cache.remember({}, scannedFolders, goneFiles(pending, stored));
    building.waitForFinished();
    return tracks;
}

} // namespace

QList<Track> loadTracksNow(const QList<TrackRequest>& requests, const QString& cacheFile) {
    BackgroundPriority::lowerCurrentThread(); // this thread queries the cache for every chunk
    MetadataCache cache(cacheFile);
    QList<Track> tracks;
    tracks.reserve(requests.size());
    QList<Pending> pending;
    for (qsizetype start = 0; start < requests.size(); start += chunkSize) {
        const qsizetype end = std::min(start + chunkSize, requests.size());
        pending.resize(end - start);
        for (qsizetype i = start; i < end; ++i)
            pending[i - start] = Pending{&requests[i], {}, {}, {}, {}, false, false};
        tracks.append(loadChunk(pending, cache));
    }
    return tracks;
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

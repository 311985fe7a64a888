#pragma once

#include "library/PlaylistEntry.h"
#include "library/Track.h"

#include <QFuture>
#include <QSet>
#include <QString>
#include <QUrl>

#include <optional>

class FolderArtworkCache;
class MetadataReader;
class QThreadPool;

// Builds Tracks from audio files. Stateless: every function is safe from any thread. Loading never fails:
// a file that does not exist gives a track marked missing, one that cannot be read gives a track named
// after the file (or the hint) with no tags. A track keeps only where its picture is and its fingerprint
// (TrackArtwork.h reads the bytes).
namespace MetadataLoader {

// The 15 lower-case extensions a file needs to be added to the playlist.
const QSet<QString>& playableExtensions();
// True when the URL's path extension, lower-cased, is playable.
bool isPlayable(const QUrl& url);

// Resolves an ID3 genre reference: "(17)" gives "Rock", "(17)Rock" and "(9)Heavy" give the text after the
// parenthesis; anything else ("Rock", "(80)", "(abc)", "()") is returned unchanged.
QString normalizedGenre(const QString& text);

// The loaders' pool, at most 8 threads. Kept apart from the global pool so that a burst of tag reads never
// starves other background work, and so that long file reads queue behind each other, not behind it.
QThreadPool* pool();

// The file at `url` read into a Track; `hint` (from a playlist line) fills in what the file does not say.
// Blocks for the file read and, when the file has no picture, the folder artwork lookup.
Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint = std::nullopt);
// The same over a given reader and folder artwork cache.
Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint, const MetadataReader& reader,
                   FolderArtworkCache& folderArtwork);
// loadTrackNow on pool().
QFuture<Track> loadTrack(const QUrl& url, const std::optional<PlaylistEntry>& hint = std::nullopt);

// Album artist, track number, year (at most 4 characters) and genre (normalized) and comment of a file.
ExtendedTags loadExtendedTagsNow(const QUrl& url);
ExtendedTags loadExtendedTagsNow(const QUrl& url, const MetadataReader& reader);
// loadExtendedTagsNow on pool().
QFuture<ExtendedTags> loadExtendedTags(const QUrl& url);

} // namespace MetadataLoader

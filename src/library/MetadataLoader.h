#pragma once

#include "library/PlaylistEntry.h"
#include "library/Track.h"

#include <QFuture>
#include <QSet>
#include <QString>
#include <QUrl>

#include <optional>

struct AssetMetadata;
class MetadataReader;
class QThreadPool;

// What one read of an audio file says, before a playlist's hints fill the gaps: what the metadata cache keeps
// for a file.
struct FileFacts {
    QString title; // empty when the file has none
    QString artist;
    QString album;
    double duration = 0; // seconds, 0 when unknown
    ExtendedTags tags;
    QByteArray embeddedArtwork; // the fingerprint of the file's own picture; empty when it has none

    friend bool operator==(const FileFacts&, const FileFacts&) = default;
};

// A folder's cover image as a track points at it; an empty URL when the folder has none.
struct FolderPicture {
    QUrl imageUrl;
    // Names the image file as it is now (path, size, modification time): loadArtwork makes the same picture
    // from it every time, and a changed image gets a new fingerprint.
    QByteArray fingerprint;

    friend bool operator==(const FolderPicture&, const FolderPicture&) = default;
};

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
// Blocks for the file read and, when the file has no picture, the folder listing.
Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint = std::nullopt);
// The same over a given reader.
Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint, const MetadataReader& reader);
// The pieces loadTrackNow is made of, for loaders that keep what files say between runs.
// The file at `localPath` (the file system's own bytes), read once.
FileFacts readFacts(const QByteArray& localPath, const MetadataReader& reader);
// What `metadata`, read from the file at `localPath`, says.
FileFacts factsOf(const QByteArray& localPath, const AssetMetadata& metadata);
// The folder cover for a song without a picture of its own, found without decoding it
// (FolderArtwork::imageFor).
FolderPicture folderPicture(const QUrl& songUrl);
// The track of an existing file from what it says, the hint and, when it has no picture, its folder's.
Track trackFrom(const QUrl& url, const std::optional<PlaylistEntry>& hint, const FileFacts& facts,
                const FolderPicture& folder);
// The track of a file that does not exist.
Track missingTrack(const QUrl& url, const std::optional<PlaylistEntry>& hint);
// The path of a file URL in the file system's own bytes.
QByteArray localPath(const QUrl& url);

// loadTrackNow on pool().
QFuture<Track> loadTrack(const QUrl& url, const std::optional<PlaylistEntry>& hint = std::nullopt);

// Album artist, track number, year (at most 4 characters) and genre (normalized) and comment of a file.
ExtendedTags loadExtendedTagsNow(const QUrl& url);
ExtendedTags loadExtendedTagsNow(const QUrl& url, const MetadataReader& reader);
// loadExtendedTagsNow on pool().
QFuture<ExtendedTags> loadExtendedTags(const QUrl& url);

} // namespace MetadataLoader

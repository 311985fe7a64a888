#pragma once

#include "library/PlaylistEntry.h"
#include "library/Track.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <optional>

// Why a playlist file gave no entries. The store shows description() to the user.
class PlaylistError {
public:
    enum class Kind {
        Unreadable,   // the file could not be read
        EmptyPlaylist // the file was read but lists no usable entry
    };

    Kind kind = Kind::Unreadable;
    QUrl url; // the playlist file

    QString description() const;

    friend bool operator==(const PlaylistError&, const PlaylistError&) = default;
};

// Either entries (never empty) or an error.
struct PlaylistReadResult {
    QList<PlaylistEntry> entries;
    std::optional<PlaylistError> error;
};

// Reading and writing M3U, M3U8 and PLS playlists. Blocking file I/O; safe to call from any thread.
namespace PlaylistFile {

// "m3u", "m3u8" and "pls".
const QSet<QString>& playlistExtensions();

// The URL's file name extension, lower-cased ("" when it has none).
QString pathExtension(const QUrl& url);

// True when the URL's lower-cased extension is one of playlistExtensions().
bool isPlaylist(const QUrl& url);

// Reads a playlist file. PLS is recognised by the "pls" extension or by a line "[playlist]" (in any letter
// case, PlaylistSyntax::isPlsHeader); everything else is read as M3U. Entries that name no local file
// (streams, Windows drive paths, file URLs of other machines) are dropped; entries for files that do not
// exist are kept.
PlaylistReadResult readPlaylist(const QUrl& url);

// Writes the tracks' URLs, titles, artists and durations as PLS when the destination's extension is "pls"
// and as M3U for any other extension, in UTF-8, so that readPlaylist() gives the same files back: a path
// the plain form cannot carry is written as "./" and the relative path, or else as a file URL. The
// destination is replaced atomically (a symbolic link is followed and the file's permissions are kept), so a
// failed write leaves the old file as it was. Returns the file system's error text on failure.
std::optional<QString> writePlaylist(const QList<Track>& tracks, const QUrl& url, bool relativePaths);

// The path of `fileUrl` relative to the folder `fromDirectory`, after resolving symbolic links in both
// ("X/song.mp3", "../Music/X/song.mp3"). No value when they share nothing below the root folder, when the
// file is the folder itself, or when either URL is not a local file.
std::optional<QString> relativePath(const QUrl& fileUrl, const QUrl& fromDirectory);

} // namespace PlaylistFile

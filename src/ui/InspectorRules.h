#pragma once

#include "library/Track.h"
#include "tags/MusicMetadata.h"

#include <QString>
#include <QUrl>

#include <optional>

// The track inspector's rules, apart from its widgets: what it says about the file, when it may save and
// what its sentences read. Pure functions, except loadFileFacts.

namespace Inspector {
// What the facts line shows about the file. In a namespace of its own because the library's metadata
// loader has a FileFacts too: two classes of one name in one program would share, and break, each
// other's template code (std::optional's, for one).
struct FileFacts {
    QString kind;         // the extension in upper case ("MP3"), empty when there is none
    qint64 byteCount = 0; // the file's size, 0 when unknown
    double duration = 0;  // seconds, the track's duration; 0 when unknown

    friend bool operator==(const FileFacts&, const FileFacts&) = default;
};
} // namespace Inspector

// Reads the file's size. Blocking (the disk may be slow): call it off the main thread.
Inspector::FileFacts loadFileFacts(const Track& track);

// "MP3 · 7.3 MB · 4:05 · ≈238 kbps": the kind, the size in decimal units, and with a known duration the
// time and the whole file's average bit rate, truncated (left out below 1 kbps).
QString factsLine(const Inspector::FileFacts& facts);

// Only MP3 files can be saved: the extension, in any case, is "mp3".
bool isMP3(const QUrl& url);

// Save is offered for an MP3 file on disk, when no save is running and there is something to write: an
// edited field or the folder image to embed.
bool canSave(const Track& track, bool edited, bool embedFolderArtwork, bool isSaving);

// The checkbox that copies the folder image into the file shows only where that can happen.
bool offersArtworkEmbedding(const Track& track);

// The line beside the footer's buttons: why nothing can be saved, the last save's error, or what Save does.
struct FooterNote {
    enum class Kind {
        None,
        Info,    // with the information symbol
        Warning, // with the warning symbol, in orange
        Plain,
    };
    Kind kind = Kind::None;
    QString text;

    friend bool operator==(const FooterNote&, const FooterNote&) = default;
};

// The first case that applies: a missing file, a file that is not MP3, the last save's error, edits.
FooterNote footerNote(const Track& track, const std::optional<QString>& saveError, bool edited);

// "MusicBrainz suggests 3 different values, shown in grey below." or "… agrees with your local metadata."
QString lookupSummary(const RemoteMetadata& remote, int differing);

// "87% match", or nothing when the service gave no score.
std::optional<QString> confidenceBadge(int confidence);

// Scores below this are shown in orange: the match may be another song.
inline constexpr int trustedConfidence = 90;

// The Use All confirmation's title and its button: "Replace 3 local fields with MusicBrainz data?",
// "Replace 3 Fields".
QString useAllTitle(const RemoteMetadata& remote, int differing);
QString useAllButtonText(int differing);

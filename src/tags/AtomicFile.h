#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Whether the file being replaced must still be there when the new contents take its place.
enum class ReplaceMode {
    CreateOrReplace, // writing a new file is fine
    ReplaceExisting, // a rewrite of a file read a moment ago: if it has vanished since, fail rather than
                     // bring it back
};

// Puts `contents` in place of the file at `path` in one step, so a reader sees either the old file or the
// new one, never a mixture, and a crash or a full disk never leaves a damaged file behind.
//
// The bytes go to a hidden temporary file beside the target (".<name>.tagtmp"), are flushed to disk, and
// then take the target's place in one rename. A symbolic link is followed: the link stays a link and the
// file it points to is replaced. The target's permission bits, extended attributes (and, where allowed, its
// owner) carry over; a new file gets the usual mode for the process's umask. On any failure the temporary
// file is removed, the target is left exactly as it was, and the system's explanation comes back (e.g. "No
// space left on device"). The rename needs only the folder's permission, so a write-protected target is
// replaced too: refusing it is the caller's decision (the tag writer refuses). Blocking; safe from any
// thread.
std::optional<QString> replaceFileAtomically(const QByteArray& contents, const QString& path,
                                             ReplaceMode mode = ReplaceMode::CreateOrReplace);

// New contents made of bytes in memory around a stretch of an open file, which is copied by the kernel
// (copy_file_range: never through the program's memory, and shared rather than copied where the file system
// can share blocks).
struct SplicedContents {
    QByteArray before;
    int sourceFd = -1; // open for reading; not closed here
    qint64 offset = 0; // where the stretch starts in the source
    qint64 length = 0; // bytes; the save fails if the source ends sooner
    QByteArray after;
};

// replaceFileAtomically() for spliced contents, with the same guarantees.
std::optional<QString> replaceFileAtomically(const SplicedContents& contents, const QString& path,
                                             ReplaceMode mode = ReplaceMode::CreateOrReplace);

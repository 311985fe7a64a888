#pragma once

#include "library/PlaylistEntry.h"
#include "library/Track.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// The file that mirrors the open playlist between runs: an M3U8 of absolute paths named LastSession.m3u8
// in the folder "Orvelle" of the per-user data folder ($XDG_DATA_HOME, usually ~/.local/share).
namespace SessionFile {

// The session file's URL. Creates its folder (and missing parents) each time; a failure is ignored.
QUrl lastSessionURL();

// Writes `tracks` with absolute paths, atomically: after a crash at any moment the file holds either the
// previous session or this one. Returns the file system's error text on failure.
std::optional<QString> write(const QList<Track>& tracks);

// The entries of the session file; nothing when there is no file, it cannot be read or it lists nothing.
std::optional<QList<PlaylistEntry>> read();

} // namespace SessionFile

#pragma once

#include "tags/MusicMetadata.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// The part of a MusicBrainz recording search answer that the program reads. Every field is optional: a
// missing key or JSON null leaves it absent. Plain values.
struct MBTrack {
    std::optional<QString> number; // the track's number on its release, e.g. "3" or "A2"
};

struct MBMedium {
    std::optional<QList<MBTrack>> track;
};

struct MBRelease {
    std::optional<QString> title;
    std::optional<QString> date; // as the service writes it: "1997", "1997-05" or "1997-05-21"
    std::optional<QList<MBMedium>> media;
};

struct MBArtistCredit {
    std::optional<QString> name;
};

struct MBTag {
    std::optional<QString> name;
    std::optional<qint64> count;
};

struct MBRecording {
    std::optional<QString> title;
    std::optional<qint64> score; // 0 to 100 in practice
    std::optional<QList<MBArtistCredit>> artistCredit;
    std::optional<QList<MBRelease>> releases;
    std::optional<QList<MBTag>> tags;
};

struct MBResponse {
    std::optional<QList<MBRecording>> recordings;
};

// Building the search, reading its answer and turning the best recording into proposed tag values.
// Pure functions, safe on any thread.
namespace MusicBrainz {

// The recording search for a song: endpoint?query=…&fmt=json&limit=5, where the query is
// recording:"title" [AND artist:"artist"] [AND release:"album"] with double quotes removed from the values
// and blank artist or album left out. `title` must already be trimmed. Nothing when the endpoint is not a
// usable absolute URL.
std::optional<QUrl> searchUrl(const QString& endpoint, const QString& title, const QString& artist,
                              const QString& album);

// Strict decoding: the body must be a JSON object, and every listed key that is present and not null must
// have its JSON type (a string, an integral number, an array of objects). The one lenient field is "score",
// which may also be a string of decimal digits and is otherwise left absent. Nothing when the body does not
// decode.
std::optional<MBResponse> decodeResponse(const QByteArray& json);

// The highest-scored recording that has a release (a missing score counts as 0, ties keep the service's
// order), or the highest-scored one when none has a release; nothing for an empty list.
std::optional<MBRecording> bestRecording(const QList<MBRecording>& recordings);

// The recording's earliest release by date text (undated releases last, ties in the service's order).
std::optional<MBRelease> chosenRelease(const MBRecording& recording);

// The proposed values for a recording; albumArtist and comment are always absent.
RemoteMetadata makeRemoteMetadata(const MBRecording& recording);

// Every word's first letter upper case and its other letters lower case ("classic rock" → "Classic Rock",
// "hip-hop" → "Hip-Hop"); a word starts at a letter that follows anything but a letter or digit.
QString capitalizedWords(const QString& text);

} // namespace MusicBrainz

#pragma once

#include <QString>
#include <QUrl>

#include <optional>

// One entry read from a playlist file, with the #EXTINF (or PLS) hints that came with it.
struct PlaylistEntry {
    QUrl url; // standardized file URL; the file may not exist
    std::optional<QString> title;
    std::optional<QString> artist;
    std::optional<double> duration; // seconds, only ever present when greater than 0

    friend bool operator==(const PlaylistEntry&, const PlaylistEntry&) = default;
};

#pragma once

#include "playback/NowPlayingPublisher.h"

#include <QDBusObjectPath>
#include <QUrl>
#include <QUuid>
#include <QVariantMap>

#include <optional>

// The MPRIS form of a playlist entry's identity: /org/orvelle/track/<id as 32 hex digits>. It follows
// the entry (its id), not its row, so it survives reordering.
QDBusObjectPath mprisTrackId(const QUuid& trackId);

// The track id MPRIS reserves for "nothing loaded".
QDBusObjectPath mprisNoTrack();

// The Metadata map (a{sv}) for the loaded song: mpris:trackid, xesam:title, xesam:artist (a list),
// xesam:album, xesam:url, mpris:length (microseconds), and mpris:artUrl when `artUrl` is given. Addresses
// are percent-encoded, as URIs must be (file names hold spaces and accents).
QVariantMap mprisMetadata(const NowPlayingInfo& info, const std::optional<QUrl>& artUrl);

// Seconds to the microseconds MPRIS counts in, and back.
qlonglong toMicroseconds(double seconds);
double toSeconds(qlonglong microseconds);

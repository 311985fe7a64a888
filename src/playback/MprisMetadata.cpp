#include "playback/MprisMetadata.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

QDBusObjectPath mprisTrackId(const QUuid& trackId) {
    return QDBusObjectPath(QStringLiteral("/org/orvelle/track/") +
                           QString::fromLatin1(trackId.toByteArray(QUuid::Id128)));
}

QDBusObjectPath mprisNoTrack() {
    return QDBusObjectPath(QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack"));
}

QVariantMap mprisMetadata(const NowPlayingInfo& info, const std::optional<QUrl>& artUrl) {
    QVariantMap metadata{
        {QStringLiteral("mpris:trackid"), QVariant::fromValue(mprisTrackId(info.trackId))},
        {QStringLiteral("xesam:title"), info.title},
        {QStringLiteral("xesam:artist"), QStringList{info.artist}},
        {QStringLiteral("xesam:album"), info.album},
        {QStringLiteral("xesam:url"), info.url.toString(QUrl::FullyEncoded)},
        {QStringLiteral("mpris:length"), toMicroseconds(info.duration)},
    };
    if (artUrl)
        metadata.insert(QStringLiteral("mpris:artUrl"), artUrl->toString(QUrl::FullyEncoded));
    return metadata;
}

qlonglong toMicroseconds(double seconds) {
    if (!std::isfinite(seconds) || seconds <= 0)
        return 0;
    // Far beyond any song, and well inside a 64-bit count of microseconds.
    constexpr double longest = 1e12;
    return std::llround(std::min(seconds, longest) * 1e6);
}

double toSeconds(qlonglong microseconds) {
    return double(microseconds) / 1e6;
}

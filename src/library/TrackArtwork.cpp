#include "library/TrackArtwork.h"

#include <QCryptographicHash>

QByteArray artworkKey(const Track& track) {
    if (!track.artwork)
        return {};
    return QCryptographicHash::hash(*track.artwork, QCryptographicHash::Sha1);
}

std::optional<QByteArray> loadArtwork(const Track& track) {
    return track.artwork;
}

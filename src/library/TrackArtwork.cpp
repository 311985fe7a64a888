#include "library/TrackArtwork.h"

#include "library/FileMetadataReader.h"
#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "tags/FolderArtwork.h"

#include <QtEndian>

#include <xxhash.h>

#include <algorithm>

QByteArray artworkKey(const Track& track) {
    return track.artworkSource().kind() == ArtworkSource::Kind::None ? QByteArray()
                                                                     : track.artworkFingerprint();
}

std::optional<QByteArray> loadArtwork(const Track& track) {
    switch (track.artworkSource().kind()) {
    case ArtworkSource::Kind::Embedded: {
        const QByteArray path =
            QByteArray::fromPercentEncoding(track.url().path(QUrl::FullyEncoded).toLatin1());
        const AssetMetadata metadata = FileMetadataReader().read(path);
        // The reader lists at most one picture: the one the loader fingerprinted.
        const auto picture =
            std::find_if(metadata.commonItems.cbegin(), metadata.commonItems.cend(),
                         [](const CommonItem& item) { return item.key == CommonKey::Artwork; });
        if (picture == metadata.commonItems.cend())
            return std::nullopt;
        return picture->dataValue;
    }
    case ArtworkSource::Kind::Folder:
        // The loader fingerprinted the same thumbnail: making it again from the same image gives the same
        // bytes.
        return FolderArtwork::thumbnail(track.artworkSource().imageUrl());
    case ArtworkSource::Kind::None:
        break;
    }
    return std::nullopt;
}

QByteArray artworkFingerprint(QByteArrayView image) {
    if (image.isEmpty())
        return {};
    // The length and a 128-bit XXH3 of all the bytes: a collision between two pictures of one library is
    // practically impossible, and hashing runs at memory speed, a small fraction of reading the picture.
    // (Qt's own hash is seeded per process, and fingerprints outlive the process in the metadata cache.)
    QByteArray fingerprint(24, Qt::Uninitialized);
    qToLittleEndian<quint64>(quint64(image.size()), fingerprint.data());
    const XXH128_hash_t hash = XXH3_128bits(image.data(), size_t(image.size()));
    qToLittleEndian<quint64>(hash.low64, fingerprint.data() + 8);
    qToLittleEndian<quint64>(hash.high64, fingerprint.data() + 16);
    return fingerprint;
}

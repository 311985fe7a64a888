#include "library/TrackArtwork.h"

#include "library/FileMetadataReader.h"
#include "library/MetadataLoader.h"
#include "library/MetadataReader.h"
#include "tags/FolderArtworkCache.h"

#include <QHash>
#include <QtEndian>

#include <algorithm>

QByteArray artworkKey(const Track& track) {
    return track.artworkSource.kind() == ArtworkSource::Kind::None ? QByteArray() : track.artworkFingerprint;
}

std::optional<QByteArray> loadArtwork(const Track& track) {
    switch (track.artworkSource.kind()) {
    case ArtworkSource::Kind::Embedded: {
        const QByteArray path =
            QByteArray::fromPercentEncoding(track.url.path(QUrl::FullyEncoded).toLatin1());
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
        return FolderArtworkCache::thumbnail(track.artworkSource.imageUrl());
    case ArtworkSource::Kind::None:
        break;
    }
    return std::nullopt;
}

QByteArray artworkFingerprint(QByteArrayView image) {
    if (image.isEmpty())
        return {};
    // Two seeded hashes of all the bytes and their length: 128 bits of hash make a collision between two
    // pictures of one library practically impossible, at a small fraction of the cost of reading them.
    QByteArray fingerprint(24, Qt::Uninitialized);
    qToLittleEndian<quint64>(quint64(image.size()), fingerprint.data());
    qToLittleEndian<quint64>(quint64(qHash(image, size_t(0x9e3779b97f4a7c15ULL))), fingerprint.data() + 8);
    qToLittleEndian<quint64>(quint64(qHash(image, size_t(0xc2b2ae3d27d4eb4fULL))), fingerprint.data() + 16);
    return fingerprint;
}

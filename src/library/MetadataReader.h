#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The container-independent vocabulary a metadata reader delivers and MetadataLoader consumes.
//
// A reader maps each container's fields onto two lists: common items (title, artist, author, creator,
// album, artwork), which the loader sorts into slots where a later value replaces an earlier one, and
// identifier-keyed items, which the loader searches in list order where the first value wins. Readers put
// a file's most trusted tag last among the common items and first among the identified ones, so both rules
// favour it.

enum class CommonKey { Title, Artist, Author, Creator, AlbumName, Artwork };

// What an Artwork item holds: the encoded image, or only its fingerprint (artworkFingerprint in
// TrackArtwork.h), hashed where the tag library keeps the bytes, for a reader that only tells pictures apart.
enum class PictureData { Bytes, Fingerprint };

struct CommonItem {
    CommonKey key = CommonKey::Title;
    std::optional<QString> stringValue;  // the text keys; never an empty string
    std::optional<QByteArray> dataValue; // Artwork: the encoded image, or its fingerprint (PictureData)
};

// Identifiers of the items the program reads, "<format>/<field>". Fields of other tag formats (Vorbis
// comments, RIFF INFO, APE, FFmpeg's names) are reported under the ID3 identifier of the same meaning.
namespace MetadataIdentifier {
inline const QString id3Band = QStringLiteral("id3/TPE2");
inline const QString id3TrackNumber = QStringLiteral("id3/TRCK");
inline const QString id3RecordingTime = QStringLiteral("id3/TDRC");
inline const QString id3Year = QStringLiteral("id3/TYER");
inline const QString id3ContentType = QStringLiteral("id3/TCON");
inline const QString id3Comments = QStringLiteral("id3/COMM");
inline const QString iTunesAlbumArtist = QStringLiteral("itsk/aART");
inline const QString iTunesTrackNumber = QStringLiteral("itsk/trkn");
inline const QString iTunesReleaseDate = QStringLiteral("itsk/%A9day");
inline const QString iTunesUserGenre = QStringLiteral("itsk/%A9gen");
inline const QString iTunesPredefinedGenre = QStringLiteral("itsk/gnre");
inline const QString iTunesUserComment = QStringLiteral("itsk/%A9cmt");
} // namespace MetadataIdentifier

struct MetadataItem {
    QString identifier;                 // one of MetadataIdentifier
    std::optional<QString> stringValue; // never an empty string
    std::optional<QString> numberValue; // a number-valued item, rendered as decimal text
};

// Everything one read of a file yields.
struct AssetMetadata {
    bool readable = false; // false when the file could not be parsed as audio at all
    QList<CommonItem> commonItems;
    QList<MetadataItem> items; // ID3 items, then iTunes items, then the rest
    double duration = 0;       // seconds as the container states it; 0 (or not finite) when unknown
    PictureData pictureData = PictureData::Bytes;
};

// Reads the metadata of a local file. Implementations are blocking and are called from the loaders' pool,
// several threads at once; they never fail: what cannot be read is simply absent. They must not block on
// anything but a regular file's own bytes (a FIFO or device is reported unreadable without being opened).
class MetadataReader {
public:
    virtual ~MetadataReader() = default;
    // `localPath` is the file's path in the file system's own bytes (not necessarily valid UTF-8).
    virtual AssetMetadata read(const QByteArray& localPath) const = 0;
};

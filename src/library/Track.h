#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

// Where a track's artwork came from. Ordered as folder, none, embedded.
class ArtworkSource {
public:
    enum class Kind { Folder, None, Embedded };

    ArtworkSource() = default;
    static ArtworkSource folder(const QUrl& imageUrl) { return ArtworkSource(Kind::Folder, imageUrl); }
    static ArtworkSource none() { return ArtworkSource(); }
    static ArtworkSource embedded() { return ArtworkSource(Kind::Embedded, {}); }

    Kind kind() const { return m_kind; }
    // The image file, for Kind::Folder only.
    QUrl imageUrl() const { return m_imageUrl; }

    // "Folder: cover.jpg", "Embedded in file" or "No artwork".
    QString label() const;

    friend bool operator==(const ArtworkSource&, const ArtworkSource&) = default;

private:
    ArtworkSource(Kind kind, QUrl imageUrl)
        : m_kind(kind)
        , m_imageUrl(std::move(imageUrl)) {}

    Kind m_kind = Kind::None;
    QUrl m_imageUrl;
};

// The five tags beyond title, artist and album, all empty by default.
struct ExtendedTags {
    QString albumArtist;
    QString trackNumber;
    QString year;
    QString genre;
    QString comment;

    friend bool operator==(const ExtendedTags&, const ExtendedTags&) = default;
};

// One entry of the playlist: a plain value, identified by `id` (new at every load).
struct Track {
    QUuid id;
    QUrl url;
    QString title;
    QString artist;
    QString album;
    double duration = 0;    // seconds, 0 when unknown
    bool isMissing = false; // decided when the track was loaded, never re-checked
    QString albumArtist;
    QString trackNumber;
    QString year;
    QString genre;
    QString comment;
    ArtworkSource artworkSource;
    // Names the picture artworkSource points at without holding it (equal for equal bytes, empty when there
    // is none); TrackArtwork.h reads the bytes when something shows them.
    QByteArray artworkFingerprint;

    friend bool operator==(const Track&, const Track&) = default;
};

Q_DECLARE_METATYPE(Track)

// The names the program shows for a track, everywhere it shows one (list, transport bar, search, MPRIS,
// messages, playlist labels): the title, or the file name without its extension when there is none.
QString displayTitle(const Track& track);
// The artist, or "Unknown artist".
QString displayArtist(const Track& track);
// The album, or "Unknown album".
QString displayAlbum(const Track& track);
// The last path component without its extension; a leading dot does not start an extension.
QString fileNameWithoutExtension(const QUrl& url);

// The program's one duration formatter: "3:07", "1:00:00", or an em dash for negative or invalid values.
QString formatTime(double seconds);

#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>
#include <tuple>

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

// What a track holds besides its identity and numbers; shared between copies of the track.
class TrackData : public QSharedData {
public:
    QUrl url;
    QString title;
    QString artist;
    QString album;
    QString albumArtist;
    QString trackNumber;
    QString year;
    QString genre;
    QString comment;
    ArtworkSource artworkSource;
    QByteArray artworkFingerprint;

    friend bool operator==(const TrackData& a, const TrackData& b) {
        const auto fields = [](const TrackData& t) {
            return std::tie(t.url, t.title, t.artist, t.album, t.albumArtist, t.trackNumber, t.year, t.genre,
                            t.comment, t.artworkSource, t.artworkFingerprint);
        };
        return fields(a) == fields(b);
    }
};

// One entry of the playlist: a plain value, identified by `id` (new at every load).
//
// Cheap to copy, because the store, the engine, the song list and the session each hold the whole list and
// every edit of 100,000 songs copies it: the identity and the two numbers stay plain fields, while the texts
// and locations live in one implicitly shared payload that a setter copies only while it is shared.
class Track {
public:
    // A track with no fields set shares one empty payload: it allocates nothing.
    Track();

    QUuid id;
    double duration = 0;    // seconds, 0 when unknown
    bool isMissing = false; // decided when the track was loaded, never re-checked

    const QUrl& url() const { return d->url; }
    const QString& title() const { return d->title; }
    const QString& artist() const { return d->artist; }
    const QString& album() const { return d->album; }
    const QString& albumArtist() const { return d->albumArtist; }
    const QString& trackNumber() const { return d->trackNumber; }
    const QString& year() const { return d->year; }
    const QString& genre() const { return d->genre; }
    const QString& comment() const { return d->comment; }
    const ArtworkSource& artworkSource() const { return d->artworkSource; }
    // Names the picture artworkSource points at without holding it (equal for equal bytes, empty when there
    // is none); TrackArtwork.h reads the bytes when something shows them.
    const QByteArray& artworkFingerprint() const { return d->artworkFingerprint; }

    void setUrl(const QUrl& url) { d->url = url; }
    void setTitle(const QString& title) { d->title = title; }
    void setArtist(const QString& artist) { d->artist = artist; }
    void setAlbum(const QString& album) { d->album = album; }
    void setAlbumArtist(const QString& albumArtist) { d->albumArtist = albumArtist; }
    void setTrackNumber(const QString& trackNumber) { d->trackNumber = trackNumber; }
    void setYear(const QString& year) { d->year = year; }
    void setGenre(const QString& genre) { d->genre = genre; }
    void setComment(const QString& comment) { d->comment = comment; }
    void setArtworkSource(const ArtworkSource& source) { d->artworkSource = source; }
    void setArtworkFingerprint(const QByteArray& fingerprint) { d->artworkFingerprint = fingerprint; }

    friend bool operator==(const Track& a, const Track& b) {
        return a.id == b.id && a.duration == b.duration && a.isMissing == b.isMissing &&
               (a.d == b.d || *a.d == *b.d);
    }

private:
    QSharedDataPointer<TrackData> d;
};

Q_DECLARE_TYPEINFO(Track, Q_RELOCATABLE_TYPE);
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

#include "library/MetadataLoader.h"

#include "library/FileMetadataReader.h"
#include "library/LibraryLog.h"
#include "library/MetadataCache.h"
#include "library/MetadataReader.h"
#include "library/TrackArtwork.h"
#include "tags/FileNames.h"
#include "tags/FolderArtwork.h"
#include "tags/Id3Genres.h"
#include "tags/TextRules.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace MetadataLoader {

namespace {

const FileMetadataReader& fileReader() {
    static const FileMetadataReader reader(PictureData::Fingerprint); // tracks keep only fingerprints
    return reader;
}

bool existsOnDisk(const QByteArray& path) {
    struct stat status {};
    return !path.isEmpty() && ::stat(path.constData(), &status) == 0;
}

struct CommonSlots {
    QString title;
    QString artist; // artist, author and creator share one slot
    QString album;
    std::optional<QByteArray> artwork;
};

CommonSlots sortIntoSlots(const QList<CommonItem>& items) {
    CommonSlots filled;
    for (const CommonItem& item : items) {
        if (item.key == CommonKey::Artwork) {
            if (item.dataValue)
                filled.artwork = item.dataValue;
            continue;
        }
        if (!item.stringValue)
            continue;
        switch (item.key) {
        case CommonKey::Title:
            filled.title = *item.stringValue;
            break;
        case CommonKey::Artist:
        case CommonKey::Author:
        case CommonKey::Creator:
            filled.artist = *item.stringValue;
            break;
        case CommonKey::AlbumName:
            filled.album = *item.stringValue;
            break;
        case CommonKey::Artwork:
            break;
        }
    }
    return filled;
}

// The first value among the items under the first identifier that has one.
QString firstValue(const QList<MetadataItem>& items, std::initializer_list<const QString*> identifiers) {
    for (const QString* identifier : identifiers) {
        for (const MetadataItem& item : items) {
            if (item.identifier != *identifier)
                continue;
            if (item.stringValue && !item.stringValue->isEmpty())
                return *item.stringValue;
            if (item.numberValue)
                return *item.numberValue;
        }
    }
    return {};
}

ExtendedTags extendedTags(const QList<MetadataItem>& items) {
    namespace id = MetadataIdentifier;
    ExtendedTags tags;
    tags.albumArtist = firstValue(items, {&id::id3Band, &id::iTunesAlbumArtist});
    tags.trackNumber = firstValue(items, {&id::id3TrackNumber, &id::iTunesTrackNumber});
    tags.year = TextRules::firstCharacters(
        firstValue(items, {&id::id3RecordingTime, &id::id3Year, &id::iTunesReleaseDate}), 4);
    tags.genre = normalizedGenre(
        firstValue(items, {&id::id3ContentType, &id::iTunesUserGenre, &id::iTunesPredefinedGenre}));
    tags.comment = firstValue(items, {&id::id3Comments, &id::iTunesUserComment});
    return tags;
}

// Decimal integer with an optional sign, as a genre code 0 to 79.
std::optional<int> genreCode(QStringView text) {
    bool negative = false;
    if (!text.isEmpty() && (text.front() == u'+' || text.front() == u'-')) {
        negative = text.front() == u'-';
        text = text.mid(1);
    }
    if (text.isEmpty() ||
        !std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; }))
        return std::nullopt;
    while (text.size() > 1 && text.front() == u'0')
        text = text.mid(1);
    // Past two significant digits the value is out of range, however many digits there are.
    if (text.size() > 2)
        return std::nullopt;
    const int value = text.toInt();
    if ((negative && value != 0) || value >= Id3Genres::names().size())
        return std::nullopt;
    return value;
}

} // namespace

const QSet<QString>& playableExtensions() {
    static const QSet<QString> extensions = {"mp3", "m4a", "m4b",  "aac",  "adts", "aif", "aiff", "aifc",
                                             "wav", "caf", "flac", "alac", "mp4",  "au",  "snd"};
    return extensions;
}

bool isPlayable(const QUrl& url) {
    return playableExtensions().contains(FileNames::extension(url.fileName()));
}

QString normalizedGenre(const QString& text) {
    const qsizetype close = text.indexOf(QLatin1Char(')'));
    if (!text.startsWith(QLatin1Char('(')) || close < 0)
        return text;
    QStringView rest = QStringView(text).mid(close + 1);
    while (!rest.isEmpty() && (rest.front() == u' ' || rest.front() == u'\t'))
        rest = rest.mid(1);
    while (!rest.isEmpty() && (rest.back() == u' ' || rest.back() == u'\t'))
        rest.chop(1);
    if (!rest.isEmpty())
        return rest.toString();
    if (const std::optional<int> code = genreCode(QStringView(text).mid(1, close - 1)))
        return Id3Genres::names().at(*code);
    return text;
}

QThreadPool* pool() {
    static QThreadPool* const loaders = [] {
        auto* created = new QThreadPool;
        created->setMaxThreadCount(8);
        created->setObjectName(QStringLiteral("MetadataLoader"));
        // Loads touch shared caches that static destructors tear down: drop queued loads and let running
        // ones finish while the application object goes away, before those destructors run.
        qAddPostRoutine([] {
            pool()->clear();
            pool()->waitForDone();
        });
        return created;
    }();
    return loaders;
}

QByteArray localPath(const QUrl& url) {
    // Decoding the percent-encoded form keeps names that are not valid UTF-8 (a URL made from such bytes
    // carries them as %XX) openable.
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
}

FileFacts readFacts(const QByteArray& localPath, const MetadataReader& reader) {
    return factsOf(localPath, reader.read(localPath));
}

FileFacts factsOf(const QByteArray& localPath, const AssetMetadata& metadata) {
    if (!metadata.readable)
        qCDebug(lcLibrary) << "No audio metadata could be read from" << localPath;
    const CommonSlots common = sortIntoSlots(metadata.commonItems);
    FileFacts facts;
    facts.title = common.title;
    facts.artist = common.artist;
    facts.album = common.album;
    facts.duration = std::isfinite(metadata.duration) && metadata.duration > 0 ? metadata.duration : 0;
    facts.tags = extendedTags(metadata.items);
    if (common.artwork)
        facts.embeddedArtwork = metadata.pictureData == PictureData::Fingerprint
                                    ? *common.artwork
                                    : artworkFingerprint(*common.artwork);
    return facts;
}

FolderPicture folderPicture(const QUrl& songUrl) {
    const std::optional<QUrl> image = FolderArtwork::imageFor(songUrl);
    if (!image)
        return {};
    const QByteArray path = localPath(*image);
    const FileStamp stamp = FileStamp::of(path);
    const QByteArray identity = "folder image:" + QByteArray::number(stamp.size) + ':' +
                                QByteArray::number(stamp.modified) + ':' + path;
    return {*image, artworkFingerprint(identity)};
}

namespace {

// A random (version 4) UUID. QUuid::createUuid asks the system's generator each time, which costs more than
// the rest of a cached load; ids need only be unique within the playlist, so each thread draws from a fast
// generator the system seeds.
QUuid newTrackId() {
    thread_local QRandomGenerator64 random(QRandomGenerator::system()->generate());
    quint64 bits[2] = {random.generate(), random.generate()};
    QByteArray bytes(reinterpret_cast<const char*>(bits), sizeof bits);
    bytes[6] = char((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = char((bytes[8] & 0x3F) | 0x80); // variant 1
    return QUuid::fromRfc4122(bytes);
}

Track newTrack(const QUrl& url) {
    Track track;
    track.id = newTrackId();
    // Keeping the caller's URL when it is already normal shares its buffers instead of copying them. A path
    // without a segment starting with a dot or an empty one is normal as it stands, found cheaper than by
    // normalizing it.
    const QString path = url.path();
    if (!path.startsWith(u'.') && !path.contains(u"/.") && !path.contains(u"//")) {
        track.setUrl(url);
    } else {
        const QUrl normalized = url.adjusted(QUrl::NormalizePathSegments);
        track.setUrl(normalized == url ? url : normalized);
    }
    return track;
}

} // namespace

Track missingTrack(const QUrl& url, const std::optional<PlaylistEntry>& hint) {
    Track track = newTrack(url);
    track.setTitle(hint && hint->title ? *hint->title : fileNameWithoutExtension(url));
    track.setArtist(hint ? hint->artist.value_or(QString()) : QString());
    track.duration = hint && hint->duration && *hint->duration > 0 ? *hint->duration : 0;
    track.isMissing = true;
    return track;
}

Track trackFrom(const QUrl& url, const std::optional<PlaylistEntry>& hint, const FileFacts& facts,
                const FolderPicture& folder) {
    Track track = newTrack(url);
    if (!facts.embeddedArtwork.isEmpty()) {
        track.setArtworkFingerprint(facts.embeddedArtwork);
        track.setArtworkSource(ArtworkSource::embedded());
    } else if (!folder.imageUrl.isEmpty()) {
        track.setArtworkFingerprint(folder.fingerprint);
        track.setArtworkSource(ArtworkSource::folder(folder.imageUrl));
    }
    const double hintDuration = hint && hint->duration ? *hint->duration : 0;
    track.duration = facts.duration == 0 && hintDuration > 0 ? hintDuration : facts.duration;
    track.setTitle(!facts.title.isEmpty() ? facts.title
                   : hint && hint->title  ? *hint->title
                                          : fileNameWithoutExtension(url));
    track.setArtist(!facts.artist.isEmpty() ? facts.artist
                    : hint                  ? hint->artist.value_or(QString())
                                            : QString());
    track.setAlbum(facts.album);
    track.setAlbumArtist(facts.tags.albumArtist);
    track.setTrackNumber(facts.tags.trackNumber);
    track.setYear(facts.tags.year);
    track.setGenre(facts.tags.genre);
    track.setComment(facts.tags.comment);
    return track;
}

Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint, const MetadataReader& reader) {
    const QByteArray path = localPath(url);
    if (!existsOnDisk(path))
        return missingTrack(url, hint);
    const FileFacts facts = readFacts(path, reader);
    return trackFrom(url, hint, facts,
                     facts.embeddedArtwork.isEmpty() ? folderPicture(url) : FolderPicture());
}

Track loadTrackNow(const QUrl& url, const std::optional<PlaylistEntry>& hint) {
    return loadTrackNow(url, hint, fileReader());
}

QFuture<Track> loadTrack(const QUrl& url, const std::optional<PlaylistEntry>& hint) {
    return QtConcurrent::run(pool(), [url, hint] { return loadTrackNow(url, hint); });
}

ExtendedTags loadExtendedTagsNow(const QUrl& url, const MetadataReader& reader) {
    const QByteArray path = localPath(url);
    if (!existsOnDisk(path))
        return {};
    return extendedTags(reader.read(path).items);
}

ExtendedTags loadExtendedTagsNow(const QUrl& url) {
    return loadExtendedTagsNow(url, fileReader());
}

QFuture<ExtendedTags> loadExtendedTags(const QUrl& url) {
    return QtConcurrent::run(pool(), [url] { return loadExtendedTagsNow(url); });
}

} // namespace MetadataLoader

#include "store/LibraryStore.h"

#include "library/FileBrowser.h"
#include "library/LibraryLog.h"
#include "library/MetadataCache.h"
#include "library/PlayableFiles.h"
#include "library/PlaylistFile.h"
#include "library/SessionFile.h"
#include "library/TrackArtwork.h"
#include "library/TrackBatchLoader.h"
#include "playback/PlayerEngine.h"
#include "tags/FileNames.h"
#include "tags/ID3TagWriter.h"

#include <QFile>
#include <QFileInfo>
#include <QThreadPool>
#include <QtConcurrent>

#include <algorithm>
#include <cstdlib>

QString songCount(qsizetype n) {
    return QStringLiteral("%1 %2").arg(n).arg(n == 1 ? QStringLiteral("song") : QStringLiteral("songs"));
}

namespace {

// The pause between the last change of the list and the session write: a burst of edits writes once.
constexpr std::chrono::milliseconds sessionSaveDelay{700};

// The picture a tag save writes, by where the track's artwork came from: a folder image only when the user
// asked to embed it (read now), an embedded picture again, otherwise none.
std::optional<QByteArray> artworkToWrite(const Track& track, bool embedFolderArtwork) {
    switch (track.artworkSource().kind()) {
    case ArtworkSource::Kind::Folder: {
        if (!embedFolderArtwork)
            return std::nullopt;
        QFile image(track.artworkSource().imageUrl().toLocalFile());
        if (!image.open(QIODevice::ReadOnly))
            return std::nullopt;
        return image.readAll();
    }
    case ArtworkSource::Kind::Embedded:
        return loadArtwork(track);
    case ArtworkSource::Kind::None:
        break;
    }
    return std::nullopt;
}

// What reading a playlist and loading its songs gave: the songs, or why the file gave none.
struct OpenedPlaylist {
    QList<Track> tracks;
    std::optional<PlaylistError> error;
};

// Tag saves rewrite whole files. One thread of their own writes them in the order asked, so two saves of
// one file never interleave and a save never waits behind an import.
QThreadPool* tagWritePool() {
    static QThreadPool* const pool = [] {
        auto* created = new QThreadPool;
        created->setMaxThreadCount(1);
        return created;
    }();
    return pool;
}

} // namespace

LibraryStore::LibraryStore(QSettings* settings, AudioPlayerFactory playerFactory,
                           SaveDestinationChooser chooser, QObject* parent)
    : QObject(parent)
    , m_engine(new PlayerEngine(settings, std::move(playerFactory), this))
    , m_chooser(std::move(chooser))
    , m_bookmarks(settings) {
    m_sessionSaveTimer.setSingleShot(true);
    m_sessionSaveTimer.setTimerType(Qt::PreciseTimer); // a coarse timer may fire up to 5% early
    m_sessionSaveTimer.setInterval(sessionSaveDelay);
    connect(&m_sessionSaveTimer, &QTimer::timeout, this, &LibraryStore::writeSession);
    m_sessionWriter.setMaxThreadCount(1); // writes land in the order they were made
    // A playback message shows in the status line; its clearing at the next start leaves the line alone.
    connect(m_engine, &PlayerEngine::playbackErrorChanged, this, [this] {
        if (!m_engine->playbackError().isNull())
            setStatus(m_engine->playbackError());
    });
}

LibraryStore::~LibraryStore() = default;

// Field setters: each notifies only on a real change.

void LibraryStore::setErrorMessage(const QString& message) {
    if (message == m_errorMessage && message.isNull() == m_errorMessage.isNull())
        return;
    m_errorMessage = message;
    emit errorMessageChanged();
}

void LibraryStore::setPendingClearConfirmation(bool pending) {
    if (pending == m_pendingClearConfirmation)
        return;
    m_pendingClearConfirmation = pending;
    emit pendingClearConfirmationChanged();
}

void LibraryStore::setPendingOpenURL(const QUrl& url) {
    if (url == m_pendingOpenURL)
        return;
    m_pendingOpenURL = url;
    emit pendingOpenURLChanged();
}

void LibraryStore::setPlaylistURL(const QUrl& url) {
    if (url == m_playlistURL)
        return;
    m_playlistURL = url;
    emit playlistURLChanged();
}

void LibraryStore::setHasUnsavedChanges(bool value) {
    if (value == m_hasUnsavedChanges)
        return;
    m_hasUnsavedChanges = value;
    emit hasUnsavedChangesChanged();
}

void LibraryStore::setImporting(bool value) {
    if (value == m_isImporting)
        return;
    m_isImporting = value;
    emit isImportingChanged();
}

void LibraryStore::setStatus(const QString& status) {
    if (status == m_status && status.isNull() == m_status.isNull())
        return;
    m_status = status;
    emit statusChanged();
}

// The one place the list changes: the engine's queue follows at once and the session save is rescheduled.
// Without `change` the step is one a view need not see: the next step's change spans both.
void LibraryStore::changeTracks(QList<Track> tracks, std::optional<TrackListChange> change) {
    m_tracks = std::move(tracks);
    m_engine->setQueue(m_tracks);
    scheduleSessionSave();
    if (change)
        emit tracksEdited(*change);
    emit tracksChanged();
}

qsizetype LibraryStore::indexOf(const QUuid& id) const {
    const auto it =
        std::find_if(m_tracks.cbegin(), m_tracks.cend(), [&](const Track& t) { return t.id == id; });
    return it == m_tracks.cend() ? -1 : it - m_tracks.cbegin();
}

QString LibraryStore::suggestedPlaylistName() const {
    if (m_playlistURL.isEmpty())
        return QStringLiteral("Untitled Playlist");
    return FileNames::withoutExtension(m_playlistURL.fileName()).toString();
}

QFuture<void> LibraryStore::addURLs(const QList<QUrl>& urls, std::optional<int> index) {
    if (urls.isEmpty())
        return QtFuture::makeReadyFuture();
    setImporting(true);
    for (const QUrl& url : urls)
        rememberBookmark(url);
    auto load = [urls] {
        return TrackBatchLoader::loadTracksNow(TrackBatchLoader::requestsFor(collectPlayableFiles(urls)));
    };
    return QtConcurrent::run(TrackBatchLoader::importPool(), load)
        .then(this, [this, index](QList<Track> loaded) {
            if (loaded.isEmpty()) {
                setStatus(QStringLiteral("Nothing playable in that selection."));
                setImporting(false);
                return;
            }
            // The list may have changed while the files loaded: insert into it as it is now.
            QList<Track> tracks = m_tracks;
            const qsizetype at = index ? std::clamp<qsizetype>(*index, 0, tracks.size()) : tracks.size();
            const qsizetype added = loaded.size();
            tracks.insert(at, added, Track());
            std::move(loaded.begin(), loaded.end(), tracks.begin() + at);
            changeTracks(std::move(tracks), TrackListChange::inserted(int(at), int(added)));
            setHasUnsavedChanges(true);
            setStatus(QStringLiteral("Added %1.").arg(songCount(added)));
            setImporting(false);
        });
}

void LibraryStore::requestOpenPlaylist(const QUrl& url) {
    if (m_hasUnsavedChanges && !m_tracks.isEmpty()) {
        setPendingOpenURL(url);
        return;
    }
    openPlaylist(url, true);
}

void LibraryStore::confirmPendingOpen() {
    if (m_pendingOpenURL.isEmpty())
        return;
    const QUrl url = m_pendingOpenURL;
    setPendingOpenURL(QUrl());
    openPlaylist(url, true);
}

QFuture<void> LibraryStore::openPlaylist(const QUrl& url, bool replacing) {
    setImporting(true);
    rememberBookmark(url);
    rememberBookmark(QUrl::fromLocalFile(QFileInfo(url.toLocalFile()).absolutePath()));
    // Only the latest replacing open lands: an older one that finishes later would bring back a playlist
    // the user has left.
    const quint64 request = replacing ? ++m_replacingOpens : 0;
    auto open = [url] {
        const PlaylistReadResult read = PlaylistFile::readPlaylist(url);
        if (read.error)
            return OpenedPlaylist{{}, read.error};
        return OpenedPlaylist{TrackBatchLoader::loadTracksNow(TrackBatchLoader::requestsFor(read.entries)),
                              std::nullopt};
    };
    return QtConcurrent::run(TrackBatchLoader::importPool(), open)
        .then(this, [this, url, replacing, request](OpenedPlaylist opened) {
            if (replacing && request != m_replacingOpens)
                return;
            if (opened.error) {
                setErrorMessage(opened.error->description());
                setImporting(false);
                return;
            }
            QList<Track> loaded = std::move(opened.tracks);
            const qsizetype count = loaded.size();
            const auto missing =
                std::count_if(loaded.cbegin(), loaded.cend(), [](const Track& t) { return t.isMissing; });
            if (replacing) {
                m_engine->stop();
                changeTracks(std::move(loaded));
                setPlaylistURL(url);
                setHasUnsavedChanges(false);
            } else {
                changeTracks(m_tracks + loaded, TrackListChange::inserted(int(m_tracks.size()), int(count)));
                setHasUnsavedChanges(true);
            }
            if (missing == 0)
                setStatus(QStringLiteral("Opened %1.").arg(songCount(count)));
            else
                setStatus(QStringLiteral("Opened %1 \u2014 %2 couldn't be found on disk.")
                              .arg(songCount(count))
                              .arg(missing));
            setImporting(false);
        });
}

void LibraryStore::requestClear() {
    if (m_tracks.isEmpty())
        return;
    if (m_hasUnsavedChanges)
        setPendingClearConfirmation(true);
    else
        clear();
}

void LibraryStore::clear() {
    m_engine->stop();
    changeTracks({});
    setPlaylistURL(QUrl());
    setHasUnsavedChanges(false);
    setStatus(QString());
}

void LibraryStore::save() {
    if (m_tracks.isEmpty()) {
        setErrorMessage(QStringLiteral("There's nothing in the playlist to save."));
        return;
    }
    if (m_playlistURL.isEmpty())
        saveAs();
    else
        writePlaylistTo(m_playlistURL);
}

void LibraryStore::saveAs() {
    if (m_tracks.isEmpty()) {
        setErrorMessage(QStringLiteral("There's nothing in the playlist to save."));
        return;
    }
    const std::optional<QUrl> destination = m_chooser ? m_chooser(suggestedPlaylistName()) : std::nullopt;
    if (!destination)
        return;
    writePlaylistTo(*destination);
}

void LibraryStore::writePlaylistTo(const QUrl& url) {
    if (const auto error = PlaylistFile::writePlaylist(m_tracks, url, true)) {
        setErrorMessage(QStringLiteral("Couldn't save %1: %2").arg(url.fileName(), *error));
        return;
    }
    rememberBookmark(url);
    setPlaylistURL(url);
    setHasUnsavedChanges(false);
    setStatus(QStringLiteral("Saved %1.").arg(url.fileName()));
}

void LibraryStore::remove(const QSet<QUuid>& ids) {
    if (ids.isEmpty())
        return;
    QList<Track> kept;
    kept.reserve(m_tracks.size());
    QList<int> removedRows;
    for (qsizetype i = 0; i < m_tracks.size(); ++i) {
        if (ids.contains(m_tracks[i].id))
            removedRows.append(int(i));
        else
            kept.append(m_tracks[i]);
    }
    changeTracks(std::move(kept), TrackListChange::removed(std::move(removedRows)));
    setHasUnsavedChanges(true);
}

void LibraryStore::moveTrack(const QUuid& id, int offset) {
    const qsizetype from = indexOf(id);
    const qsizetype to = from + offset;
    if (from < 0 || to < 0 || to >= m_tracks.size())
        return;
    QList<Track> tracks = m_tracks;
    tracks.swapItemsAt(from, to);
    // Neighbours swap as one row moving; a longer swap moves two rows.
    const bool neighbours = std::abs(offset) == 1;
    changeTracks(std::move(tracks),
                 neighbours ? TrackListChange::moved(int(from), int(to)) : TrackListChange::reset());
    setHasUnsavedChanges(true);
}

void LibraryStore::moveTrack(const QUuid& id, const QUuid& onto) {
    if (id == onto)
        return;
    const qsizetype source = indexOf(id);
    const qsizetype target = indexOf(onto);
    if (source < 0 || target < 0)
        return;
    // Two changes of the list, as a drag is a removal and an insertion: the engine sees both.
    QList<Track> tracks = m_tracks;
    const Track dragged = tracks.takeAt(source);
    changeTracks(tracks, std::nullopt);
    tracks.insert(std::min<qsizetype>(target, tracks.size()), dragged);
    changeTracks(std::move(tracks), TrackListChange::moved(int(source), int(target)));
    setHasUnsavedChanges(true);
}

void LibraryStore::move(const QList<int>& fromOffsets, int toOffset) {
    QList<bool> moving(m_tracks.size(), false);
    for (int offset : fromOffsets) {
        if (offset >= 0 && offset < m_tracks.size())
            moving[offset] = true;
    }
    QList<Track> moved;
    QList<Track> staying;
    qsizetype insertAt = 0;
    for (qsizetype i = 0; i < m_tracks.size(); ++i) {
        if (moving[i]) {
            moved.append(m_tracks[i]);
        } else {
            staying.append(m_tracks[i]);
            if (i < toOffset)
                ++insertAt;
        }
    }
    for (qsizetype i = 0; i < moved.size(); ++i)
        staying.insert(insertAt + i, moved[i]);
    changeTracks(std::move(staying));
    setHasUnsavedChanges(true);
}

void LibraryStore::setTracks(const QList<Track>& tracks) {
    changeTracks(tracks);
}

void LibraryStore::revealInFileBrowser(const QSet<QUuid>& ids) {
    QList<QUrl> files;
    for (const Track& track : std::as_const(m_tracks)) {
        if (ids.contains(track.id) && !track.isMissing)
            files.append(track.url());
    }
    FileBrowser::showItems(files);
}

QFuture<std::optional<QString>> LibraryStore::saveTags(const QUuid& id, const MusicMetadata& metadata,
                                                       bool embedFolderArtwork) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return QtFuture::makeReadyFuture(
            std::optional<QString>(QStringLiteral("That track is no longer in the playlist.")));
    const Track track = m_tracks[index];
    if (track.isMissing)
        return QtFuture::makeReadyFuture(
            std::optional<QString>(QStringLiteral("The file is missing, so its tags can't be written.")));

    struct Written {
        std::optional<ID3TagWriter::WriteError> error;
        QByteArray embeddedFingerprint; // of the folder picture the save embedded, if it did
    };
    // The writer rewrites the whole file, which a long song or a slow disk makes slow.
    return QtConcurrent::run(tagWritePool(),
                             [track, metadata, embedFolderArtwork] {
                                 const std::optional<QByteArray> artwork =
                                     artworkToWrite(track, embedFolderArtwork);
                                 return Written{ID3TagWriter::write(metadata, artwork, track.url()),
                                                embedFolderArtwork && artwork ? artworkFingerprint(*artwork)
                                                                              : QByteArray()};
                             })
        .then(this, [this, id, metadata](const Written& written) -> std::optional<QString> {
            if (written.error)
                return written.error->description();
            applySavedTags(id, metadata, written.embeddedFingerprint);
            return std::nullopt;
        });
}

void LibraryStore::applySavedTags(const QUuid& id, const MusicMetadata& metadata,
                                  const QByteArray& embeddedFingerprint) {
    // The list was not locked while the file was written: the track may have moved, or gone, since.
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    Track track = m_tracks[index];
    track.setTitle(metadata.title);
    track.setArtist(metadata.artist);
    track.setAlbum(metadata.album);
    track.setAlbumArtist(metadata.albumArtist);
    track.setTrackNumber(metadata.trackNumber);
    track.setYear(metadata.year);
    track.setGenre(metadata.genre);
    track.setComment(metadata.comment);
    if (!embeddedFingerprint.isEmpty()) {
        track.setArtworkSource(ArtworkSource::embedded());
        track.setArtworkFingerprint(embeddedFingerprint);
    }
    QList<Track> tracks = m_tracks;
    tracks[index] = track;
    changeTracks(std::move(tracks));
    MetadataCache::rememberSaved(track);
    setStatus(QStringLiteral("Saved tags to %1.").arg(track.url().fileName()));
}

// Session persistence.

QUrl LibraryStore::lastSessionURL() {
    return SessionFile::lastSessionURL();
}

void LibraryStore::rememberBookmark(const QUrl& url) {
    m_bookmarks.remember(url);
}

void LibraryStore::scheduleSessionSave() {
    m_sessionCopy = m_tracks;
    m_sessionSaveTimer.start();
}

void LibraryStore::writeSession() {
    // The write waits on the disk (it ends with an fsync): off the main thread, the bookmarks after it.
    QtConcurrent::run(&m_sessionWriter, [tracks = m_sessionCopy] {
        SessionFile::write(tracks);
    }).then(this, [this] {
        m_bookmarks.save();
        emit sessionSaved();
    });
}

QFuture<void> LibraryStore::restoreSession() {
    m_bookmarks.restore();
    // Reading and parsing a long session file is file work like the loads: off the main thread with them.
    auto load = []() -> std::optional<QList<Track>> {
        const std::optional<QList<PlaylistEntry>> entries = SessionFile::read();
        if (!entries)
            return std::nullopt;
        return TrackBatchLoader::loadTracksNow(TrackBatchLoader::requestsFor(*entries));
    };
    return QtConcurrent::run(TrackBatchLoader::importPool(), load)
        .then(this, [this](std::optional<QList<Track>> loaded) {
            if (!loaded)
                return;
            changeTracks(std::move(*loaded));
            setHasUnsavedChanges(false);
        });
}

void LibraryStore::stopAccessingAll() {
    m_bookmarks.stopAccessingAll();
}

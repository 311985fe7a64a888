#pragma once

#include "library/BookmarkStore.h"
#include "library/Track.h"
#include "playback/AudioPlayer.h"
#include "store/TrackListChange.h"
#include "tags/MusicMetadata.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <optional>

class PlayerEngine;
class QSettings;

// "1 song", "3 songs": how every sentence of the program counts songs.
QString songCount(qsizetype n);

// Asks the user where to save the playlist, offering `suggestedName` (no extension). Returns the chosen
// file URL, or nothing when the user cancels. The window hands in its save dialog.
using SaveDestinationChooser = std::function<std::optional<QUrl>(const QString& suggestedName)>;

// The one open playlist and every operation the window performs on it.
//
// Lives on the main thread and is the only writer of `tracks`. Every change of `tracks` is handed at once to
// the engine (setQueue) and restarts the 0.7 s countdown of the session save, which writes LastSession.m3u8
// and the bookmark store. Outcomes reach the user as fixed sentences in `status` (information) and
// `errorMessage` (an alert); a null QString means none. The engine's playback errors become the status too.
//
// Asynchronous operations return a QFuture<void> that finishes on the main thread once the operation's
// list change (or its failure) is done; the list is never locked meanwhile, so edits made while an import
// loads are kept. File work (reading playlists, loading songs, writing the session) runs off the main thread.
// Playback messages of the engine become the status.
class LibraryStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<Track> tracks READ tracks NOTIFY tracksChanged)
    Q_PROPERTY(QUrl playlistURL READ playlistURL NOTIFY playlistURLChanged)
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY hasUnsavedChangesChanged)
    Q_PROPERTY(bool isImporting READ isImporting NOTIFY isImportingChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage WRITE setErrorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(bool pendingClearConfirmation READ pendingClearConfirmation WRITE setPendingClearConfirmation
                   NOTIFY pendingClearConfirmationChanged)
    Q_PROPERTY(QUrl pendingOpenURL READ pendingOpenURL WRITE setPendingOpenURL NOTIFY pendingOpenURLChanged)
    Q_PROPERTY(QString suggestedPlaylistName READ suggestedPlaylistName NOTIFY playlistURLChanged)

public:
    // The store creates and owns the engine, built over `playerFactory` with the same settings.
    // `settings` (not owned) must outlive the store; it holds "library.bookmarks" and the engine's keys.
    LibraryStore(QSettings* settings, AudioPlayerFactory playerFactory, SaveDestinationChooser chooser,
                 QObject* parent = nullptr);
    ~LibraryStore() override;

    PlayerEngine* engine() const { return m_engine; }

    const QList<Track>& tracks() const { return m_tracks; }
    QUrl playlistURL() const { return m_playlistURL; } // empty: a new or restored playlist
    bool hasUnsavedChanges() const { return m_hasUnsavedChanges; }
    bool isImporting() const { return m_isImporting; }
    QString status() const { return m_status; }
    QString errorMessage() const { return m_errorMessage; }
    bool pendingClearConfirmation() const { return m_pendingClearConfirmation; }
    QUrl pendingOpenURL() const { return m_pendingOpenURL; } // empty: no open waits for confirmation

    // The window dismisses the alert and declines confirmations through these.
    void setErrorMessage(const QString& message);
    void setPendingClearConfirmation(bool pending);
    void setPendingOpenURL(const QUrl& url);

    // The file name of playlistURL without its extension, or "Untitled Playlist".
    QString suggestedPlaylistName() const;

    // Adds every playable file among `urls` (files, and folders searched recursively in natural order) as
    // one block, at `index` (clamped when the tracks arrive) or at the end.
    QFuture<void> addURLs(const QList<QUrl>& urls, std::optional<int> index = std::nullopt);
    // Opens the playlist replacing the list, or raises pendingOpenURL when unsaved changes would be lost.
    void requestOpenPlaylist(const QUrl& url);
    void confirmPendingOpen();
    // Replaces the list with the playlist's songs, or appends them. A replacing open lands nothing once a
    // later replacing open has begun.
    QFuture<void> openPlaylist(const QUrl& url, bool replacing);
    // Closes the playlist, or raises pendingClearConfirmation when it has unsaved changes.
    void requestClear();
    void clear();
    // Saves to playlistURL, or asks for a destination when there is none. Paths are written relative.
    void save();
    void saveAs();
    void remove(const QSet<QUuid>& ids);
    // Swaps the track with the one `offset` places away; nothing when that is outside the list.
    void moveTrack(const QUuid& id, int offset);
    // Drag and drop: the dragged track lands just after the target when dragged down, before it when up.
    void moveTrack(const QUuid& id, const QUuid& onto);
    // The list's block move: the rows at `fromOffsets` go, in order, before the row at `toOffset`
    // (an index into the list before the move; count means the end).
    void move(const QList<int>& fromOffsets, int toOffset);
    // Replaces the list as it stands; no other field changes.
    void setTracks(const QList<Track>& tracks);
    // Shows the files of those tracks that are not missing, selected, in the desktop's file manager.
    void revealInFileBrowser(const QSet<QUuid>& ids);
    // Writes the eight fields (and the artwork the track's source calls for) into the track's MP3 file,
    // then updates the track in memory from those values (the file is not read again). The file is written
    // off the main thread; the future finishes on the main thread, after the track is updated, with an error
    // text or nothing.
    QFuture<std::optional<QString>> saveTags(const QUuid& id, const MusicMetadata& metadata,
                                             bool embedFolderArtwork);

    // Start-up: resolves the stored bookmarks and reloads LastSession.m3u8. Silent on every failure.
    QFuture<void> restoreSession();
    // The session file: $XDG_DATA_HOME/Orvelle/LastSession.m3u8 (its folder is created here).
    static QUrl lastSessionURL();
    // Records a bookmark for `url` unless its path has one; written with the next session save.
    void rememberBookmark(const QUrl& url);
    // Restarts the 0.7 s countdown to writing the session file and the bookmark store.
    void scheduleSessionSave();
    void stopAccessingAll();

    const BookmarkStore& bookmarks() const { return m_bookmarks; }

signals:
    // After every change of the list. A change made in two steps (a drag) sends it twice.
    void tracksChanged();
    // Just before tracksChanged, once per operation: how the list went from what the last tracksEdited
    // left to what it is now, for views that follow it row by row.
    void tracksEdited(const TrackListChange& change);
    void playlistURLChanged();
    void hasUnsavedChangesChanged();
    void isImportingChanged();
    void statusChanged();
    void errorMessageChanged();
    void pendingClearConfirmationChanged();
    void pendingOpenURLChanged();
    // After each session write attempt (the file and the bookmark store).
    void sessionSaved();

private:
    void changeTracks(QList<Track> tracks, std::optional<TrackListChange> change = TrackListChange::reset());
    void setPlaylistURL(const QUrl& url);
    void setHasUnsavedChanges(bool value);
    void setImporting(bool value);
    void setStatus(const QString& status);
    void writePlaylistTo(const QUrl& url);
    // Updates the saved track in memory, wherever it now stands, after its file was written.
    void applySavedTags(const QUuid& id, const MusicMetadata& metadata,
                        const QByteArray& embeddedFingerprint);
    void writeSession();
    qsizetype indexOf(const QUuid& id) const;

    PlayerEngine* m_engine = nullptr;
    SaveDestinationChooser m_chooser;
    BookmarkStore m_bookmarks;
    QTimer m_sessionSaveTimer;
    QList<Track> m_sessionCopy; // the list as it was at the last change, for the pending save

    QList<Track> m_tracks;
    QUrl m_playlistURL;
    bool m_hasUnsavedChanges = false;
    bool m_isImporting = false;
    QString m_status;
    QString m_errorMessage;
    bool m_pendingClearConfirmation = false;
    QUrl m_pendingOpenURL;
    quint64 m_replacingOpens = 0; // replacing opens started; only the latest one's songs land
    // Session writes, one at a time; destroyed first, so the store waits for a write under way.
    QThreadPool m_sessionWriter;
};

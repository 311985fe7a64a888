#pragma once

#include "library/FileStamp.h"
#include "library/MetadataLoader.h"
#include "library/Track.h"

#include <QByteArray>
#include <QFuture>
#include <QHash>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

class QSqlQuery;

// Remembers what each audio file said when it was last read (FileFacts) and which cover each folder showed,
// so that a later start reads neither a file whose path, size and modification time are unchanged nor a
// folder whose listing and cover are unchanged. Anything else is read again.
//
// It is only a cache, in SQLite's write-ahead-log mode so that two running programs and a crash are safe: a
// missing file starts empty; a damaged one, or one that fails while in use, is thrown away and started again
// (what it could not answer is read from the files); one written by a newer version of the program is left
// alone and not used. An instance is one connection: use it on the thread that made it. Blocking.
class MetadataCache {
public:
    struct FileEntry {
        QByteArray path; // the file system's own bytes
        FileStamp stamp; // taken before the file was read
        FileFacts facts;
    };
    // A folder's cover, with what it depended on: the folder's and its parent's listings (their
    // modification times, taken before the search) and the image file itself.
    struct FolderEntry {
        QByteArray path;
        qint64 modified = 0;
        qint64 parentModified = 0;
        FolderPicture picture;
    };

    explicit MetadataCache(const QString& file = defaultFile());
    ~MetadataCache();
    MetadataCache(const MetadataCache&) = delete;
    MetadataCache& operator=(const MetadataCache&) = delete;

    // $XDG_CACHE_HOME/Orvelle/metadata.sqlite
    static QString defaultFile();
    // Bumped whenever what the cache holds changes meaning: an older cache is emptied, a newer one not used.
    static constexpr int version = 2;

    // An entry as stored, not yet checked against the file or decoded.
    struct StoredFile {
        FileStamp stamp;
        QByteArray facts; // encoded
    };
    struct StoredFolder {
        FolderEntry entry;
        FileStamp image; // the image's stamp when the entry was kept
    };

    // Reading goes in two steps, so that the checks and the decoding (most of the work) can run on many
    // threads while the connection stays on its own: fetch on this instance's thread, then check anywhere.
    // The entries of the files in `folder` (path bytes), by file name.
    QHash<QByteArray, StoredFile> filesIn(const QByteArray& folder);
    // The folder's cover entry, if there is one.
    std::optional<StoredFolder> folder(const QByteArray& folderPath);
    // What the file said, when the entry's stamp equals the file's `stamp` now. Safe on any thread.
    static std::optional<FileFacts> facts(const StoredFile& stored, const FileStamp& stamp);
    // The folder's cover (an empty URL: it has none), when nothing it depended on has changed since. Reads
    // the folders' and the image's stamps; safe on any thread.
    static std::optional<FolderPicture> picture(const StoredFolder& stored);
    // The folder's and its parent's modification times now, for a FolderEntry.
    static FolderEntry folderStamp(const QByteArray& folderPath);

    // Keeps these and drops the entries of the files at the paths `gone`, in one transaction.
    void remember(const QList<FileEntry>& files, const QList<FolderEntry>& folders = {},
                  const QList<QByteArray>& gone = {});

    // Keeps the tags just saved into `track`'s file, so the next start does not read it again. Runs on the
    // global pool; the future finishes when the entry is written (or could not be).
    static QFuture<void> rememberSaved(const Track& track, const QString& file = defaultFile());

private:
    bool open();
    bool prepareSchema();
    void discard(const char* reason);

    QString m_file;
    QString m_connection;
    bool m_usable = false;       // false: every answer is "unknown" and nothing is kept
    bool m_holdsEntries = false; // false: a new or emptied cache, whose answers are "unknown" without asking
    std::unique_ptr<QSqlQuery> m_filesOfFolder; // prepared once: a start asks for every folder
    std::unique_ptr<QSqlQuery> m_folder;
};

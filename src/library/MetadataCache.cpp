#include "library/MetadataCache.h"

#include "library/LibraryLog.h"
#include "library/TrackArtwork.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QtConcurrent/QtConcurrentRun>

#include <sqlite3.h>

#include <atomic>
#include <cstring>

namespace {

// An entry's facts as bytes: each text as its length in UTF-16 units (4 bytes) and its units, the duration as
// the 8 bytes of a double, the fingerprint as its length and bytes; all in this machine's byte order (the
// cache never leaves it). Hand-made because a start decodes every entry: QDataStream costs a device each.
class FactsWriter {
public:
    FactsWriter() { m_out.reserve(256); } // what most songs' tags take, in one allocation
    void text(const QString& value) { bytes(value.constData(), value.size() * qsizetype(sizeof(QChar))); }
    void bytes(const void* data, qsizetype size) {
        const quint32 length = quint32(size);
        m_out.append(reinterpret_cast<const char*>(&length), sizeof length);
        m_out.append(static_cast<const char*>(data), size);
    }
    void number(double value) { m_out.append(reinterpret_cast<const char*>(&value), sizeof value); }
    QByteArray result() const { return m_out; }

private:
    QByteArray m_out;
};

class FactsReader {
public:
    explicit FactsReader(const QByteArray& in)
        : m_in(in) {}
    bool ok() const { return m_ok; }
    bool atEnd() const { return m_at == m_in.size(); }
    QByteArrayView bytes() {
        quint32 length = 0;
        if (!take(&length, sizeof length) || m_in.size() - m_at < qsizetype(length)) {
            m_ok = false;
            return {};
        }
        const QByteArrayView view = QByteArrayView(m_in).sliced(m_at, length);
        m_at += length;
        return view;
    }
    QString text() {
        const QByteArrayView raw = bytes();
        if (raw.size() % qsizetype(sizeof(QChar)) != 0)
            m_ok = false;
        return m_ok ? QString(reinterpret_cast<const QChar*>(raw.data()),
                              raw.size() / qsizetype(sizeof(QChar)))
                    : QString();
    }
    double number() {
        double value = 0;
        take(&value, sizeof value);
        return value;
    }

private:
    bool take(void* into, qsizetype size) {
        if (!m_ok || m_in.size() - m_at < size)
            return m_ok = false;
        std::memcpy(into, m_in.constData() + m_at, size_t(size));
        m_at += size;
        return true;
    }

    const QByteArray& m_in;
    qsizetype m_at = 0;
    bool m_ok = true;
};

QByteArray encoded(const FileFacts& facts) {
    FactsWriter out;
    for (const QString* text : {&facts.title, &facts.artist, &facts.album})
        out.text(*text);
    out.number(facts.duration);
    for (const QString* text : {&facts.tags.albumArtist, &facts.tags.trackNumber, &facts.tags.year,
                                &facts.tags.genre, &facts.tags.comment})
        out.text(*text);
    out.bytes(facts.embeddedArtwork.constData(), facts.embeddedArtwork.size());
    return out.result();
}

std::optional<FileFacts> decoded(const QByteArray& bytes) {
    FactsReader in(bytes);
    FileFacts facts;
    for (QString* text : {&facts.title, &facts.artist, &facts.album})
        *text = in.text();
    facts.duration = in.number();
    for (QString* text : {&facts.tags.albumArtist, &facts.tags.trackNumber, &facts.tags.year,
                          &facts.tags.genre, &facts.tags.comment})
        *text = in.text();
    facts.embeddedArtwork = in.bytes().toByteArray();
    if (!in.ok() || !in.atEnd())
        return std::nullopt;
    return facts;
}

// "/music/a/b.mp3" gives "/music/a" and "b.mp3"; the root's files belong to "".
std::pair<QByteArray, QByteArray> splitPath(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    return {slash > 0 ? path.left(slash) : QByteArray(""), path.mid(slash + 1)};
}

QByteArray imagePath(const QUrl& imageUrl) {
    return QFile::encodeName(imageUrl.toLocalFile());
}

} // namespace

MetadataCache::MetadataCache(const QString& file)
    : m_file(file) {
    static std::atomic<quint64> connections{0};
    m_connection = QStringLiteral("orvelle-metadata-cache-%1").arg(++connections);
    if (!open()) {
        discard("it could not be read");
        if (!open())
            discard("it could not be made again");
    }
}

MetadataCache::~MetadataCache() {
    m_filesOfFolder.reset();
    m_folder.reset();
    QSqlDatabase::database(m_connection, false).close();
    QSqlDatabase::removeDatabase(m_connection);
}

QString MetadataCache::defaultFile() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QStringLiteral("/Orvelle/metadata.sqlite");
}

bool MetadataCache::open() {
    QDir().mkpath(QFileInfo(m_file).path());
    QSqlDatabase db = QSqlDatabase::contains(m_connection)
                          ? QSqlDatabase::database(m_connection, false)
                          : QSqlDatabase::addDatabase("QSQLITE", m_connection);
    db.setDatabaseName(m_file);
    if (!db.open()) {
        qCWarning(lcLibrary) << "Cannot open the metadata cache" << m_file << db.lastError().text();
        return false;
    }
    return prepareSchema();
}

bool MetadataCache::prepareSchema() {
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery query(db);
    // Another program starting at the same moment may hold the file briefly: wait for it rather than fail.
    if (!query.exec("PRAGMA busy_timeout = 10000") || !query.exec("PRAGMA user_version") || !query.next())
        return false;
    int found = query.value(0).toInt();
    if (found < version) {
        // Made (or emptied) once, under the write lock, so that two programs starting together agree; without
        // waiting for the disk, as a cache a system crash damages now is thrown away at the next start.
        if (!query.exec("PRAGMA synchronous = OFF") || !query.exec("PRAGMA journal_mode = WAL") ||
            !query.exec("BEGIN IMMEDIATE") || !query.exec("PRAGMA user_version") || !query.next())
            return false;
        found = query.value(0).toInt();
        const QStringList schema = {
            "DROP TABLE IF EXISTS files",
            "DROP TABLE IF EXISTS folders",
            "CREATE TABLE files (folder BLOB NOT NULL, name BLOB NOT NULL, size INTEGER NOT NULL, "
            "modified INTEGER NOT NULL, facts BLOB NOT NULL, PRIMARY KEY (folder, name)) WITHOUT ROWID",
            "CREATE TABLE folders (path BLOB PRIMARY KEY NOT NULL, modified INTEGER NOT NULL, "
            "parent_modified INTEGER NOT NULL, image BLOB NOT NULL, image_size INTEGER NOT NULL, "
            "image_modified INTEGER NOT NULL, fingerprint BLOB NOT NULL) WITHOUT ROWID",
            QStringLiteral("PRAGMA user_version = %1").arg(version),
        };
        for (qsizetype i = 0; found < version && i < schema.size(); ++i) {
            if (!query.exec(schema[i])) {
                qCWarning(lcLibrary) << "The metadata cache" << m_file
                                     << "failed:" << query.lastError().text();
                query.exec("ROLLBACK");
                return false;
            }
        }
        if (!query.exec("COMMIT"))
            return false;
        found = std::max(found, version);
    }
    // A crash may lose the last entries, never damage the file.
    if (!query.exec("PRAGMA synchronous = NORMAL"))
        return false;
    if (found > version) {
        qCInfo(lcLibrary) << "The metadata cache" << m_file << "belongs to a newer Orvelle; not using it";
        return true; // usable stays false, and the file is left as it is
    }
    m_filesOfFolder = std::make_unique<QSqlQuery>(db);
    m_folder = std::make_unique<QSqlQuery>(db);
    m_filesOfFolder->setForwardOnly(true);
    m_folder->setForwardOnly(true);
    if (!query.exec("SELECT EXISTS (SELECT 1 FROM files) OR EXISTS (SELECT 1 FROM folders)") || !query.next())
        return false;
    m_holdsEntries = query.value(0).toBool();
    m_usable = m_filesOfFolder->prepare("SELECT name, size, modified, facts FROM files WHERE folder = ?") &&
               m_folder->prepare("SELECT modified, parent_modified, image, image_size, image_modified, "
                                 "fingerprint FROM folders WHERE path = ?");
    return m_usable;
}

void MetadataCache::discard(const char* reason) {
    qCWarning(lcLibrary) << "Starting the metadata cache" << m_file << "again:" << reason;
    m_usable = false;
    m_filesOfFolder.reset();
    m_folder.reset();
    QSqlDatabase::database(m_connection, false).close();
    for (const char* suffix : {"", "-wal", "-shm"})
        QFile::remove(m_file + QLatin1String(suffix));
}

QHash<QByteArray, MetadataCache::StoredFile> MetadataCache::filesIn(const QByteArray& folder) {
    QHash<QByteArray, StoredFile> files;
    if (!m_usable || !m_holdsEntries)
        return files;
    m_filesOfFolder->bindValue(0, folder);
    if (!m_filesOfFolder->exec()) {
        discard(qPrintable(m_filesOfFolder->lastError().text()));
        return files;
    }
    while (m_filesOfFolder->next()) {
        const FileStamp stamp{true, true, m_filesOfFolder->value(1).toLongLong(),
                              m_filesOfFolder->value(2).toLongLong()};
        files.insert(m_filesOfFolder->value(0).toByteArray(),
                     {stamp, m_filesOfFolder->value(3).toByteArray()});
    }
    if (m_filesOfFolder->lastError().isValid()) {
        discard(qPrintable(m_filesOfFolder->lastError().text()));
        return {};
    }
    m_filesOfFolder->finish();
    return files;
}

std::optional<MetadataCache::StoredFolder> MetadataCache::folder(const QByteArray& folderPath) {
    if (!m_usable || !m_holdsEntries)
        return std::nullopt;
    m_folder->bindValue(0, folderPath);
    if (!m_folder->exec()) {
        discard(qPrintable(m_folder->lastError().text()));
        return std::nullopt;
    }
    if (!m_folder->next())
        return std::nullopt;
    StoredFolder stored;
    stored.entry = {folderPath, m_folder->value(0).toLongLong(), m_folder->value(1).toLongLong(), {}};
    const QByteArray image = m_folder->value(2).toByteArray();
    if (!image.isEmpty()) {
        stored.entry.picture = {QUrl::fromLocalFile(QFile::decodeName(image)),
                                m_folder->value(5).toByteArray()};
        stored.image = {true, true, m_folder->value(3).toLongLong(), m_folder->value(4).toLongLong()};
    }
    m_folder->finish();
    return stored;
}

std::optional<FileFacts> MetadataCache::facts(const StoredFile& stored, const FileStamp& stamp) {
    if (!stamp.regular || stored.stamp != stamp)
        return std::nullopt;
    return decoded(stored.facts);
}

MetadataCache::FolderEntry MetadataCache::folderStamp(const QByteArray& folderPath) {
    return {folderPath,
            FileStamp::of(folderPath).modified,
            FileStamp::of(splitPath(folderPath).first).modified,
            {}};
}

std::optional<FolderPicture> MetadataCache::picture(const StoredFolder& stored) {
    const FolderEntry now = folderStamp(stored.entry.path);
    if (now.modified != stored.entry.modified || now.parentModified != stored.entry.parentModified)
        return std::nullopt;
    const FolderPicture& picture = stored.entry.picture;
    if (!picture.imageUrl.isEmpty() && FileStamp::of(imagePath(picture.imageUrl)) != stored.image)
        return std::nullopt;
    return picture;
}

namespace {

// One prepared statement of the connection, run row after row with the values bound in place: a load
// keeps thousands of entries in one go, and Qt's binding costs more per value than SQLite's insert.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        m_ok = sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr) == SQLITE_OK;
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(const QByteArray& bytes) {
        m_ok = m_ok && sqlite3_bind_blob64(m_statement, ++m_column, bytes.constData(),
                                           sqlite3_uint64(bytes.size()), SQLITE_STATIC) == SQLITE_OK;
        return *this;
    }
    Statement& bind(qint64 number) {
        m_ok = m_ok && sqlite3_bind_int64(m_statement, ++m_column, number) == SQLITE_OK;
        return *this;
    }
    // Runs it with the bound values; false once anything has failed.
    bool run() {
        m_ok = m_ok && sqlite3_step(m_statement) == SQLITE_DONE;
        sqlite3_reset(m_statement);
        m_column = 0;
        return m_ok;
    }

private:
    sqlite3_stmt* m_statement = nullptr;
    int m_column = 0;
    bool m_ok = false;
};

} // namespace

void MetadataCache::remember(const QList<FileEntry>& files, const QList<FolderEntry>& folders,
                             const QList<QByteArray>& gone) {
    if (!m_usable || (files.isEmpty() && folders.isEmpty() && gone.isEmpty()))
        return;
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    sqlite3* const handle = *static_cast<sqlite3* const*>(db.driver()->handle().constData());
    if (sqlite3_exec(handle, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
        qCWarning(lcLibrary) << "The metadata cache is busy; not keeping" << files.size() << "entries"
                             << sqlite3_errmsg(handle);
        return;
    }
    bool ok = true;
    {
        Statement file(handle, "INSERT OR REPLACE INTO files VALUES (?, ?, ?, ?, ?)");
        for (qsizetype i = 0; ok && i < files.size(); ++i) {
            const FileEntry& entry = files[i];
            if (!entry.stamp.regular)
                continue;
            const auto [folder, name] = splitPath(entry.path);
            ok = file.bind(folder)
                     .bind(name)
                     .bind(entry.stamp.size)
                     .bind(entry.stamp.modified)
                     .bind(encoded(entry.facts))
                     .run();
        }
        Statement forget(handle, "DELETE FROM files WHERE folder = ? AND name = ?");
        for (qsizetype i = 0; ok && i < gone.size(); ++i) {
            const auto [folder, name] = splitPath(gone[i]);
            ok = forget.bind(folder).bind(name).run();
        }
        Statement folder(handle, "INSERT OR REPLACE INTO folders VALUES (?, ?, ?, ?, ?, ?, ?)");
        for (qsizetype i = 0; ok && i < folders.size(); ++i) {
            const FolderEntry& entry = folders[i];
            const QByteArray image =
                entry.picture.imageUrl.isEmpty() ? QByteArray("") : imagePath(entry.picture.imageUrl);
            const FileStamp imageStamp = image.isEmpty() ? FileStamp() : FileStamp::of(image);
            ok = folder.bind(entry.path)
                     .bind(entry.modified)
                     .bind(entry.parentModified)
                     .bind(image)
                     .bind(imageStamp.size)
                     .bind(imageStamp.modified)
                     .bind(entry.picture.fingerprint.isNull() ? QByteArray("") : entry.picture.fingerprint)
                     .run();
        }
    }
    if (!ok || sqlite3_exec(handle, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        const QString error = QString::fromUtf8(sqlite3_errmsg(handle));
        sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
        discard(qPrintable(error));
        return;
    }
    m_holdsEntries = true;
}

QFuture<void> MetadataCache::rememberSaved(const Track& track, const QString& file) {
    return QtConcurrent::run([track, file] {
        FileEntry entry;
        entry.path = MetadataLoader::localPath(track.url());
        entry.stamp = FileStamp::of(entry.path);
        entry.facts = {
            track.title(),
            track.artist(),
            track.album(),
            track.duration,
            {track.albumArtist(), track.trackNumber(), track.year(), track.genre(), track.comment()},
            track.artworkSource().kind() == ArtworkSource::Kind::Embedded ? track.artworkFingerprint()
                                                                          : QByteArray()};
        MetadataCache(file).remember({entry});
    });
}

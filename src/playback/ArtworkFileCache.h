#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QUrl>

#include <optional>

// Turns a song's picture bytes into a file that other programs can open by URL (desktop media
// controls only take a cover as a file:// address).
//
// Each distinct picture is written once, atomically, as <folder>/<SHA-1 of the bytes>.<ext>, where the
// extension follows the decoded image format. Bytes that do not decode as an image give no file.
// Safe from any thread; it reads and writes files, so callers keep it off the main thread. Results are
// remembered for the life of the object, so republishing the same picture costs a hash and a lookup.
class ArtworkFileCache {
public:
    // `folder` is created on first use. The program uses defaultFolder().
    explicit ArtworkFileCache(QString folder = defaultFolder());

    // The user's cache folder + "/Orvelle/art" ($XDG_CACHE_HOME/Orvelle/art).
    static QString defaultFolder();

    // The file holding `bytes`, or nothing when they are not an image or the file cannot be written.
    std::optional<QUrl> fileFor(const QByteArray& bytes);

    QString folder() const { return m_folder; }

private:
    std::optional<QUrl> write(const QByteArray& bytes, const QByteArray& hash);

    QString m_folder;
    QMutex m_mutex;                                 // guards m_known
    QHash<QByteArray, std::optional<QUrl>> m_known; // content hash → file (none: not an image)
};

#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QUrl>

#include <optional>

class QSettings;

// File-access bookmarks of every file, folder and playlist the user chose, by standardized path, kept
// under "library.bookmarks" in the settings as a map of path to bytes.
//
// Linux has no security-scoped access: a bookmark is the path's UTF-8 bytes, resolving it gives the path
// back, and starting or ending access always succeeds and does nothing. The store still keeps the map, so
// settings written by one build are read by another. Entries are only ever added. Main thread only.
class BookmarkStore {
public:
    static constexpr auto settingsKey = "library.bookmarks";

    explicit BookmarkStore(QSettings* settings);

    // Records a bookmark for `url` unless its path already has one (an existing one is never refreshed).
    void remember(const QUrl& url);
    // Replaces the map with the stored one and starts access to every entry that resolves. A stored value
    // that is not a map of bytes is ignored whole (the next save overwrites it).
    void restore();
    // Writes the whole map to the settings.
    void save() const;
    // Ends access to everything restore() started.
    void stopAccessingAll();

    const QMap<QString, QByteArray>& bookmarks() const { return m_bookmarks; }
    const QList<QUrl>& accessedURLs() const { return m_accessedURLs; }

    // The bookmark for `url`, or nothing when none can be made (nothing exists at its path).
    static std::optional<QByteArray> makeBookmark(const QUrl& url);
    // The location a bookmark stands for, or nothing when it does not resolve.
    static std::optional<QUrl> resolveBookmark(const QByteArray& bookmark);

private:
    QSettings* m_settings;
    QMap<QString, QByteArray> m_bookmarks;
    QList<QUrl> m_accessedURLs;
};

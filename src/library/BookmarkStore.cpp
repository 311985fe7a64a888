#include "library/BookmarkStore.h"

#include "library/LibraryLog.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QVariantMap>

namespace {

QString standardizedPath(const QUrl& url) {
    return QDir::cleanPath(url.toLocalFile());
}

} // namespace

BookmarkStore::BookmarkStore(QSettings* settings)
    : m_settings(settings) {}

std::optional<QByteArray> BookmarkStore::makeBookmark(const QUrl& url) {
    // As with a real bookmark, there is none for a path with nothing on disk.
    if (!url.isLocalFile() || !QFileInfo::exists(standardizedPath(url)))
        return std::nullopt;
    return standardizedPath(url).toUtf8();
}

std::optional<QUrl> BookmarkStore::resolveBookmark(const QByteArray& bookmark) {
    const QString path = QString::fromUtf8(bookmark);
    if (!QDir::isAbsolutePath(path))
        return std::nullopt;
    return QUrl::fromLocalFile(path);
}

void BookmarkStore::remember(const QUrl& url) {
    const QString key = standardizedPath(url);
    if (m_bookmarks.contains(key))
        return;
    if (const auto bookmark = makeBookmark(url))
        m_bookmarks.insert(key, *bookmark);
}

void BookmarkStore::restore() {
    const QVariant stored = m_settings->value(settingsKey);
    if (!stored.isValid())
        return;
    if (stored.typeId() != QMetaType::QVariantMap) {
        qCInfo(lcLibrary) << "Ignoring a bookmark store that is not a map";
        return;
    }
    QMap<QString, QByteArray> bookmarks;
    const QVariantMap map = stored.toMap();
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (it.value().typeId() != QMetaType::QByteArray) {
            qCInfo(lcLibrary) << "Ignoring a bookmark store with a value that is not bytes";
            return;
        }
        bookmarks.insert(it.key(), it.value().toByteArray());
    }
    m_bookmarks = bookmarks;
    // Access always starts on Linux; a bookmark that does not resolve stays in the map all the same.
    for (const QByteArray& bookmark : std::as_const(m_bookmarks)) {
        if (const auto url = resolveBookmark(bookmark))
            m_accessedURLs.append(*url);
    }
}

void BookmarkStore::save() const {
    QVariantMap map;
    for (auto it = m_bookmarks.cbegin(); it != m_bookmarks.cend(); ++it)
        map.insert(it.key(), it.value());
    m_settings->setValue(settingsKey, map);
}

void BookmarkStore::stopAccessingAll() {
    m_accessedURLs.clear();
}

#include "playback/ArtworkFileCache.h"

#include "playback/PlaybackLog.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QMutexLocker>
#include <QSaveFile>
#include <QStandardPaths>

ArtworkFileCache::ArtworkFileCache(QString folder)
    : m_folder(std::move(folder)) {}

QString ArtworkFileCache::defaultFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QStringLiteral("/Orvelle/art");
}

std::optional<QUrl> ArtworkFileCache::fileFor(const QByteArray& bytes) {
    if (bytes.isEmpty())
        return std::nullopt;
    const QByteArray hash = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex();
    {
        QMutexLocker lock(&m_mutex);
        const auto known = m_known.constFind(hash);
        if (known != m_known.cend())
            return *known;
    }
    // Two threads writing one picture at once both write the same bytes to the same name: harmless.
    const std::optional<QUrl> url = write(bytes, hash);
    QMutexLocker lock(&m_mutex);
    m_known.insert(hash, url);
    return url;
}

// The image format's usual file extension.
static QString extensionFor(const QByteArray& format) {
    if (format == "jpeg")
        return QStringLiteral("jpg");
    if (format == "tiff")
        return QStringLiteral("tif");
    return QString::fromLatin1(format);
}

std::optional<QUrl> ArtworkFileCache::write(const QByteArray& bytes, const QByteArray& hash) {
    QBuffer buffer;
    buffer.setData(bytes);
    QImageReader reader(&buffer);
    const QByteArray format = reader.format();
    if (format.isEmpty() || reader.read().isNull())
        return std::nullopt;

    const QString path = QDir(m_folder).filePath(QString::fromLatin1(hash) + '.' + extensionFor(format));
    // A file of that name holds these very bytes: another run (or another song) wrote it already.
    if (QFileInfo(path).size() == bytes.size())
        return QUrl::fromLocalFile(path);

    if (!QDir().mkpath(m_folder)) {
        qCWarning(lcPlayback) << "Cannot create the artwork folder" << m_folder;
        return std::nullopt;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        qCWarning(lcPlayback) << "Cannot write the artwork file" << path << file.errorString();
        return std::nullopt;
    }
    return QUrl::fromLocalFile(path);
}

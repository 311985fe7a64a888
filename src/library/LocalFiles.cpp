#include "library/LocalFiles.h"

#include <QDir>

namespace LocalFiles {

QString standardizedPath(const QString& path) {
    QString clean = QDir::cleanPath(path);
    // What cleanPath leaves of ".." in an absolute path stands at its start, above the root.
    while (clean.startsWith(u"/..") && (clean.size() == 3 || clean[3] == u'/'))
        clean.remove(0, 3);
    return clean.isEmpty() ? QStringLiteral("/") : clean;
}

std::optional<QString> path(const QUrl& url) {
    if (!url.isLocalFile())
        return std::nullopt;
    const QString host = url.host();
    if (!host.isEmpty() && host.compare(u"localhost", Qt::CaseInsensitive) != 0)
        return std::nullopt;
    const QString path = url.path(QUrl::FullyDecoded);
    if (!path.startsWith(u'/'))
        return std::nullopt;
    return standardizedPath(path);
}

} // namespace LocalFiles

#include "library/PlayableFiles.h"

#include "library/LibraryLog.h"
#include "library/LocalFiles.h"
#include "library/MetadataLoader.h"
#include "library/NaturalOrder.h"
#include "tags/FileNames.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSet>
#include <QStringList>

#include <algorithm>

namespace {

bool hasPlayableExtension(const QFileInfo& info) {
    return MetadataLoader::playableExtensions().contains(FileNames::extension(info.fileName()));
}

// Every playable path below `root`, unsorted. Folders are tracked by canonical path, which is what makes
// a symbolic link back up the tree harmless. They are visited depth first in natural order, so a folder
// reached by two paths (one through a link) is always listed under the one that comes first.
QStringList enumerateFolder(const QString& root) {
    QStringList found;
    QSet<QString> visited;
    QStringList pending{root};
    while (!pending.isEmpty()) {
        const QString folder = pending.takeLast();
        const QString canonical = QFileInfo(folder).canonicalFilePath();
        if (canonical.isEmpty() || visited.contains(canonical))
            continue;
        visited.insert(canonical);
        if (!QFileInfo(folder).isReadable()) {
            qCInfo(lcLibrary) << "Skipping a folder that cannot be read:" << folder;
            continue;
        }
        // Without QDir::Hidden the iterator leaves out names beginning with a dot.
        QDirIterator it(folder, QDir::AllEntries | QDir::NoDotAndDotDot);
        QStringList subfolders;
        while (it.hasNext()) {
            it.next();
            const QFileInfo info = it.fileInfo();
            if (hasPlayableExtension(info))
                found.append(info.filePath());
            if (info.isDir())
                subfolders.append(info.filePath());
        }
        // Last in, first out: the folder first in natural order is visited next.
        std::sort(subfolders.begin(), subfolders.end(),
                  [](const QString& a, const QString& b) { return naturalLess(b, a); });
        pending.append(subfolders);
    }
    return found;
}

} // namespace

QList<QUrl> collectPlayableFiles(const QList<QUrl>& urls) {
    QList<QUrl> files;
    for (const QUrl& url : urls) {
        const std::optional<QString> local = LocalFiles::path(url);
        const QFileInfo info(local.value_or(QString()));
        if (!local || !info.exists())
            continue;
        if (!info.isDir()) {
            if (hasPlayableExtension(info))
                files.append(QUrl::fromLocalFile(info.filePath()));
            continue;
        }
        QStringList paths = enumerateFolder(info.filePath());
        std::sort(paths.begin(), paths.end(),
                  [](const QString& a, const QString& b) { return naturalLess(a, b); });
        for (const QString& path : std::as_const(paths))
            files.append(QUrl::fromLocalFile(path));
    }
    return files;
}

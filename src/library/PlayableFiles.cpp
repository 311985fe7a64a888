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
#include <numeric>
#include <vector>

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
        const qsizetype firstFound = found.size();
        QStringList subfolders;
        while (it.hasNext()) {
            it.next();
            const QFileInfo info = it.fileInfo();
            if (hasPlayableExtension(info))
                found.append(info.filePath());
            if (info.isDir())
                subfolders.append(info.filePath());
        }
        // The folder's files in natural order by name (their paths differ only there): a library whose
        // folders hold either songs or folders is then found in the order naturalOrder wants.
        const auto name = [](const QString& path) {
            return QStringView(path).sliced(path.lastIndexOf(u'/') + 1);
        };
        std::sort(found.begin() + firstFound, found.end(),
                  [&name](const QString& a, const QString& b) { return naturalLess(name(a), name(b)); });
        // Last in, first out: the folder first in natural order is visited next.
        std::sort(subfolders.begin(), subfolders.end(),
                  [](const QString& a, const QString& b) { return naturalLess(b, a); });
        pending.append(subfolders);
    }
    return found;
}

// The positions of `paths` in natural order; paths found in that order already are only checked. Every
// path is compared from after the last "/" of the part all of them share: that part compares equal in every
// pair and, ending at a "/", splits no run of digits, so the order is that of the whole paths, at a fraction
// of the work for a deep library.
std::vector<qsizetype> naturalOrder(const QStringList& paths) {
    const QString first = paths.value(0);
    qsizetype shared = first.size();
    for (const QString& path : paths) {
        const auto end = first.cbegin() + std::min(shared, path.size());
        shared = std::mismatch(first.cbegin(), end, path.cbegin()).first - first.cbegin();
    }
    const qsizetype cut = shared > 0 ? first.lastIndexOf(u'/', shared - 1) + 1 : 0;
    std::vector<qsizetype> order(size_t(paths.size()));
    std::iota(order.begin(), order.end(), 0);
    const auto less = [&paths, cut](qsizetype a, qsizetype b) {
        return naturalLess(QStringView(paths[a]).sliced(cut), QStringView(paths[b]).sliced(cut));
    };
    if (!std::is_sorted(order.cbegin(), order.cend(), less))
        std::sort(order.begin(), order.end(), less);
    return order;
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
        const QStringList paths = enumerateFolder(info.filePath());
        for (const qsizetype i : naturalOrder(paths))
            files.append(QUrl::fromLocalFile(paths[i]));
    }
    return files;
}

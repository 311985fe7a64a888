#include "library/PlayableFiles.h"

#include "library/BackgroundPriority.h"
#include "library/LibraryLog.h"
#include "library/LocalFiles.h"
#include "library/MetadataLoader.h"
#include "library/NaturalOrder.h"
#include "tags/FileNames.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStringList>
#include <QtConcurrent/QtConcurrentMap>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

bool hasPlayableExtension(const QString& fileName) {
    return MetadataLoader::playableExtensions().contains(FileNames::extension(fileName));
}

// The folder's visible files and folders (links followed, broken links, FIFOs and devices left out), as
// `visit(path, name, isFolder)`. Straight from the directory entries: a library's listing is most of what an
// import does before it reads a file, and the entries tell files from folders without a stat of each.
template <typename Visit> void listFolder(const QString& folder, Visit visit) {
    const QByteArray encoded = QFile::encodeName(folder);
    DIR* const dir = ::opendir(encoded.constData());
    if (!dir)
        return;
    const QString prefix = folder.endsWith(u'/') ? folder : folder + u'/';
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.') // hidden, like "." and ".."
            continue;
        bool isFolder = entry->d_type == DT_DIR;
        bool listed = isFolder || entry->d_type == DT_REG;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
            struct stat status {};
            listed = ::stat((encoded + '/' + entry->d_name).constData(), &status) == 0 &&
                     (S_ISDIR(status.st_mode) || S_ISREG(status.st_mode));
            isFolder = listed && S_ISDIR(status.st_mode);
        }
        if (listed) {
            const QString name = QFile::decodeName(entry->d_name);
            visit(prefix + name, name, isFolder);
        }
    }
    ::closedir(dir);
}

// Every playable path below `root`, unsorted. Folders are tracked by device and inode (what a canonical
// path tells, in one look instead of one per path component), which is what makes a symbolic link back up
// the tree harmless. They are visited depth first in natural order, so a folder reached by two paths (one
// through a link) is always listed under the one that comes first.
QStringList enumerateFolder(const QString& root) {
    QStringList found;
    QSet<std::pair<dev_t, ino_t>> visited;
    QStringList pending{root};
    while (!pending.isEmpty()) {
        const QString folder = pending.takeLast();
        const QByteArray encoded = QFile::encodeName(folder);
        struct stat status {};
        if (::stat(encoded.constData(), &status) != 0 || visited.contains({status.st_dev, status.st_ino}))
            continue;
        visited.insert({status.st_dev, status.st_ino});
        if (::access(encoded.constData(), R_OK) != 0) {
            qCInfo(lcLibrary) << "Skipping a folder that cannot be read:" << folder;
            continue;
        }
        const qsizetype firstFound = found.size();
        QStringList subfolders;
        listFolder(folder, [&](const QString& path, const QString& name, bool isFolder) {
            if (hasPlayableExtension(name))
                found.append(path);
            if (isFolder)
                subfolders.append(path);
        });
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
            if (hasPlayableExtension(info.fileName()))
                files.append(QUrl::fromLocalFile(info.filePath()));
            continue;
        }
        const QStringList found = enumerateFolder(info.filePath());
        QStringList sorted;
        sorted.reserve(found.size());
        for (const qsizetype i : naturalOrder(found))
            sorted.append(found[i]);
        // Making the URLs is most of a listing's own work: the loaders share it.
        files += QtConcurrent::blockingMapped<QList<QUrl>>(MetadataLoader::pool(), sorted,
                                                           [](const QString& path) {
                                                               BackgroundPriority::lowerCurrentThread();
                                                               return QUrl::fromLocalFile(path);
                                                           });
    }
    return files;
}

#include "library/SymlinkResolver.h"

#include <QFile>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <optional>

namespace {

std::optional<QString> realPath(const QString& path) {
    if (path.contains(QChar(0)))
        return std::nullopt;
    char* resolved = ::realpath(QFile::encodeName(path).constData(), nullptr);
    if (!resolved)
        return std::nullopt;
    QString result = QFile::decodeName(resolved);
    std::free(resolved);
    return result;
}

QString joinedPath(const QString& folder, QStringView name) {
    QString path = folder;
    if (!path.endsWith(u'/'))
        path += u'/';
    return path += name;
}

} // namespace

QString SymlinkResolver::folder(const QString& path) {
    if (const auto cached = m_folders.constFind(path); cached != m_folders.constEnd())
        return *cached;
    QString resolved;
    if (std::optional<QString> real = realPath(path)) {
        resolved = std::move(*real);
    } else {
        const qsizetype slash = path.lastIndexOf(u'/');
        if (slash < 0 || path == u'/')
            resolved = path;
        else
            resolved = joinedPath(folder(slash == 0 ? QStringLiteral("/") : path.first(slash)),
                                  QStringView(path).sliced(slash + 1));
    }
    m_folders.insert(path, resolved);
    return resolved;
}

QString SymlinkResolver::file(const QString& path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    if (slash < 0 || path == u'/')
        return path;
    const QStringView parent = slash == 0 ? QStringView(u"/") : QStringView(path).first(slash);
    if (parent != m_lastParent) {
        m_lastParent = parent.toString();
        m_lastResolvedParent = folder(m_lastParent);
        m_lastLinks = linksIn(m_lastResolvedParent);
    }
    const QStringView name = QStringView(path).sliced(slash + 1);
    QString candidate = joinedPath(m_lastResolvedParent, name);
    if (!m_lastLinks.isEmpty() && m_lastLinks.contains(name.toString()))
        return realPath(candidate).value_or(candidate); // a dangling link stays as it is
    return candidate;
}

QSet<QString> SymlinkResolver::linksIn(const QString& resolvedFolder) {
    if (const auto cached = m_links.constFind(resolvedFolder); cached != m_links.constEnd())
        return *cached;
    QSet<QString> links;
    if (DIR* dir = resolvedFolder.contains(QChar(0))
                       ? nullptr
                       : ::opendir(QFile::encodeName(resolvedFolder).constData())) {
        while (const dirent* entry = ::readdir(dir)) {
            bool link = entry->d_type == DT_LNK;
            if (entry->d_type == DT_UNKNOWN) {
                struct stat info;
                link = ::fstatat(::dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                       S_ISLNK(info.st_mode);
            }
            if (link)
                links.insert(QFile::decodeName(entry->d_name));
        }
        ::closedir(dir);
    }
    m_links.insert(resolvedFolder, links);
    return links;
}

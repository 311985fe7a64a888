#pragma once

#include <QHash>
#include <QSet>
#include <QString>

// Resolves symbolic links in clean absolute paths, like realpath(3) but also for paths that do not exist
// (the part that exists is resolved, the rest is kept). Meant for many files from few folders: each
// folder is resolved and listed once, so resolving a file costs no system call of its own unless the
// file is itself a link. Not thread-safe; use one per task.
class SymlinkResolver {
public:
    QString folder(const QString& path);
    QString file(const QString& path);

private:
    QSet<QString> linksIn(const QString& resolvedFolder);

    QHash<QString, QString> m_folders;     // folder as given → resolved
    QHash<QString, QSet<QString>> m_links; // resolved folder → names of the links in it
    QString m_lastParent;                  // files of one folder usually come one after another
    QString m_lastResolvedParent;
    QSet<QString> m_lastLinks;
};

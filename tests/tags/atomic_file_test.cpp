#include "tags/AtomicFile.h"

#include "support/FileContents.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace fixtures;

class AtomicFileTest : public QObject {
    Q_OBJECT

    std::optional<QTemporaryDir> m_dir;

    QString at(const QString& name) const { return m_dir->filePath(name); }
    static QByteArray local(const QString& path) { return QFile::encodeName(path); }
    static int permissionBits(const QString& path) {
        struct stat info {};
        return ::stat(local(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
    }

private slots:
    void init() { m_dir.emplace(); }

    // The old bytes, longer than the new ones, are all gone; a read-only file's permission bits and a file
    // manager's rating (an extended attribute, where the file system keeps them) stay. A temporary name left
    // behind, even one planted as a link to another file, is replaced, not written through.
    void replacesAnExistingFile() {
        const QByteArray path = local(at("song name.mp3"));
        QVERIFY(writeFile(path, "old contents, longer than the new ones"));
        const bool rated = ::setxattr(path.constData(), "user.rating", "5", 1, 0) == 0;
        QCOMPARE(::chmod(path.constData(), 0444), 0);
        QVERIFY(writeFile(at("elsewhere"), "keep me"));
        QCOMPARE(::symlink("elsewhere", local(at(".song name.mp3.tagtmp")).constData()), 0);

        QCOMPARE(replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting), std::nullopt);

        QCOMPARE(readFile(path), "new");
        QCOMPARE(permissionBits(path), 0444);
        char rating = 0;
        QCOMPARE(::getxattr(path.constData(), "user.rating", &rating, 1), rated ? 1 : -1);
        QCOMPARE(rating, rated ? '5' : '\0');
        QCOMPARE(readFile(at("elsewhere")), "keep me");
        QCOMPARE(folderEntries(m_dir->path()), (QStringList{"elsewhere", "song name.mp3"}));
    }

    // A rewrite of a file that has vanished since it was read fails instead of bringing it back, and a folder
    // or a pipe is not a file to replace; a new file (a playlist) is written through a dangling link and gets
    // the mode the umask allows.
    void unusualTargets() {
        QCOMPARE(replaceFileAtomically("x", at("song.mp3"), ReplaceMode::ReplaceExisting),
                 qt_error_string(ENOENT));
        QVERIFY(QDir(m_dir->path()).mkpath("album.mp3/inside"));
        QCOMPARE(replaceFileAtomically("x", at("album.mp3"), ReplaceMode::ReplaceExisting),
                 qt_error_string(EISDIR));
        QCOMPARE(::mkfifo(local(at("pipe.mp3")).constData(), 0600), 0);
        QCOMPARE(replaceFileAtomically("x", at("pipe.mp3"), ReplaceMode::ReplaceExisting),
                 qt_error_string(EPERM));
        QCOMPARE(folderEntries(m_dir->path()), (QStringList{"album.mp3", "pipe.mp3"}));

        QCOMPARE(::symlink("list.m3u", local(at("link.m3u")).constData()), 0);
        const mode_t previous = ::umask(027);
        const std::optional<QString> error = replaceFileAtomically("#EXTM3U\n", at("link.m3u"));
        ::umask(previous);
        QCOMPARE(error, std::nullopt);
        QVERIFY(QFileInfo(at("link.m3u")).isSymLink());
        QCOMPARE(readFile(at("list.m3u")), "#EXTM3U\n");
        QCOMPARE(permissionBits(at("list.m3u")), 0640);
    }

    // A chain of relative links: each stays a link pointing where it did; the file at the end gets the new
    // bytes, and the temporary file was made beside that file (nothing is left in either folder).
    void followsSymbolicLinks() {
        QVERIFY(QDir(m_dir->path()).mkpath("music"));
        QVERIFY(writeFile(at("music/real.mp3"), "old"));
        QCOMPARE(::symlink("music/real.mp3", local(at("link.mp3")).constData()), 0);
        QCOMPARE(::symlink("link.mp3", local(at("outer.mp3")).constData()), 0);

        QCOMPARE(replaceFileAtomically("new", at("outer.mp3"), ReplaceMode::ReplaceExisting), std::nullopt);

        QCOMPARE(QFileInfo(at("outer.mp3")).symLinkTarget(), at("link.mp3"));
        QVERIFY(QFileInfo(at("link.mp3")).isSymLink());
        QCOMPARE(readFile(at("music/real.mp3")), "new");
        QCOMPARE(folderEntries(m_dir->path()), (QStringList{"link.mp3", "music", "outer.mp3"}));
    }
};

QTEST_GUILESS_MAIN(AtomicFileTest)
#include "atomic_file_test.moc"

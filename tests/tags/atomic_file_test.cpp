#include "tags/AtomicFile.h"

#include "support/FileContents.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using fixtures::folderEntries;
using fixtures::readFile;
using fixtures::writeFile;

mode_t permissionBits(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

class AtomicFileTest : public QObject {
    Q_OBJECT

private slots:
    void replacesAnExistingFile_data() {
        QTest::addColumn<int>("mode");
        QTest::addRow("0755") << 0755;
        QTest::addRow("0444 read-only file") << 0444;
    }
    // The old bytes, longer than the new ones, are all gone; the permission bits stay.
    void replacesAnExistingFile() {
        QFETCH(int, mode);
        QTemporaryDir dir;
        const QString path = dir.filePath("song name.mp3");
        QVERIFY(writeFile(path, "old contents, longer than the new ones"));
        const QByteArray name = QFile::encodeName(path);
        // A file manager's rating, kept where the file system stores user attributes.
        const bool rated = ::setxattr(name.constData(), "user.rating", "5", 1, 0) == 0;
        QCOMPARE(::chmod(name.constData(), mode_t(mode)), 0);

        QCOMPARE(replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting), std::nullopt);

        QCOMPARE(readFile(path), QByteArray("new"));
        QCOMPARE(int(permissionBits(path)), mode);
        char rating[8] = {};
        if (rated)
            QCOMPARE(::getxattr(name.constData(), "user.rating", rating, sizeof rating), ssize_t(1));
        QCOMPARE(folderEntries(dir.path()), QStringList{"song name.mp3"});
    }

    void newFileFollowsTheUmask() {
        QTemporaryDir dir;
        const QString path = dir.filePath("list.m3u8");
        const mode_t previous = ::umask(027);
        const std::optional<QString> error = replaceFileAtomically("#EXTM3U\n", path);
        ::umask(previous);
        QCOMPARE(error, std::nullopt);
        QCOMPARE(readFile(path), QByteArray("#EXTM3U\n"));
        QCOMPARE(int(permissionBits(path)), 0640);
    }

    // A chain of relative links: each stays a link pointing where it did; the file at the end gets the new
    // bytes, and the temporary file was made beside that file (nothing is left in either folder).
    void followsSymbolicLinks() {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath("music"));
        const QString real = dir.filePath("music/real.mp3");
        QVERIFY(writeFile(real, "old"));
        QCOMPARE(::chmod(QFile::encodeName(real).constData(), 0640), 0);
        QCOMPARE(::symlink("music/real.mp3", QFile::encodeName(dir.filePath("link.mp3")).constData()), 0);
        const QString outer = dir.filePath("outer.mp3");
        QCOMPARE(::symlink("link.mp3", QFile::encodeName(outer).constData()), 0);
        const QString targetBefore = QFileInfo(outer).symLinkTarget();

        QCOMPARE(replaceFileAtomically("new", outer, ReplaceMode::ReplaceExisting), std::nullopt);

        QCOMPARE(QFileInfo(outer).symLinkTarget(), targetBefore);
        QVERIFY(QFileInfo(dir.filePath("link.mp3")).isSymLink());
        QCOMPARE(readFile(real), QByteArray("new"));
        QCOMPARE(int(permissionBits(real)), 0640);
        QCOMPARE(folderEntries(dir.filePath("music")), QStringList{"real.mp3"});
        QCOMPARE(folderEntries(dir.path()), (QStringList{"link.mp3", "music", "outer.mp3"}));
    }

    void danglingLink() {
        QTemporaryDir dir;
        const QString link = dir.filePath("link.m3u");
        QCOMPARE(::symlink("gone.m3u", QFile::encodeName(link).constData()), 0);

        QVERIFY(replaceFileAtomically("x", link, ReplaceMode::ReplaceExisting).has_value());
        QCOMPARE(folderEntries(dir.path()), QStringList{"link.m3u"});

        QCOMPARE(replaceFileAtomically("x", link, ReplaceMode::CreateOrReplace), std::nullopt);
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(readFile(dir.filePath("gone.m3u")), QByteArray("x"));
    }

    // A file deleted (or moved away) after it was read must not come back with the new tags.
    void vanishedFileIsNotBroughtBack() {
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        QVERIFY(writeFile(path, "old"));
        QVERIFY(QFile::remove(path));

        const std::optional<QString> error = replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting);

        QVERIFY(error.has_value());
        QCOMPARE(*error, qt_error_string(ENOENT));
        QVERIFY(folderEntries(dir.path()).isEmpty());
    }

    // A temporary name left behind, even one planted as a link to another file, is replaced, not written
    // through.
    void staleTemporaryFileIsNotFollowed() {
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        const QString elsewhere = dir.filePath("elsewhere");
        QVERIFY(writeFile(path, "old"));
        QVERIFY(writeFile(elsewhere, "keep me"));
        QCOMPARE(::symlink("elsewhere", QFile::encodeName(dir.filePath(".song.mp3.tagtmp")).constData()), 0);

        QCOMPARE(replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting), std::nullopt);

        QCOMPARE(readFile(path), QByteArray("new"));
        QCOMPARE(readFile(elsewhere), QByteArray("keep me"));
        QCOMPARE(folderEntries(dir.path()), (QStringList{"elsewhere", "song.mp3"}));
    }

    // A write that fails half-way (here at a file size limit, as on a full disk) removes the temporary file.
    void fileSizeLimitLeavesTheFile() {
        QTemporaryDir dir;
        const QString path = dir.filePath("song.mp3");
        const QByteArray old(4096, 'o');
        QVERIFY(writeFile(path, old));

        struct rlimit previous {};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &previous), 0);
        struct rlimit limited = previous;
        limited.rlim_cur = 64 * 1024;
        const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &limited), 0);
        const std::optional<QString> error =
            replaceFileAtomically(QByteArray(256 * 1024, 'n'), path, ReplaceMode::ReplaceExisting);
        ::setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, previousHandler);

        QVERIFY(error.has_value());
        QCOMPARE(*error, qt_error_string(EFBIG));
        QCOMPARE(readFile(path), old);
        QCOMPARE(folderEntries(dir.path()), QStringList{"song.mp3"});
    }

    void directoryIsNotReplaced() {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath("album.mp3/inside"));

        QCOMPARE(replaceFileAtomically("x", dir.filePath("album.mp3"), ReplaceMode::ReplaceExisting),
                 qt_error_string(EISDIR));

        QVERIFY(QFileInfo(dir.filePath("album.mp3/inside")).isDir());
        QCOMPARE(folderEntries(dir.path()), QStringList{"album.mp3"});
    }
};

QTEST_GUILESS_MAIN(AtomicFileTest)
#include "atomic_file_test.moc"

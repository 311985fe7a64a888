#include "tags/AtomicFile.h"

#include "support/FileContents.h"
#include "support/ScratchMount.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
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
    void replacesContents_data();
    void replacesContents();
    void keepsPermissionBits_data();
    void keepsPermissionBits();
    void newFileFollowsTheUmask();
    void followsSymbolicLinks_data();
    void followsSymbolicLinks();
    void danglingLink();
    void vanishedFileIsNotBroughtBack();
    void staleTemporaryFileIsNotFollowed();
    void readOnlyFolderLeavesTheFile();
    void fullDiskLeavesTheFile();
    void fileSizeLimitLeavesTheFile();
    void directoryIsNotReplaced();
};

void AtomicFileTest::replacesContents_data() {
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("mode");
    QTest::addRow("existing file") << true << QByteArray("new bytes") << int(ReplaceMode::ReplaceExisting);
    QTest::addRow("existing file, may be new")
        << true << QByteArray("new") << int(ReplaceMode::CreateOrReplace);
    QTest::addRow("empty contents") << true << QByteArray() << int(ReplaceMode::ReplaceExisting);
    QTest::addRow("several megabytes")
        << true << QByteArray(3 << 20, 'x') << int(ReplaceMode::ReplaceExisting);
    QTest::addRow("new file") << false << QByteArray("first") << int(ReplaceMode::CreateOrReplace);
}

void AtomicFileTest::replacesContents() {
    QFETCH(bool, exists);
    QFETCH(QByteArray, contents);
    QFETCH(int, mode);
    QTemporaryDir dir;
    const QString path = dir.filePath("song name.mp3");
    if (exists)
        QVERIFY(writeFile(path, "old contents, longer than the new ones"));

    QCOMPARE(replaceFileAtomically(contents, path, ReplaceMode(mode)), std::nullopt);

    QCOMPARE(readFile(path), contents);
    QCOMPARE(folderEntries(dir.path()), QStringList{"song name.mp3"});
}

void AtomicFileTest::keepsPermissionBits_data() {
    QTest::addColumn<int>("mode");
    QTest::addRow("0600") << 0600;
    QTest::addRow("0640") << 0640;
    QTest::addRow("0755") << 0755;
    QTest::addRow("0444 read-only file") << 0444;
}

void AtomicFileTest::keepsPermissionBits() {
    QFETCH(int, mode);
    QTemporaryDir dir;
    const QString path = dir.filePath("a.mp3");
    QVERIFY(writeFile(path, "old"));
    QCOMPARE(::chmod(QFile::encodeName(path).constData(), mode_t(mode)), 0);

    QCOMPARE(replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting), std::nullopt);

    QCOMPARE(readFile(path), QByteArray("new"));
    QCOMPARE(int(permissionBits(path)), mode);
}

void AtomicFileTest::newFileFollowsTheUmask() {
    QTemporaryDir dir;
    const QString path = dir.filePath("list.m3u8");
    const mode_t previous = ::umask(027);
    const std::optional<QString> error = replaceFileAtomically("#EXTM3U\n", path);
    ::umask(previous);
    QCOMPARE(error, std::nullopt);
    QCOMPARE(int(permissionBits(path)), 0640);
}

void AtomicFileTest::followsSymbolicLinks_data() {
    QTest::addColumn<QString>("linkTarget"); // as stored in the link, relative to the link's folder
    QTest::addColumn<bool>("chained");
    QTest::addRow("relative link") << "music/real.mp3" << false;
    QTest::addRow("absolute link") << "" << false;
    QTest::addRow("link to a link") << "music/real.mp3" << true;
}

// The link stays a link pointing where it did; the file at its end gets the new bytes, and the temporary
// file was made beside that file (nothing is left in either folder).
void AtomicFileTest::followsSymbolicLinks() {
    QFETCH(QString, linkTarget);
    QFETCH(bool, chained);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("music"));
    const QString real = dir.filePath("music/real.mp3");
    QVERIFY(writeFile(real, "old"));
    QCOMPARE(::chmod(QFile::encodeName(real).constData(), 0640), 0);
    const QString stored = linkTarget.isEmpty() ? real : linkTarget;
    QString link = dir.filePath("link.mp3");
    QCOMPARE(::symlink(QFile::encodeName(stored).constData(), QFile::encodeName(link).constData()), 0);
    if (chained) {
        const QString outer = dir.filePath("outer.mp3");
        QCOMPARE(::symlink("link.mp3", QFile::encodeName(outer).constData()), 0);
        link = outer;
    }
    const QString storedBefore = QFileInfo(link).symLinkTarget();

    QCOMPARE(replaceFileAtomically("new", link, ReplaceMode::ReplaceExisting), std::nullopt);

    QVERIFY(QFileInfo(link).isSymLink());
    QCOMPARE(QFileInfo(link).symLinkTarget(), storedBefore);
    QCOMPARE(readFile(real), QByteArray("new"));
    QCOMPARE(int(permissionBits(real)), 0640);
    QCOMPARE(folderEntries(dir.filePath("music")), QStringList{"real.mp3"});
    QVERIFY(!folderEntries(dir.path()).join(' ').contains("tagtmp"));
}

void AtomicFileTest::danglingLink() {
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
void AtomicFileTest::vanishedFileIsNotBroughtBack() {
    QTemporaryDir dir;
    const QString path = dir.filePath("song.mp3");
    QVERIFY(writeFile(path, "old"));
    QVERIFY(QFile::remove(path));

    const std::optional<QString> error = replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting);

    QVERIFY(error.has_value());
    QCOMPARE(*error, qt_error_string(ENOENT));
    QVERIFY(folderEntries(dir.path()).isEmpty());
}

// A temporary name left behind, even one planted as a link to another file, is replaced, not written through.
void AtomicFileTest::staleTemporaryFileIsNotFollowed() {
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

void AtomicFileTest::readOnlyFolderLeavesTheFile() {
    fixtures::LockedFolder folder;
    if (!folder.isValid())
        QSKIP("running as root without the right to mount: no folder is read-only to this process");
    const QString path = folder.filePath("song.mp3");
    QVERIFY(writeFile(path, "old"));
    QVERIFY(folder.lock());

    const std::optional<QString> error = replaceFileAtomically("new", path, ReplaceMode::ReplaceExisting);

    QCOMPARE(error, qt_error_string(folder.writeError()));
    QCOMPARE(readFile(path), QByteArray("old"));
    QCOMPARE(folderEntries(folder.path()), QStringList{"song.mp3"});
}

void AtomicFileTest::fullDiskLeavesTheFile() {
    fixtures::ScratchMount disk(256 * 1024);
    if (!disk.isValid())
        QSKIP("cannot mount a small file system here");
    const QString path = disk.filePath("song.mp3");
    const QByteArray old(100 * 1024, 'o');
    QVERIFY(writeFile(path, old));

    const std::optional<QString> error =
        replaceFileAtomically(QByteArray(200 * 1024, 'n'), path, ReplaceMode::ReplaceExisting);

    QVERIFY(error.has_value());
    QCOMPARE(*error, qt_error_string(ENOSPC));
    QCOMPARE(readFile(path), old);
    QCOMPARE(folderEntries(disk.path()), QStringList{"song.mp3"});
}

// The same failure in the middle of writing, on any machine: a file size limit stops the write.
void AtomicFileTest::fileSizeLimitLeavesTheFile() {
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

void AtomicFileTest::directoryIsNotReplaced() {
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("album.mp3/inside"));

    QCOMPARE(replaceFileAtomically("x", dir.filePath("album.mp3"), ReplaceMode::ReplaceExisting),
             qt_error_string(EISDIR));

    QVERIFY(QFileInfo(dir.filePath("album.mp3/inside")).isDir());
    QCOMPARE(folderEntries(dir.path()), QStringList{"album.mp3"});
}

QTEST_GUILESS_MAIN(AtomicFileTest)
#include "atomic_file_test.moc"

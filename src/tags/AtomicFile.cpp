#include "tags/AtomicFile.h"

#include "tags/TagsLog.h"

#include <QFile>
#include <QtGlobal>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

struct Target {
    QByteArray path; // the file really replaced, links followed
    bool exists = false;
    uid_t uid = 0; // owner, group and permission bits of the existing file
    gid_t gid = 0;
    mode_t mode = 0;
};

QString errorText(int error) {
    return qt_error_string(error);
}

QByteArray directoryOf(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    if (slash < 0)
        return ".";
    return slash == 0 ? QByteArray("/") : path.left(slash);
}

// Follows symbolic links the way the kernel would (at most 40 of them), so that the link itself survives and
// the temporary file lands beside the real file, on its file system.
std::optional<int> resolve(const QByteArray& path, Target& target) {
    QByteArray current = path;
    for (int hops = 0; hops <= 40; ++hops) {
        struct stat info {};
        if (::lstat(current.constData(), &info) != 0) {
            if (errno != ENOENT)
                return errno;
            target.path = current;
            return std::nullopt;
        }
        if (S_ISDIR(info.st_mode))
            return EISDIR;
        if (!S_ISLNK(info.st_mode)) {
            if (!S_ISREG(info.st_mode))
                return EPERM; // a device or a pipe is not a file to replace
            target = Target{current, true, info.st_uid, info.st_gid, mode_t(info.st_mode & 07777)};
            return std::nullopt;
        }
        QByteArray link(qsizetype(info.st_size > 0 ? info.st_size : PATH_MAX), Qt::Uninitialized);
        const ssize_t length = ::readlink(current.constData(), link.data(), size_t(link.size()));
        if (length < 0)
            return errno;
        link.truncate(length);
        current = link.startsWith('/') ? link : directoryOf(current) + '/' + link;
    }
    return ELOOP;
}

QByteArray temporaryPathFor(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray name = path.mid(slash + 1);
    return path.left(slash + 1) + '.' + name + ".tagtmp";
}

std::optional<int> writeAll(int fd, QByteArrayView contents) {
    const char* data = contents.constData();
    qint64 left = contents.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        data += written;
        left -= written;
    }
    return std::nullopt;
}

// Copies `length` bytes of `from` at `offset` to the current position of `to`. The kernel copies in place
// where it can; between file systems that refuse, a small buffer does it.
std::optional<int> copyRange(int from, qint64 offset, qint64 length, int to) {
    bool kernelCopies = true;
    QByteArray buffer;
    while (length > 0) {
        ssize_t copied = -1;
        if (kernelCopies) {
            loff_t at = offset;
            copied = ::copy_file_range(from, &at, to, nullptr, size_t(std::min<qint64>(length, 1 << 30)), 0);
            if (copied < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
                kernelCopies = false;
                buffer.resize(1 << 20);
                continue;
            }
        } else {
            copied = ::pread(from, buffer.data(), size_t(std::min<qint64>(length, buffer.size())), offset);
            if (copied > 0) {
                if (const std::optional<int> error = writeAll(to, QByteArrayView(buffer.constData(), copied)))
                    return error;
            }
        }
        if (copied < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (copied == 0)
            return ENODATA; // the file has shrunk since it was looked at
        offset += copied;
        length -= copied;
    }
    return std::nullopt;
}

// What `call` (listxattr or getxattr with a buffer and its size) gives, in a buffer of the size it asks for.
template <typename Call> std::optional<QByteArray> sizedRead(Call call) {
    const ssize_t size = call(nullptr, 0);
    if (size < 0)
        return std::nullopt;
    QByteArray buffer(size, Qt::Uninitialized);
    const ssize_t length = call(buffer.data(), size_t(size));
    if (length < 0)
        return std::nullopt;
    buffer.truncate(length);
    return buffer;
}

// Extended attributes hold what other programs know about the file (a file manager's tags and ratings, an
// access control list); they belong to the old file, so they are copied to the new one. One that cannot be
// set here (a security label, say) is left behind rather than failing the save.
void copyAttributes(const QByteArray& from, int to) {
    const std::optional<QByteArray> names =
        sizedRead([&](char* buffer, size_t size) { return ::listxattr(from.constData(), buffer, size); });
    for (const QByteArray& name : names.value_or(QByteArray()).split('\0')) {
        if (name.isEmpty())
            continue;
        const std::optional<QByteArray> value = sizedRead([&](char* buffer, size_t size) {
            return ::getxattr(from.constData(), name.constData(), buffer, size);
        });
        if (!value || ::fsetxattr(to, name.constData(), value->constData(), size_t(value->size()), 0) != 0)
            qCDebug(lcTags) << "could not keep attribute" << name << "of" << from << errorText(errno);
    }
}

// Writes the complete temporary file and flushes it to disk, so that the rename can only ever expose a
// complete file. The old file's owner, mode and extended attributes are copied (owner first: chown may clear
// set-id bits; attributes last, as an access control list also sets the mode).
std::optional<int> writeTemporary(const QByteArray& temporary, const SplicedContents& contents,
                                  const Target& target) {
    ::unlink(temporary.constData()); // a leftover of an interrupted save
    const int fd = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          target.exists ? 0600 : 0666);
    if (fd < 0)
        return errno;
    std::optional<int> error;
    if (target.exists) {
        struct stat created {};
        if (::fstat(fd, &created) == 0 && (created.st_uid != target.uid || created.st_gid != target.gid) &&
            ::fchown(fd, target.uid, target.gid) != 0)
            qCDebug(lcTags) << "could not keep the owner of" << target.path << errorText(errno);
        if (::fchmod(fd, target.mode) != 0)
            error = errno;
        else
            copyAttributes(target.path, fd);
    }
    if (!error)
        error = writeAll(fd, contents.before);
    if (!error && contents.length > 0)
        error = copyRange(contents.sourceFd, contents.offset, contents.length, fd);
    if (!error)
        error = writeAll(fd, contents.after);
    if (!error && ::fsync(fd) != 0)
        error = errno;
    if (::close(fd) != 0 && !error)
        error = errno;
    return error;
}

// Puts the temporary file in the target's place. A rewrite of an existing file swaps the two names in one
// step, which fails if the target has vanished meanwhile instead of bringing it back; file systems without
// the swap get a check and a plain rename.
std::optional<int> putInPlace(const QByteArray& temporary, const QByteArray& path, ReplaceMode mode) {
    if (mode == ReplaceMode::ReplaceExisting) {
        if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, path.constData(), RENAME_EXCHANGE) == 0) {
            ::unlink(temporary.constData()); // now the old file
            return std::nullopt;
        }
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        struct stat info {};
        if (::lstat(path.constData(), &info) != 0)
            return errno;
    }
    if (::rename(temporary.constData(), path.constData()) != 0)
        return errno;
    return std::nullopt;
}

// Makes the rename itself durable; a failure here cannot be undone and the new file is in place, so it is
// only logged.
void syncDirectory(const QByteArray& directory) {
    const int fd = ::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    if (::fsync(fd) != 0)
        qCDebug(lcTags) << "could not flush folder" << directory << errorText(errno);
    ::close(fd);
}

} // namespace

std::optional<QString> replaceFileAtomically(const QByteArray& contents, const QString& path,
                                             ReplaceMode mode) {
    return replaceFileAtomically(SplicedContents{contents, -1, 0, 0, {}}, path, mode);
}

std::optional<QString> replaceFileAtomically(const SplicedContents& contents, const QString& path,
                                             ReplaceMode mode) {
    Target target;
    if (const std::optional<int> error = resolve(QFile::encodeName(path), target))
        return errorText(*error);
    if (mode == ReplaceMode::ReplaceExisting && !target.exists)
        return errorText(ENOENT);

    const QByteArray temporary = temporaryPathFor(target.path);
    std::optional<int> error = writeTemporary(temporary, contents, target);
    if (!error)
        error = putInPlace(temporary, target.path, mode);
    if (error) {
        ::unlink(temporary.constData());
        return errorText(*error);
    }
    syncDirectory(directoryOf(target.path));
    return std::nullopt;
}

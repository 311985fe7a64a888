#pragma once

#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace fixtures {

// A small tmpfs of the test's own, for a full disk or a read-only folder that even root cannot write to.
// Mounting needs the right to mount (root, or a user namespace): where the process lacks it, isValid() is
// false and the test skips that case. Unmounted when destroyed.
class ScratchMount {
public:
    explicit ScratchMount(qint64 sizeBytes);
    ~ScratchMount();
    ScratchMount(const ScratchMount&) = delete;
    ScratchMount& operator=(const ScratchMount&) = delete;

    bool isValid() const { return m_mounted; }
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }

    // Remounts read-only (or writable again). Returns false when the remount fails.
    bool setReadOnly(bool readOnly);

private:
    QTemporaryDir m_dir;
    qint64 m_size = 0;
    bool m_mounted = false;
};

// A folder that this process cannot write to once locked. Root writes through permission bits, so as root it
// is a read-only mount (invalid without the right to mount); otherwise a folder without write permission.
// Put the files in first, then lock(). Unlocked again when destroyed, so that it can be removed.
class LockedFolder {
public:
    LockedFolder();
    ~LockedFolder();
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;

    bool isValid() const;
    QString path() const;
    QString filePath(const QString& name) const { return path() + '/' + name; }
    bool lock();
    // The error a write into the locked folder meets: EROFS for the mount, EACCES for the permissions.
    int writeError() const;

private:
    std::unique_ptr<ScratchMount> m_mount; // as root
    QTemporaryDir m_plain;                 // otherwise
    bool m_locked = false;
};

} // namespace fixtures

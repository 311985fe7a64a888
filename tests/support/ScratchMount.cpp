#include "support/ScratchMount.h"

#include <QFile>

#include <cerrno>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fixtures {

namespace {

QByteArray options(qint64 sizeBytes) {
    return "size=" + QByteArray::number(sizeBytes) + ",mode=0755";
}

} // namespace

ScratchMount::ScratchMount(qint64 sizeBytes)
    : m_size(sizeBytes) {
    if (m_dir.isValid())
        m_mounted = ::mount("tmpfs", QFile::encodeName(m_dir.path()).constData(), "tmpfs", 0,
                            options(sizeBytes).constData()) == 0;
}

ScratchMount::~ScratchMount() {
    if (m_mounted)
        ::umount2(QFile::encodeName(m_dir.path()).constData(), MNT_DETACH);
}

bool ScratchMount::setReadOnly(bool readOnly) {
    const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
    return m_mounted && ::mount("tmpfs", QFile::encodeName(m_dir.path()).constData(), "tmpfs", flags,
                                options(m_size).constData()) == 0;
}

LockedFolder::LockedFolder() {
    if (::geteuid() == 0)
        m_mount = std::make_unique<ScratchMount>(16 << 20);
}

LockedFolder::~LockedFolder() {
    if (m_locked && !m_mount)
        ::chmod(QFile::encodeName(m_plain.path()).constData(), 0755);
}

bool LockedFolder::isValid() const {
    return m_mount ? m_mount->isValid() : m_plain.isValid();
}

QString LockedFolder::path() const {
    return m_mount ? m_mount->path() : m_plain.path();
}

bool LockedFolder::lock() {
    m_locked =
        m_mount ? m_mount->setReadOnly(true) : ::chmod(QFile::encodeName(path()).constData(), 0555) == 0;
    return m_locked;
}

int LockedFolder::writeError() const {
    return m_mount ? EROFS : EACCES;
}

} // namespace fixtures

#include "support/ScratchMount.h"

#include <QFile>

#include <sys/mount.h>

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

} // namespace fixtures

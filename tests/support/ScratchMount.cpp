#include "support/ScratchMount.h"

#include <QFile>

#include <sys/mount.h>

namespace fixtures {

ScratchMount::ScratchMount(qint64 sizeBytes) {
    const QByteArray options = "size=" + QByteArray::number(sizeBytes) + ",mode=0755";
    m_mounted = m_dir.isValid() && ::mount("tmpfs", QFile::encodeName(m_dir.path()).constData(), "tmpfs", 0,
                                           options.constData()) == 0;
}

ScratchMount::~ScratchMount() {
    if (m_mounted)
        ::umount2(QFile::encodeName(m_dir.path()).constData(), MNT_DETACH);
}

bool ScratchMount::makeReadOnly() {
    return m_mounted && ::mount("tmpfs", QFile::encodeName(m_dir.path()).constData(), "tmpfs",
                                MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

} // namespace fixtures

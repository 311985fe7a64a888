#pragma once

#include <QString>
#include <QTemporaryDir>

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
    // Remounts read-only; false when that fails.
    bool makeReadOnly();

private:
    QTemporaryDir m_dir;
    bool m_mounted = false;
};

} // namespace fixtures

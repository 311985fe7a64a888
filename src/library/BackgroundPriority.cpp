#include "library/BackgroundPriority.h"

#include "library/LibraryLog.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace BackgroundPriority {

namespace {

// Nice steps above the process's own. Each step gives a thread about 1.25 times less processor time
// against a busy neighbour: five leave the main thread about three times a loader's share, while the
// loaders still use every idle core at full speed.
constexpr int niceSteps = 5;

} // namespace

void lowerCurrentThread() {
    thread_local const bool lowered = [] {
        // Linux keeps a nice value per thread and takes a thread id where POSIX says process; Qt's thread
        // priorities cannot express this (under the normal policy they change nothing but to idle, which
        // would starve loads whenever anything else runs).
        const pid_t thread = gettid();
        errno = 0;
        const int current = getpriority(PRIO_PROCESS, id_t(thread));
        if (errno == 0 && setpriority(PRIO_PROCESS, id_t(thread), std::min(current + niceSteps, 19)) == 0)
            return true;
        qCDebug(lcLibrary) << "Couldn't lower a loader thread's priority";
        return false;
    }();
    Q_UNUSED(lowered)
}

} // namespace BackgroundPriority

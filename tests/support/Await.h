#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QSignalSpy>

namespace fixtures {

// Runs the event loop until `future` finishes (continuations on the main thread run meanwhile), at most
// `timeoutMs`. True when it finished.
template <typename T> bool await(const QFuture<T>& future, int timeoutMs = 120000) {
    if (future.isFinished())
        return true;
    QFutureWatcher<T> watcher;
    QSignalSpy finished(&watcher, &QFutureWatcherBase::finished);
    watcher.setFuture(future);
    return future.isFinished() || finished.wait(timeoutMs) || future.isFinished();
}

} // namespace fixtures

#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>

// Calls `handler` with the future's result on `owner`'s thread once it is ready, unless `owner` is gone by
// then or the future was cancelled without a result. Work a window starts can outlive the window: Qt 6.4's
// QFuture::then with a context object asserts when the context goes first, a watcher owned by `owner` just
// goes with it.
template <typename T, typename Handler>
void whenReady(QObject* owner, const QFuture<T>& future, Handler handler) {
    auto* watcher = new QFutureWatcher<T>(owner);
    QObject::connect(watcher, &QFutureWatcherBase::finished, owner,
                     [watcher, handler = std::move(handler)]() mutable {
                         watcher->deleteLater();
                         if (watcher->future().resultCount() > 0)
                             handler(watcher->result());
                     });
    watcher->setFuture(future);
}

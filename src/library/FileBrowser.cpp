#include "library/FileBrowser.h"

#include "library/LibraryLog.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>

namespace FileBrowser {

namespace {

void openContainingFolder(const QUrl& file) {
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(file.toLocalFile()).absolutePath());
    if (!QDesktopServices::openUrl(folder))
        qCWarning(lcLibrary) << "Couldn't open the folder" << folder.toLocalFile();
}

} // namespace

void showItems(const QList<QUrl>& files) {
    if (files.isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openContainingFolder(files.first());
        return;
    }
    QStringList uris;
    for (const QUrl& file : files)
        uris.append(QString::fromUtf8(file.toEncoded()));
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    const QUrl first = files.first();
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, first] {
        const QDBusPendingReply<> reply = *watcher;
        if (reply.isError()) {
            qCInfo(lcLibrary) << "No file manager on the session bus:" << reply.error().message();
            openContainingFolder(first);
        }
        watcher->deleteLater();
    });
}

} // namespace FileBrowser

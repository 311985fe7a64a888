#include "library/SessionFile.h"

#include "library/LibraryLog.h"
#include "library/PlaylistFile.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace SessionFile {

QUrl lastSessionURL() {
    const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Orvelle");
    QDir().mkpath(folder);
    return QUrl::fromLocalFile(folder + QStringLiteral("/LastSession.m3u8"));
}

std::optional<QString> write(const QList<Track>& tracks) {
    const QUrl url = lastSessionURL();
    auto error = PlaylistFile::writePlaylist(tracks, url, false);
    if (error)
        qCWarning(lcLibrary) << "Couldn't write the session file" << url.toLocalFile() << *error;
    return error;
}

std::optional<QList<PlaylistEntry>> read() {
    const QUrl url = lastSessionURL();
    if (!QFileInfo::exists(url.toLocalFile()))
        return std::nullopt;
    PlaylistReadResult result = PlaylistFile::readPlaylist(url);
    if (result.error) {
        qCInfo(lcLibrary) << "Nothing restored from the session file:" << result.error->description();
        return std::nullopt;
    }
    return result.entries;
}

} // namespace SessionFile

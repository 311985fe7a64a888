#include "support/MusicFolder.h"

#include "support/FileContents.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFileInfo>

namespace fixtures {

QString sampleSong() {
    static QTemporaryDir folder;
    static const QString path = [] {
        const QString song = folder.filePath(QStringLiteral("sample.mp3"));
        return folder.isValid() && makeAudio(song, 1.0) ? song : QString();
    }();
    return path;
}

QString MusicFolder::addSong(const QString& relativePath) {
    const QByteArray sample = readFile(sampleSong());
    return sample.isEmpty() ? QString() : addFile(relativePath, sample);
}

QString MusicFolder::addFile(const QString& relativePath, const QByteArray& contents) {
    const QString target = filePath(relativePath);
    return QDir().mkpath(QFileInfo(target).absolutePath()) && writeFile(target, contents) ? target
                                                                                          : QString();
}

} // namespace fixtures

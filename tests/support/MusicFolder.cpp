#include "support/MusicFolder.h"

#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
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
    QFile sample(sampleSong());
    return sample.open(QIODevice::ReadOnly) ? addFile(relativePath, sample.readAll()) : QString();
}

QString MusicFolder::addFile(const QString& relativePath, const QByteArray& contents) {
    const QString target = filePath(relativePath);
    QDir().mkpath(QFileInfo(target).absolutePath());
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(contents) != contents.size())
        return {};
    return target;
}

} // namespace fixtures

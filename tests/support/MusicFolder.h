#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

namespace fixtures {

// A temporary folder of songs for end-to-end tests and benchmarks. Songs are copies of one short MP3 that
// ffmpeg generates once per program, so a folder of thousands is quick to make.
class MusicFolder {
public:
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& relativePath) const { return m_dir.filePath(relativePath); }
    QUrl url(const QString& relativePath) const { return QUrl::fromLocalFile(filePath(relativePath)); }

    // Copies the sample MP3 to `relativePath`, creating its folders. Returns the absolute path, or an empty
    // string when the sample could not be made or copied.
    QString addSong(const QString& relativePath);
    // Writes `contents` to `relativePath`, creating its folders. Returns the absolute path.
    QString addFile(const QString& relativePath, const QByteArray& contents = {});

private:
    QTemporaryDir m_dir;
};

// A 1-second untagged MP3 made once per program; empty when ffmpeg is missing.
QString sampleSong();

} // namespace fixtures

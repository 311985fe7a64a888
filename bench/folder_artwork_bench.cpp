// Thumbnails (FolderArtwork::thumbnail) of huge cover images: they must decode scaled, within the image
// reader's allocation limit, rather than at full size. Prints the time and the peak resident memory of
// each. Images are made by ffmpeg. Usage: folder_artwork_bench
#include "support/Fixtures.h"
#include "tags/FolderArtwork.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QTemporaryDir>
#include <QUrl>

#include <sys/resource.h>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    // A 12000 px baseline JPEG (432 MB of pixels) and an 8000 px RGB PNG (192 MB).
    const std::pair<const char*, const char*> images[] = {{"huge.jpg", "12000x12000"},
                                                          {"huge.png", "8000x8000"}};
    for (const auto& [name, size] : images) {
        const QString path = dir.filePath(name);
        if (fixtures::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i",
                                     QStringLiteral("color=gray:s=%1").arg(size), "-frames:v", "1",
                                     "-pix_fmt", QString(name).endsWith("png") ? "rgb24" : "yuvj420p", path})
                .exitCode != 0) {
            std::fprintf(stderr, "ffmpeg could not make %s\n", name);
            return 1;
        }
        QElapsedTimer timer;
        timer.start();
        const std::optional<QByteArray> thumbnail = FolderArtwork::thumbnail(QUrl::fromLocalFile(path));
        const double seconds = timer.nsecsElapsed() / 1e9;
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const QSize made = thumbnail ? QImage::fromData(*thumbnail).size() : QSize();
        std::printf("thumbnail of a %s %s: %.3f s, %dx%d, peak resident memory so far %ld MB\n", size, name,
                    seconds, made.width(), made.height(), usage.ru_maxrss / 1024);
        if (!thumbnail)
            return 1;
    }
    return 0;
}

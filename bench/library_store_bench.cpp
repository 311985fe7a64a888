// Adding a folder of 2,000 songs in 200 albums, restoring a 10,000-song session, and the memory each
// track of the open playlist costs. Songs are copies of one generated MP3; every album has a cover image,
// so the folder artwork scan and its thumbnail are part of every load.

#include "library/SessionFile.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdio>

namespace {

AudioPlayerCreation noPlayer(const QUrl&) {
    return {nullptr, QStringLiteral("No audio output in this benchmark.")};
}

// A song library of `albums` folders of `songsPerAlbum` songs, each folder with a 600 px cover.
bool makeLibrary(fixtures::MusicFolder& music, const QString& name, int albums, int songsPerAlbum) {
    QImage cover(600, 600, QImage::Format_RGB32);
    for (int a = 0; a < albums; ++a) {
        cover.fill(QColor::fromHsv(a % 360, 200, 200));
        const QString album = QStringLiteral("%1/Artist %2/Album %3").arg(name).arg(a / 10).arg(a);
        for (int s = 1; s <= songsPerAlbum; ++s) {
            if (music.addSong(QStringLiteral("%1/%2 Song.mp3").arg(album).arg(s, 2, 10, QChar('0')))
                    .isEmpty())
                return false;
        }
        if (!cover.save(music.filePath(album + "/cover.jpg"), "JPEG", 90))
            return false;
    }
    return true;
}

double secondsToAdd(LibraryStore& store, const QUrl& folder) {
    QElapsedTimer timer;
    timer.start();
    fixtures::await(store.addURLs({folder}));
    return timer.nsecsElapsed() / 1e9;
}

double secondsToRestore(LibraryStore& store) {
    QElapsedTimer timer;
    timer.start();
    fixtures::await(store.restoreSession());
    return timer.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);
    auto noChooser = [](const QString&) { return std::optional<QUrl>(); };

    fixtures::MusicFolder music;
    if (!makeLibrary(music, "small", 200, 10) || !makeLibrary(music, "large", 1000, 10)) {
        std::fprintf(stderr, "Couldn't make the song library (is ffmpeg installed?)\n");
        return 1;
    }

    {
        LibraryStore store(&settings, noPlayer, noChooser);
        const double first = secondsToAdd(store, music.url("small"));
        const auto firstCount = store.tracks().size();
        store.clear();
        const double again = secondsToAdd(store, music.url("small"));
        std::printf(
            "add a folder of %lld songs in 200 albums: %.3f s (first, covers thumbnailed), %.3f s (again)\n",
            static_cast<long long>(firstCount), first, again);
    }

    {
        // Build the session with a store, as the program does.
        LibraryStore writer(&settings, noPlayer, noChooser);
        fixtures::await(writer.addURLs({music.url("large")}));
        SessionFile::write(writer.tracks());
    }

    const qint64 before = fixtures::residentKiB();
    LibraryStore store(&settings, noPlayer, noChooser);
    const double first = secondsToRestore(store);
    const qint64 after = fixtures::residentKiB();
    const auto count = store.tracks().size();
    LibraryStore second(&settings, noPlayer, noChooser);
    const double again = secondsToRestore(second);
    std::printf("restore a session of %lld songs: %.3f s (first), %.3f s (again)\n",
                static_cast<long long>(count), first, again);
    std::printf("resident memory holding %lld tracks: %.0f KiB in all, %.2f KiB per track "
                "(the store's list, the engine's queue, the session copy, shared covers)\n",
                static_cast<long long>(count), double(after - before),
                double(after - before) / std::max<qsizetype>(count, 1));
    return 0;
}

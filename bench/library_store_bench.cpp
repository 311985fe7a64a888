// Adding a folder of 2,000 songs in 200 albums, collecting the files of one folder of 20,000, restoring a
// 10,000-song session and a 50,000-song one whose files are gone, and the memory each track of the open
// playlist costs. Songs are copies of one generated MP3; every album has a cover image,
// so the folder artwork scan and its thumbnail are part of every load.

#include "library/PlayableFiles.h"
#include "library/SessionFile.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FakeAudioPlayer.h"
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
    qputenv("XDG_CACHE_HOME", home.filePath("cache").toUtf8());
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);
    auto noChooser = [](const QString&) { return std::optional<QUrl>(); };

    fixtures::MusicFolder music;
    if (!makeLibrary(music, "small", 200, 10) || !makeLibrary(music, "large", 1000, 10)) {
        std::fprintf(stderr, "Couldn't make the song library (is ffmpeg installed?)\n");
        return 1;
    }

    {
        LibraryStore store(&settings, fixtures::noAudioPlayer, noChooser);
        const double first = secondsToAdd(store, music.url("small"));
        const auto firstCount = store.tracks().size();
        store.clear();
        const double again = secondsToAdd(store, music.url("small"));
        std::printf(
            "add a folder of %lld songs in 200 albums: %.3f s (first, covers thumbnailed), %.3f s (again)\n",
            static_cast<long long>(firstCount), first, again);
    }

    {
        for (int i = 20000; i >= 1; --i)
            music.addFile(QStringLiteral("flat/%1.mp3").arg(i));
        QElapsedTimer timer;
        timer.start();
        const QList<QUrl> files = collectPlayableFiles({music.url("flat")});
        const bool ordered = files.size() == 20000 && files[9].fileName() == "10.mp3";
        std::printf("collect the files of one folder of %lld songs: %.3f s, %s\n", qlonglong(files.size()),
                    timer.nsecsElapsed() / 1e9, ordered ? "in natural order" : "OUT OF ORDER");

        QByteArray gone = "#EXTM3U\n";
        for (int i = 0; i < 50000; ++i)
            gone += "#EXTINF:61,Artist - Song\n/nonexistent/" + QByteArray::number(i) + ".mp3\n";
        QFile session(SessionFile::lastSessionURL().toLocalFile());
        if (!session.open(QIODevice::WriteOnly) || session.write(gone) != gone.size())
            return 1;
        session.close();
        LibraryStore store(&settings, fixtures::noAudioPlayer, noChooser);
        const double seconds = secondsToRestore(store);
        std::printf("restore a session of %lld songs not on disk: %.3f s\n", qlonglong(store.tracks().size()),
                    seconds);
    }

    {
        // Build the session with a store, as the program does.
        LibraryStore writer(&settings, fixtures::noAudioPlayer, noChooser);
        fixtures::await(writer.addURLs({music.url("large")}));
        SessionFile::write(writer.tracks());
    }

    const qint64 before = fixtures::residentKiB();
    LibraryStore store(&settings, fixtures::noAudioPlayer, noChooser);
    const double first = secondsToRestore(store);
    const qint64 after = fixtures::residentKiB();
    const auto count = store.tracks().size();
    LibraryStore second(&settings, fixtures::noAudioPlayer, noChooser);
    const double again = secondsToRestore(second);
    std::printf("restore a session of %lld songs: %.3f s (first), %.3f s (again)\n",
                static_cast<long long>(count), first, again);
    std::printf("resident memory holding %lld tracks: %.0f KiB in all, %.2f KiB per track "
                "(the store's list, the engine's queue, the session copy, shared covers)\n",
                static_cast<long long>(count), double(after - before),
                double(after - before) / std::max<qsizetype>(count, 1));
    return 0;
}

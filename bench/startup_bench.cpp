// Start-up with a 10,000-song session (1,000 albums of 10 songs, each album with a 35 KB cover): the time
// until the window is shown, the time until the session's songs are listed, and the resident memory then.
// Each start is a fresh process running the program's own start-up (OrvelleApp), on the offscreen platform
// unless a display is given: a first start with no metadata cache, then a start with the cache it left.
// The song files are copies of one generated MP3, so the disk cache is warm.

#include "library/SessionFile.h"
#include "store/LibraryStore.h"
#include "ui/MainWindow.h"
#include "ui/OrvelleApp.h"

#include "support/FakeAudioPlayer.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"

#include <QApplication>
#include <QBuffer>
#include <QElapsedTimer>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace {

// A 600 px JPEG of about 35 KB: a gradient with enough grain that it does not compress to nothing.
QByteArray coverBytes(int album) {
    QImage image(600, 600, QImage::Format_RGB32);
    QRandomGenerator random(album);
    for (int y = 0; y < image.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const int grain = int(random.bounded(32));
            line[x] = qRgb((x / 3 + album) % 256, (y / 3 + grain) % 256, (album * 7 + grain) % 256);
        }
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG", 62);
    return bytes;
}

// One start in this process, with the session and the cache its environment names.
int start(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("ORVELLE_UPDATE_FEED_URL", "http://127.0.0.1:9/appcast.json");
    QTemporaryDir home;

    QElapsedTimer clock;
    clock.start();
    QApplication app(argc, argv);
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);
    OrvelleApp orvelle(settings, fixtures::noAudioPlayer, FileDialogs{});
    double shown = 0;
    double listed = 0;
    QObject::connect(&orvelle.window(), &MainWindow::firstShown, [&] { shown = clock.nsecsElapsed() / 1e9; });
    QObject::connect(&orvelle, &OrvelleApp::sessionRestored, [&] {
        // Listed once the window has taken the change in and painted.
        QTimer::singleShot(0, [&] {
            orvelle.window().repaint();
            listed = clock.nsecsElapsed() / 1e9;
            app.quit();
        });
    });
    orvelle.start();
    app.exec();
    std::printf("window shown after %.3f s (target 0.3 s)\n", shown);
    std::printf("%lld songs listed after %.3f s (target 1 s)\n",
                static_cast<long long>(orvelle.store().tracks().size()), listed);
    std::printf("resident memory then: %.1f MB (target 150 MB)\n", fixtures::residentKiB() / 1024.0);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && qstrcmp(argv[1], "--start") == 0)
        return start(argc, argv);
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    qputenv("XDG_CACHE_HOME", home.filePath("cache").toUtf8());

    fixtures::MusicFolder music;
    QList<Track> session;
    qint64 coverSize = 0;
    for (int a = 0; a < 1000; ++a) {
        const QString album = QStringLiteral("Artist %1/Album %2").arg(a / 10).arg(a);
        for (int s = 1; s <= 10; ++s) {
            Track track;
            track.setUrl(
                QUrl::fromLocalFile(music.addSong(QStringLiteral("%1/%2 Song.mp3").arg(album).arg(s))));
            if (track.url().isEmpty()) {
                std::fprintf(stderr, "Couldn't make the song library (is ffmpeg installed?)\n");
                return 1;
            }
            session << track;
        }
        const QByteArray cover = coverBytes(a);
        coverSize += cover.size();
        music.addFile(album + "/cover.jpg", cover);
    }
    SessionFile::write(session);
    std::printf("session of %lld songs in 1000 albums, covers %.1f KB on average\n",
                static_cast<long long>(session.size()), coverSize / 1000.0 / 1000);

    for (const char* which : {"first start, no metadata cache", "start with the metadata cache"}) {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QCoreApplication::applicationFilePath(), {"--start"});
        if (!process.waitForFinished(-1) || process.exitCode() != 0) {
            std::fprintf(stderr, "the start failed\n");
            return 1;
        }
        std::printf("%s:\n%s", which, process.readAllStandardOutput().constData());
    }
    return 0;
}

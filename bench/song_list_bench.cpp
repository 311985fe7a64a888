// The song list at 100,000 songs: one search keystroke filtered and repainted, one screen of rows with
// covers painted, one selected song removed and one moved by a drop (each from the action until the
// repaint), and the memory the cover cache holds. Songs share 200 album covers, as a real library does.

#include "library/MetadataLoader.h"
#include "store/LibraryStore.h"
#include "support/FakeAudioPlayer.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "ui/CoverThumbnails.h"
#include "ui/FileDialogs.h"
#include "ui/SongListArea.h"
#include "ui/SongListView.h"

#include <QApplication>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QListView>
#include <QMimeData>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>

namespace {

constexpr int librarySize = 100000;
constexpr int albumCount = 200;

// One song per album read from disk with its folder cover, then repeated with new ids and titles.
QList<Track> library(fixtures::MusicFolder& music) {
    QList<Track> albums;
    for (int a = 0; a < albumCount; ++a) {
        const QString folder = QStringLiteral("Album %1").arg(a);
        music.addFile(folder + "/cover.jpg",
                      fixtures::pictureBytes("JPEG", QColor::fromHsv(a % 360, 200, 200), 600));
        albums.append(MetadataLoader::loadTrackNow(QUrl::fromLocalFile(music.addSong(folder + "/song.mp3"))));
    }
    QList<Track> tracks;
    tracks.reserve(librarySize);
    for (int i = 0; i < librarySize; ++i) {
        Track track = albums[i % albumCount];
        track.id = QUuid::createUuid();
        track.setTitle(QStringLiteral("Song %1 of the day").arg(i));
        track.setArtist(QStringLiteral("Artist %1").arg(i % 997));
        track.setAlbum(QStringLiteral("Album %1").arg(i % albumCount));
        tracks.append(track);
    }
    return tracks;
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

// Milliseconds of the main thread's processor time: on a machine shared with other work, wall-clock time
// measures the neighbours as much as the list.
double threadMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

// When the store last told its views how the list changed (main thread processor time), or -1.
double editedAt = -1;

// What `action` and the list's repaint take together, the medians of `runs`; for a change of the list, also
// the list's share: from the store's word of the change until the repaint.
struct Timing {
    double cpuMs;
    double wallMs;
    double listMs;
};
Timing timed(QListView& view, int runs, const std::function<void(int)>& action) {
    QList<double> cpu;
    QList<double> wall;
    QList<double> list;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        editedAt = -1;
        const double start = threadMs();
        action(run);
        view.viewport()->repaint();
        const double end = threadMs();
        cpu.append(end - start);
        wall.append(timer.nsecsElapsed() / 1e6);
        if (editedAt >= 0)
            list.append(end - editedAt);
    }
    return {median(cpu), median(wall), list.isEmpty() ? -1 : median(list)};
}

void report(const char* what, Timing timing, const char* target) {
    std::printf("%s: %.2f ms processor time", what, timing.cpuMs);
    if (timing.listMs >= 0)
        std::printf(" (the store %.2f ms, the list %.2f ms)", timing.cpuMs - timing.listMs, timing.listMs);
    std::printf(", %.2f ms wall clock (target %s)\n", timing.wallMs, target);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    QSettings settings(home.filePath("settings.ini"), QSettings::IniFormat);
    fixtures::MusicFolder music;
    if (fixtures::sampleSong().isEmpty()) {
        std::fprintf(stderr, "Couldn't make the sample song (is ffmpeg installed?)\n");
        return 1;
    }

    LibraryStore store(&settings, fixtures::noAudioPlayer, nullptr);
    store.setTracks(library(music));
    QObject::connect(&store, &LibraryStore::tracksEdited, [] { editedAt = threadMs(); }); // before the list's
    CoverThumbnails covers;
    const FileDialogs dialogs;
    SongListArea area(store, *store.engine(), covers, dialogs);
    area.resize(900, 700);
    area.show();
    QListView& view = *area.listView();
    if (!QTest::qWaitForWindowExposed(&area))
        return 1;

    // Covers decoded for the first screen, then a screen's paint with every cover at hand.
    const int rowsOnScreen = view.viewport()->height() / std::max(1, view.sizeHintForRow(0));
    if (!QTest::qWaitFor([&] { return covers.decodeCount() >= std::min(albumCount, rowsOnScreen); }, 20000))
        std::printf("(some covers were not ready)\n");
    QCoreApplication::processEvents();
    std::printf("%d songs, %d rows on screen\n", librarySize, rowsOnScreen);
    report("paint one screen of rows with covers", timed(view, 30, [](int) {}), "8 ms");

    // Keystrokes: the first search also lower-cases every song's texts once.
    report("the first search keystroke", timed(view, 1, [&](int) { area.setSearchText("a"); }), "-");
    qsizetype searchChars = 0;
    for (const Track& track : store.tracks())
        searchChars += displayTitle(track).size() + track.artist().size() + track.album().size() + 2;
    // Each row's joined text: its characters (2 bytes each) and a string header with malloc's rounding.
    std::printf("the search's lower-cased texts: about %.0f KiB\n",
                (searchChars * 2 + store.tracks().size() * 32) / 1024.0);
    area.setSearchText("");
    const QStringList keystrokes{"s",       "so",       "son",     "song",  "song 1",
                                 "song 12", "song 123", "song 12", "song 1"};
    report("one search keystroke, filtered and repainted",
           timed(view, int(keystrokes.size()), [&](int i) { area.setSearchText(keystrokes[i]); }), "15 ms");
    report("clearing the search", timed(view, 1, [&](int) { area.setSearchText(""); }), "-");

    // Remove the selected song with the Delete key, somewhere in the middle of the list.
    view.scrollTo(view.model()->index(librarySize / 2, 0));
    report("remove one selected song with Delete",
           timed(view, 10,
                 [&](int run) {
                     view.selectionModel()->select(view.model()->index(librarySize / 2 + run, 0),
                                                   QItemSelectionModel::ClearAndSelect);
                     QTest::keyClick(&view, Qt::Key_Delete);
                 }),
           "20 ms");

    // Drop a song's grip payload two rows further down.
    report("move one song by a drop",
           timed(view, 10,
                 [&](int) {
                     const QModelIndex from = view.indexAt(QPoint(10, 10));
                     const QPoint onto = view.visualRect(from.siblingAtRow(from.row() + 2)).center();
                     QMimeData mime;
                     mime.setText(
                         from.data(Qt::UserRole + 1).value<Track>().id.toString(QUuid::WithoutBraces));
                     QDragEnterEvent enter(onto, Qt::MoveAction, &mime, Qt::LeftButton, {});
                     QApplication::sendEvent(view.viewport(), &enter);
                     QDropEvent drop(onto, Qt::MoveAction, &mime, Qt::LeftButton, {});
                     QApplication::sendEvent(view.viewport(), &drop);
                 }),
           "20 ms");

    std::printf("cover cache: %.1f KiB held for %d decoded covers (bound %d KiB)\n",
                covers.cachedBytes() / 1024.0, covers.decodeCount(), 24 * 1024);
    return 0;
}

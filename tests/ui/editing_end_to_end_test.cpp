// Orvelle's window as a user edits a playlist in it, on a real X server (tests/ui/on-own-display.sh runs
// it): a folder dropped on the empty list, a search typed after Ctrl+F, a song dragged to a new place, a
// song deleted with the Delete key, and one song's album taken from MusicBrainz's suggestion (a server of
// the test's own on 127.0.0.1) in the inspector and saved into the file, where mutagen reads it.
// Each step builds on the one before. The program's objects are made as main() makes them (mpv as the
// player, MPRIS on the test's own bus). Pictures of the searched list and of the inspector go to
// $ORVELLE_SCREENSHOT_DIR when it is set.
#include "playback/MpvAudioPlayer.h"
#include "store/LibraryStore.h"
#include "support/DragAndDrop.h"
#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "support/ScratchHome.h"
#include "ui/CoverThumbnails.h"
#include "ui/MainWindow.h"
#include "ui/OrvelleApp.h"
#include "ui/SongListArea.h"
#include "ui/SongListView.h"
#include "ui/TrackInspector.h"
#include "ui/TrackListModel.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

const QByteArray searchPath = "/ws/2/recording";
constexpr int loadTimeoutMs = 20000;

// The songs of the dropped folder, in file-name order: title, artist, album.
const QList<QStringList> songs = {
    {"Yesterday", "the beatles", ""},
    {"Drive My Car", "The Beatles", "Rubber Soul"},
    {"Norwegian Wood", "The Beatles", "Rubber Soul"},
    {"Michelle", "The Beatles", "Rubber Soul"},
    {"Let It Be", "The Beatles", "Let It Be"},
};

// MusicBrainz's answer for the first song: its album, track, year and genre differ from the file's.
const QByteArray yesterday = R"({"recordings":[{"title":"Yesterday","score":97,
    "artist-credit":[{"name":"The Beatles"}],"tags":[{"name":"pop rock","count":3}],
    "releases":[{"title":"Help!","date":"1965-08-06","media":[{"track":[{"number":"13"}]}]}]}]})";

} // namespace

class EditingEndToEndTest : public QObject {
    Q_OBJECT

    fixtures::MusicFolder m_music;
    fixtures::ScratchHome m_home;
    LocalHttpServer m_musicBrainz;
    std::unique_ptr<OrvelleApp> m_app;

    MainWindow& window() const { return m_app->window(); }
    SongListArea& songList() const { return *window().findChild<SongListArea*>(); }
    QListView& view() const { return *songList().listView(); }
    QLineEdit& search() const { return *window().findChild<QLineEdit*>("search"); }

    // The titles of the rows the list shows: the playlist's, in its order, when there is no search.
    QStringList rowTitles() const {
        QStringList shown;
        for (int row = 0; row < view().model()->rowCount(); ++row)
            shown << view().model()->index(row, 0).data().toString();
        return shown;
    }
    QModelIndex rowOf(const QString& title) const {
        return view().model()->index(int(rowTitles().indexOf(title)), 0);
    }
    // A point inside the row's texts, away from its controls, in the window's coordinates.
    QPoint inWindow(const QModelIndex& row) const {
        const QRect rect = view().visualRect(row);
        return view().viewport()->mapTo(&window(), QPoint(rect.left() + rect.width() / 3, rect.center().y()));
    }

    // A drag over the window at `pos`, dropped on whatever is there, as the window system hands a drop to the
    // widget under the pointer. True when the drop was accepted.
    bool dropOnWindow(QPoint pos, const QMimeData& mime) {
        QWidget* under = window().childAt(pos);
        return under && fixtures::dragAndDrop(*under, under->mapFrom(&window(), pos), mime);
    }

    // A click as the window system delivers it, so that a right click also asks for the context menu.
    void click(const QModelIndex& row, Qt::MouseButton button = Qt::LeftButton) {
        QVERIFY2(row.isValid(), "no such row");
        QTest::mouseClick(window().windowHandle(), button, {}, inWindow(row));
    }

    static void keepPicture(QWidget& widget, const QString& name) {
        const QString folder = qEnvironmentVariable("ORVELLE_SCREENSHOT_DIR");
        if (folder.isEmpty())
            return;
        QVERIFY(QDir().mkpath(folder));
        QVERIFY2(widget.grab().save(QDir(folder).filePath(name)), qPrintable(name));
    }

private slots:
    void initTestCase() {
        m_music.addFile("Beatles/cover.jpg", fixtures::pictureBytes("JPEG", Qt::darkCyan, 300));
        for (int i = 0; i < songs.size(); ++i) {
            const QStringList& tags = songs[i];
            const QString path =
                m_music.filePath(QStringLiteral("Beatles/%1.mp3").arg(i + 1, 2, 10, QChar('0')));
            QVERIFY2(fixtures::makeAudio(path, 1.0,
                                         {"-metadata", "title=" + tags[0], "-metadata", "artist=" + tags[1],
                                          "-metadata", "album=" + tags[2]}),
                     "ffmpeg makes the songs");
        }

        QVERIFY(m_musicBrainz.start());
        m_musicBrainz.serve(searchPath, LocalHttpServer::Response::json(yesterday));
        qputenv("ORVELLE_MUSICBRAINZ_ENDPOINT", m_musicBrainz.url(searchPath).toEncoded());

        m_app = std::make_unique<OrvelleApp>(m_home.settings, MpvAudioPlayer::factory(), FileDialogs{});
        QSignalSpy restored(m_app.get(), &OrvelleApp::sessionRestored);
        m_app->start();
        window().resize(900, 640);
        window().activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window()));
        QVERIFY(restored.count() == 1 || restored.wait());
    }

    // The store goes before the settings it writes to.
    void cleanupTestCase() { m_app.reset(); }

    void dropsAFolder() {
        QMimeData folder;
        folder.setUrls({QUrl::fromLocalFile(m_music.filePath("Beatles"))});
        QVERIFY2(dropOnWindow(songList().mapTo(&window(), songList().rect().center()), folder),
                 "the empty list refused a dropped folder");
        QTRY_COMPARE_WITH_TIMEOUT(rowTitles().size(), songs.size(), loadTimeoutMs);
    }

    // Ctrl+F, then the search filters as it is typed; the rows fetch the folder's cover, which the picture
    // shows. Escape clears the search.
    void searches() {
        QTest::keyClick(&window(), Qt::Key_F, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), &search());
        QTest::keyClicks(QApplication::focusWidget(), "rubber");
        QCOMPARE(rowTitles(), QStringList({"Drive My Car", "Norwegian Wood", "Michelle"}));
        QTRY_VERIFY(window().findChild<CoverThumbnails*>()->decodeCount() > 0);
        keepPicture(window(), "search.png");
        QTest::keyClick(&search(), Qt::Key_Escape);
        QCOMPARE(rowTitles().size(), songs.size());
    }

    // A song dropped on another row takes that row's place.
    void reordersByDrag() {
        const Track dragged = rowOf("Yesterday").data(TrackListModel::TrackRole).value<Track>();
        const std::unique_ptr<QMimeData> payload(SongListView::reorderPayload(dragged.id));
        QVERIFY2(dropOnWindow(inWindow(rowOf("Norwegian Wood")), *payload),
                 "the list refused a reorder drop");
        QCOMPARE(rowTitles().mid(0, 3), QStringList({"Drive My Car", "Norwegian Wood", "Yesterday"}));
    }

    void deletesTheSelection() {
        click(rowOf("Let It Be"));
        QTest::keyClick(&view(), Qt::Key_Delete);
        QVERIFY2(!rowTitles().contains("Let It Be"), qPrintable(rowTitles().join(", ")));
    }

    // "Get Info…" from the row's menu, "Use" on the album's suggestion, Save: the file and the row say it.
    void savesASuggestion() {
        click(rowOf("Yesterday"), Qt::RightButton);
        QTRY_VERIFY(qobject_cast<QMenu*>(QApplication::activePopupWidget()));
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        const QList<QAction*> items = menu->actions();
        const auto getInfo = std::find_if(items.begin(), items.end(),
                                          [](QAction* item) { return item->text() == "Get Info\u2026"; });
        QVERIFY(getInfo != items.end());
        QTest::mouseClick(menu->windowHandle(), Qt::LeftButton, {}, menu->actionGeometry(*getInfo).center());

        QPointer<TrackInspector> inspector;
        QTRY_VERIFY((inspector = window().findChild<TrackInspector*>()));
        QVERIFY(QTest::qWaitForWindowExposed(inspector));
        auto* lookup = inspector->findChild<QLabel*>("lookupText");
        QTRY_COMPARE_WITH_TIMEOUT(
            lookup->text(), "MusicBrainz suggests 4 different values, shown in grey below.", loadTimeoutMs);
        keepPicture(*inspector, "inspector.png");
        QTest::mouseClick(inspector->findChild<QWidget*>("album")->findChild<QAbstractButton*>("use"),
                          Qt::LeftButton);
        QTest::mouseClick(inspector->findChild<QAbstractButton*>("save"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!inspector, loadTimeoutMs);

        const Track saved = rowOf("Yesterday").data(TrackListModel::TrackRole).value<Track>();
        QCOMPARE(saved.album(), "Help!");
        if (!fixtures::haveTool(fixtures::systemPython()))
            QSKIP("mutagen is needed to read the tags back");
        const auto read = fixtures::run(fixtures::systemPython(),
                                        {"-c",
                                         "import mutagen.id3,sys; t=mutagen.id3.ID3(sys.argv[1]); "
                                         "print(t['TIT2'].text[0], t['TALB'].text[0])",
                                         saved.url().toLocalFile()});
        QCOMPARE(QString::fromUtf8(read.out).trimmed(), "Yesterday Help!");
    }
};

QTEST_MAIN(EditingEndToEndTest)
#include "editing_end_to_end_test.moc"

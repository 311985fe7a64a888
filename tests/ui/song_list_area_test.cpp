#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "support/DragAndDrop.h"
#include "support/FakeAudioPlayer.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "ui/CoverThumbnails.h"
#include "ui/EmptyPlaylistView.h"
#include "ui/FileDialogs.h"
#include "ui/PlayingIndicator.h"
#include "ui/SongListArea.h"
#include "ui/TrackRowLayout.h"

#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolTip>

#include <memory>

// The list area as a user meets it: pages, drops, the row controls and menu, keys and the playing bars.
class SongListAreaTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;
    fixtures::FakeAudioBackend m_audio;
    std::unique_ptr<fixtures::MusicFolder> m_music;
    std::unique_ptr<LibraryStore> m_store;
    std::unique_ptr<CoverThumbnails> m_covers;
    FileDialogs m_dialogs;
    QList<QUrl> m_chosenMusic;
    std::unique_ptr<SongListArea> m_area;

    QListView& view() { return *m_area->listView(); }
    QWidget& viewport() { return *view().viewport(); }

    // Songs "song a", "song b" … as files that exist; the titles named in `missing` are marked missing.
    QList<Track> setSongs(const QStringList& letters, const QStringList& missing = {}) {
        QList<Track> tracks;
        for (const QString& letter : letters) {
            Track track = fixtures::trackAt(m_music->addFile(letter + ".mp3"), "song " + letter);
            track.isMissing = missing.contains(letter);
            tracks.append(track);
        }
        m_store->setTracks(tracks);
        return tracks;
    }

    QString order() const {
        QStringList letters;
        for (const Track& track : m_store->tracks())
            letters.append(track.title().startsWith("song ") ? track.title().mid(5) : displayTitle(track));
        return letters.join(' ');
    }

    QPoint rowCentre(int row) { return view().visualRect(view().model()->index(row, 0)).center(); }

    TrackRowLayout rowLayout(int row) {
        return TrackRowGeometry::layout(view().visualRect(view().model()->index(row, 0)), view().font(), 1,
                                        false);
    }

private slots:
    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_music = std::make_unique<fixtures::MusicFolder>();
        m_store = std::make_unique<LibraryStore>(&m_home->settings, m_audio.factory(), nullptr);
        m_covers = std::make_unique<CoverThumbnails>();
        m_dialogs.chooseMusicFiles = [this](QWidget*) { return m_chosenMusic; };
        m_area = std::make_unique<SongListArea>(*m_store, *m_store->engine(), *m_covers, m_dialogs);
        m_area->resize(700, 400);
        m_area->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_area.get()));
    }
    void cleanup() {
        m_area.reset();
        m_covers.reset();
        m_store.reset();
    }

    // The empty view, the list, or the no-matches message with the search text in typographic quotes.
    void pages_data() {
        QTest::addColumn<int>("songs");
        QTest::addColumn<QString>("search");
        QTest::addColumn<SongListArea::Page>("page");
        QTest::addRow("empty") << 0 << "" << SongListArea::Page::Empty;
        QTest::addRow("empty while searching") << 0 << "x" << SongListArea::Page::Empty;
        QTest::addRow("songs") << 2 << "" << SongListArea::Page::List;
        QTest::addRow("a search that doesn't") << 2 << "zzz" << SongListArea::Page::NoMatches;
    }
    void pages() {
        QFETCH(int, songs);
        QFETCH(QString, search);
        QFETCH(SongListArea::Page, page);
        setSongs(QStringList{"a", "b"}.first(songs));
        m_area->setSearchText(search);
        QCOMPARE(m_area->page(), page);
        if (page == SongListArea::Page::NoMatches) {
            QCOMPARE(m_area->noMatchesMessage()->title(), "No matches");
            QCOMPARE(m_area->noMatchesMessage()->message(),
                     "Nothing in this playlist matches \u201Czzz\u201D.");
        }
    }

    // While searching, a row keeps its number in the whole playlist.
    void numbersWhileSearching() {
        setSongs({"a", "b", "c"});
        const auto number = [&](int row) { return viewport().grab(rowLayout(row).number).toImage(); };
        const QImage three = number(2);
        m_area->setSearchText("song c");
        QCOMPARE(number(0), three);
    }

    // Reorder drops carry the dragged song's id; anything else, or any drop while searching, is refused.
    // Meanwhile a line marks the target's bottom edge when dragging down, its top edge when dragging up.
    void reorderDrops_data() {
        QTest::addColumn<QString>("payload"); // a letter stands for that song's id
        QTest::addColumn<QString>("search");
        QTest::addColumn<int>("ontoRow");
        QTest::addColumn<QString>("order"); // unchanged when the drop is refused
        QTest::addRow("dragged down") << "a" << QString() << 2 << "b c a d";
        QTest::addRow("dragged up") << "d" << QString() << 1 << "a d b c";
        QTest::addRow("while searching") << "a" << QString("song") << 2 << "a b c d";
        QTest::addRow("not a UUID") << "hello" << QString() << 2 << "a b c d";
    }
    void reorderDrops() {
        QFETCH(QString, payload);
        QFETCH(QString, search);
        QFETCH(int, ontoRow);
        QFETCH(QString, order);
        const QList<Track> tracks = setSongs({"a", "b", "c", "d"});
        m_area->setSearchText(search);
        QMimeData mime;
        const int dragged = QStringLiteral("abcd").indexOf(payload);
        mime.setText(payload.size() == 1 ? tracks[dragged].id.toString(QUuid::WithoutBraces) : payload);
        QImage over;
        const bool accepted = order != "a b c d";
        QCOMPARE(fixtures::dragAndDrop(viewport(), rowCentre(ontoRow), mime, &over), accepted);
        QCOMPARE(this->order(), order);
        if (accepted) {
            const QRect row = view().visualRect(view().model()->index(ontoRow, 0));
            const QColor accent = view().palette().color(QPalette::Highlight);
            const int x = rowLayout(ontoRow).title.left() + 2;
            QCOMPARE(over.pixelColor(x, row.bottom()) == accent, ontoRow > dragged);
            QCOMPARE(over.pixelColor(x, row.top()) == accent, ontoRow < dragged);
        }
    }

    // Files dropped anywhere on the area go to the store; the empty view highlights itself meanwhile.
    void fileDrops() {
        QMimeData song;
        song.setUrls({QUrl::fromLocalFile(m_music->addSong("dropped.mp3"))});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &song, Qt::LeftButton, {});
        QApplication::sendEvent(m_area->emptyView(), &enter);
        QVERIFY(m_area->isDropTargeted() && m_area->emptyView()->isDropTargeted());
        QVERIFY(fixtures::dragAndDrop(*m_area->emptyView(), QPoint(10, 10), song));
        QVERIFY(!m_area->isDropTargeted() && !m_area->emptyView()->isDropTargeted());
        QTRY_COMPARE(order(), "dropped");
        // On the list, files pass the rows by and still reach the store.
        QVERIFY(fixtures::dragAndDrop(viewport(), rowCentre(0), song));
        QTRY_COMPARE(order(), "dropped dropped");
    }

    // The empty view's Add Music button runs the file dialog and hands what it returns to the store.
    void emptyViewButtons() {
        m_chosenMusic = {QUrl::fromLocalFile(m_music->addSong("chosen.mp3"))};
        m_area->emptyView()->findChild<QPushButton*>()->click(); // "Add Music…" comes first
        QTRY_COMPARE(order(), "chosen");
    }

    // The row menu's six items, of which these are disabled: moves while searching or past either end,
    // showing in the file manager for a missing file. The grip's help says why it is off while searching.
    void contextMenu_data() {
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("search");
        QTest::addColumn<QString>("disabled");
        QTest::addRow("first") << 0 << QString() << "Move Up";
        QTest::addRow("missing, in the middle") << 1 << QString() << "Show in File Manager";
        QTest::addRow("last") << 2 << QString() << "Move Down";
        QTest::addRow("searching") << 0 << QString("song") << "Move Up|Move Down";
    }
    void contextMenu() {
        QFETCH(int, row);
        QFETCH(QString, search);
        QFETCH(QString, disabled);
        setSongs({"a", "b", "c"}, {"b"});
        m_area->setSearchText(search);
        std::unique_ptr<QMenu> menu(m_area->rowMenu(row));
        QStringList on;
        QStringList off;
        for (QAction* action : menu->actions()) {
            if (!action->isSeparator())
                (action->isEnabled() ? on : off).append(action->text());
        }
        QCOMPARE(on.size() + off.size(), 6);
        QCOMPARE(off.join('|'), disabled);
        const QPoint grip = rowLayout(row).grip.center();
        QHelpEvent help(QEvent::ToolTip, grip, viewport().mapToGlobal(grip));
        QApplication::sendEvent(&viewport(), &help);
        QCOMPARE(QToolTip::text(),
                 search.isEmpty() ? "Drag to reorder" : "Clear the search to reorder songs");
    }

    // A row's remove (button or menu) removes the selection when it holds the row, only that row otherwise;
    // the selection is emptied. (The Delete key is the window's end-to-end test.)
    void removals_data() {
        QTest::addColumn<QString>("how");
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("order");
        QTest::addRow("button on a selected row") << "button" << 2 << "b d";
        QTest::addRow("button on another row") << "button" << 1 << "a c d";
        QTest::addRow("menu on another row") << "menu" << 3 << "a b c";
    }
    void removals() {
        QFETCH(QString, how);
        QFETCH(int, row);
        QFETCH(QString, order);
        setSongs({"a", "b", "c", "d"});
        for (const int selected : {0, 2})
            view().selectionModel()->select(view().model()->index(selected, 0), QItemSelectionModel::Select);
        if (how == "button") {
            QTest::mouseClick(&viewport(), Qt::LeftButton, {}, rowLayout(row).remove.center());
        } else {
            std::unique_ptr<QMenu> menu(m_area->rowMenu(row));
            menu->actions().last()->trigger();
        }
        QCOMPARE(this->order(), order);
        QVERIFY(m_area->selectedIds().isEmpty());
    }

    // A double click on a row plays it; the info button asks for the inspector.
    void rowActions() {
        const QList<Track> tracks = setSongs({"a", "b", "c"});
        QTest::mouseDClick(&viewport(), Qt::LeftButton, {}, rowLayout(2).title.center());
        QCOMPARE(m_store->engine()->currentTrack()->id, tracks[2].id);
        QSignalSpy inspect(m_area.get(), &SongListArea::inspectRequested);
        QTest::mouseClick(&viewport(), Qt::LeftButton, {}, rowLayout(0).info.center());
        QCOMPARE(inspect.count(), 1);
        QCOMPARE(inspect.first().first().value<Track>().id, tracks[0].id);
    }

    // The bars run only while the current song plays and its row can be seen; paused they rest at 3.
    void playingIndicator() {
        const QList<Track> tracks = setSongs({"a", "b"});
        const PlayingIndicator& indicator = m_area->playingIndicator();
        m_store->engine()->playTrack(tracks[1].id);
        QVERIFY(indicator.isRunning());
        QCOMPARE(indicator.accessibleLabel(), "Now playing");
        m_area->setSearchText("song a"); // its row filtered out
        QVERIFY(!indicator.isRunning());
        m_area->setSearchText("");
        m_store->engine()->pause();
        QCOMPARE(indicator.accessibleLabel(), "Paused");
        QTRY_VERIFY(!indicator.isRunning());
        QCOMPARE(indicator.currentHeights(), (std::array<double, 3>{3, 3, 3}));
    }
};

QTEST_MAIN(SongListAreaTest)
#include "song_list_area_test.moc"

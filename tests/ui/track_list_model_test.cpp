#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FakeAudioPlayer.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "ui/TrackFilterModel.h"
#include "ui/TrackListModel.h"

#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTest>

#include <memory>

struct Tags {
    QString title;
    QString artist;
    QString album;
    QString file;
    bool missing = false;
};

// The rows over the store's list, the search over them, and how they follow the list's changes.
class TrackListModelTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;
    fixtures::FakeAudioBackend m_audio;
    std::unique_ptr<fixtures::MusicFolder> m_music;
    std::unique_ptr<LibraryStore> m_store;
    std::unique_ptr<TrackListModel> m_model;
    std::unique_ptr<TrackFilterModel> m_filter;

    // Songs with these tags, as files that exist (so the engine can "play" them).
    QList<Track> setSongs(const QList<Tags>& songs) {
        QList<Track> tracks;
        for (const Tags& tags : songs) {
            Track track = fixtures::trackAt(m_music->addFile(tags.file), tags.title);
            track.setArtist(tags.artist);
            track.setAlbum(tags.album);
            track.isMissing = tags.missing;
            tracks.append(track);
        }
        m_store->setTracks(tracks);
        return tracks;
    }

    // A column of the shown rows, joined by spaces.
    QString shown(int role) const {
        QStringList values;
        for (int row = 0; row < m_filter->rowCount(); ++row)
            values.append(m_filter->index(row, 0).data(role).toString());
        return values.join(' ');
    }

private slots:
    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_music = std::make_unique<fixtures::MusicFolder>();
        m_store = std::make_unique<LibraryStore>(&m_home->settings, m_audio.factory(), nullptr);
        m_model = std::make_unique<TrackListModel>(*m_store, *m_store->engine());
        m_filter = std::make_unique<TrackFilterModel>(*m_model);
    }
    void cleanup() {
        m_filter.reset();
        m_model.reset();
        m_store.reset();
    }

    // What a row says to the eye and to a screen reader, which also names the current song's state: playing
    // only while the engine plays. A missing file is described as such; the current song moves with its row.
    void rows() {
        const QList<Track> tracks = setSongs({{"Song", "Band", "Record", "a.mp3"},
                                              {"", "", "", "02 Intro.flac"},
                                              {"Gone", "", "", "c.mp3", true}});
        const auto sentence = [&](int row) {
            return m_filter->index(row, 0).data(Qt::AccessibleTextRole).toString();
        };
        QCOMPARE(shown(Qt::DisplayRole), "Song 02 Intro Gone");
        QCOMPARE(sentence(0), "1, Song, Band, Record");
        QCOMPARE(shown(Qt::AccessibleDescriptionRole),
                 "  This file isn't at the path saved in the playlist.");
        QSignalSpy changed(m_model.get(), &TrackListModel::playingStateChanged);
        m_store->engine()->playTrack(tracks[1].id);
        QCOMPARE(shown(TrackListModel::IsPlayingRole), "false true false");
        QCOMPARE(sentence(1), "Now playing, 02 Intro, Unknown artist, Unknown album");
        m_store->engine()->pause();
        QCOMPARE(shown(TrackListModel::IsCurrentRole), "false true false");
        QCOMPARE(shown(TrackListModel::IsPlayingRole), "false false false");
        QCOMPARE(sentence(1), "Paused, 02 Intro, Unknown artist, Unknown album");
        QCOMPARE(changed.last().first().toInt(), 1);
        m_store->moveTrack(tracks[1].id, -1);
        QCOMPARE(shown(TrackListModel::IsCurrentRole), "true false false");
    }

    // The search: lower-cased, not trimmed, over display title, artist and album; numbers stay those of the
    // whole playlist.
    void search_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("numbers");
        const auto row = [](const char* name, const QString& text, const QString& numbers) {
            QTest::addRow("%s", name) << text << numbers;
        };
        row("no search", "", "1 2 3 4 5");
        row("any case", "BEATLES", "1 3");
        row("file name for a missing title", "ten", "2");
        row("album", "past", "3");
        row("only spaces is a real query", " ", "1 2 3 4");
        row("fallback names are not searched", "unknown", "");
    }
    void search() {
        QFETCH(QString, text);
        QFETCH(QString, numbers);
        setSongs({{"Yesterday", "The Beatles", "Help!", "1.mp3"},
                  {"", "", "", "Track Ten.mp3"},
                  {"Hey Jude", "The Beatles", "Past Masters", "3.mp3"},
                  {"Blue", "Joni Mitchell", "Blue", "4.mp3"},
                  {"Nospace", "Artist", "Album", "5.mp3"}});
        m_filter->setSearchText("zzz"); // a search before, so the texts are cached and must stay right
        m_filter->setSearchText(text);
        QCOMPARE(shown(TrackListModel::NumberRole), numbers);
    }

    // Selection and the list's rows survive additions, removals and reorders: no reset, same songs selected.
    void followsChanges_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("order");
        QTest::addColumn<QString>("selected");
        const auto row = [](const char* name, const QString& change, const QString& order,
                            const QString& selected) {
            QTest::addRow("%s", name) << change << order << selected;
        };
        row("added before", "add", "new a b c d", "b d");
        row("a selected one removed", "remove b", "a c d", "d");
        row("moved down a place", "offset b", "a c b d", "b d");
        row("dragged up", "onto d a", "d a b c", "b d");
    }
    void followsChanges() {
        QFETCH(QString, change);
        QFETCH(QString, order);
        QFETCH(QString, selected);
        const QList<Track> tracks = setSongs(
            {{"a", {}, {}, "a.mp3"}, {"b", {}, {}, "b.mp3"}, {"c", {}, {}, "c.mp3"}, {"d", {}, {}, "d.mp3"}});
        const auto id = [&](const QString& title) {
            return tracks[QStringLiteral("abcd").indexOf(title)].id;
        };
        m_filter->setSearchText(" "); // no song matches: the filter must follow too
        m_filter->setSearchText("");
        QItemSelectionModel selection(m_filter.get());
        selection.select(m_filter->index(1, 0), QItemSelectionModel::Select);
        selection.select(m_filter->index(3, 0), QItemSelectionModel::Select);
        QSignalSpy resets(m_model.get(), &QAbstractItemModel::modelReset);

        const QStringList words = change.split(' ');
        if (words[0] == "add")
            QVERIFY(fixtures::await(m_store->addURLs({QUrl::fromLocalFile(m_music->addSong("new.mp3"))}, 0)));
        else if (words[0] == "remove")
            m_store->remove({id(words[1])});
        else if (words[0] == "offset")
            m_store->moveTrack(id(words[1]), 1);
        else
            m_store->moveTrack(id(words[1]), id(words[2]));

        QCOMPARE(resets.count(), 0);
        QCOMPARE(shown(Qt::DisplayRole), order);
        QStringList selectedTitles;
        for (const QModelIndex& index : selection.selectedRows())
            selectedTitles.append(index.data().toString());
        selectedTitles.sort();
        QCOMPARE(selectedTitles.join(' '), selected);
    }
};

QTEST_MAIN(TrackListModelTest)
#include "track_list_model_test.moc"

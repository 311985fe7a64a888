#include "library/TrackArtwork.h"
#include "library/TrackMetadata.h"
#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FakeAudioPlayer.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "tags/ID3TagWriter.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using fixtures::await;
using fixtures::trackAt;

namespace {

const QByteArray folderCover = QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(300, 'c');
const QByteArray embeddedCover = QByteArray("\x89PNG", 4) + QByteArray(200, 'e');

QString titles(const QList<Track>& tracks) {
    QStringList result;
    for (const Track& track : tracks)
        result.append(track.title());
    return result.join(' ');
}

} // namespace

// A file manager on the session bus that records what it was asked to show.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QStringList shown;
    Q_INVOKABLE void ShowItems(const QStringList& uris, const QString&) { shown = uris; }
};

// The open playlist end to end, over real files, a real engine with mpv's null output and a real bus.
class LibraryStoreTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;
    std::unique_ptr<fixtures::MusicFolder> m_music;
    std::unique_ptr<LibraryStore> m_store;
    std::optional<QUrl> m_destination; // what the save dialog answers
    QStringList m_offeredNames;
    TrackListChange m_lastChange; // as views that follow the list row by row see it

    LibraryStore& store() { return *m_store; }
    QUrl url(const QString& name) const { return m_music->url(name); }

    QList<QUrl> urls(const QStringList& names) const {
        QList<QUrl> result;
        for (const QString& name : names)
            result.append(url(name));
        return result;
    }

    // Adds songs named after `names` (copies of one MP3) and waits for them.
    QList<Track> addSongs(const QStringList& names, std::optional<int> index = std::nullopt) {
        for (const QString& name : names)
            m_music->addSong(name);
        [&] { QVERIFY(await(store().addURLs(urls(names), index))); }();
        return store().tracks();
    }

private slots:
    void init() {
        QVERIFY2(!fixtures::sampleSong().isEmpty(), "ffmpeg makes the songs");
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_music = std::make_unique<fixtures::MusicFolder>();
        m_destination.reset();
        m_offeredNames.clear();
        m_store = std::make_unique<LibraryStore>(&m_home->settings, MpvAudioPlayer::factory(),
                                                 [this](const QString& name) {
                                                     m_offeredNames.append(name);
                                                     return m_destination;
                                                 });
        // Every change of the list reaches the engine at once.
        connect(m_store.get(), &LibraryStore::tracksChanged, this,
                [this] { QCOMPARE(store().engine()->queue(), store().tracks()); });
        connect(m_store.get(), &LibraryStore::tracksEdited, this,
                [this](const TrackListChange& change) { m_lastChange = change; });
    }

    void cleanup() { m_store.reset(); }

    // Adding and opening over the list "a" as a restored session leaves it: what each reports and changes.
    // A folder's twelve songs load in batches and still arrive in natural order.
    void imports_data() {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QStringList>("chosen");
        QTest::addColumn<QString>("titles");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("error");
        const auto row = [](const char* name, const QString& how, const QStringList& chosen,
                            const QString& titles, const QString& status, const QString& error = {}) {
            QTest::addRow("%s", name) << how << chosen << titles << status << error;
        };
        row("add one song", "add", {"a.mp3"}, "a a", "Added 1 song.");
        row("add a folder", "add", {"album"}, "a 1 2 3 4 5 6 7 8 9 10 11 12", "Added 12 songs.");
        row("add nothing playable", "add", {"notes.txt"}, "a", "Nothing playable in that selection.");
        row("open one missing of three", "open", {"three.m3u"}, "a Lost Song b",
            "Opened 3 songs — 1 couldn't be found on disk.");
        row("append", "append", {"one.m3u"}, "a b", "Opened 1 song.");
        row("open a vanished file", "open", {"gone.m3u"}, "a", {},
            "Can't read gone.m3u. The file may be damaged or in an unsupported format.");
    }
    void imports() {
        QFETCH(QString, how);
        QFETCH(QStringList, chosen);
        QFETCH(QString, titles);
        QFETCH(QString, status);
        QFETCH(QString, error);
        for (const char* name : {"a.mp3", "b.mp3"})
            m_music->addSong(name);
        for (const int n : {10, 2, 12, 1, 7, 3, 11, 5, 9, 4, 8, 6})
            m_music->addSong(QStringLiteral("album/%1.mp3").arg(n));
        m_music->addFile("notes.txt", "hello");
        m_music->addFile("one.m3u", "b.mp3\n");
        m_music->addFile("three.m3u", "#EXTM3U\na.mp3\n#EXTINF:215,Band - Lost Song\ngone.mp3\nb.mp3\n");
        store().setTracks({trackAt(m_music->filePath("a.mp3"), "a")});
        QSignalSpy importing(&store(), &LibraryStore::isImportingChanged);
        QVERIFY(await(how == "add" ? store().addURLs(urls(chosen))
                                   : store().openPlaylist(url(chosen[0]), how == "open")));
        QCOMPARE(::titles(store().tracks()), titles);
        QCOMPARE(store().status(), status);
        QCOMPARE(store().errorMessage(), error);
        QCOMPARE(importing.count(), 2);
        const bool replaced = how == "open" && error.isNull();
        QCOMPARE(store().playlistURL(), replaced ? url(chosen[0]) : QUrl());
        QCOMPARE(store().suggestedPlaylistName(), replaced ? chosen[0].chopped(4) : "Untitled Playlist");
        QCOMPARE(store().hasUnsavedChanges(), !replaced && titles != "a");
    }

    // Imports don't lock the list: a late one lands in the list as it stands then, its index clamped.
    void insertsIntoTheListAsItStandsWhenSongsArrive() {
        addSongs({"a.mp3", "b.mp3", "c.mp3"});
        const QUuid b = store().tracks()[1].id;
        QFuture<void> late = store().addURLs({QUrl::fromLocalFile(m_music->addSong("d.mp3"))}, 3);
        QFuture<void> empty = store().addURLs({url("none.txt")});
        store().remove({b});
        store().moveTrack(store().tracks()[0].id, 1);
        QVERIFY(await(late) && await(empty));
        QVERIFY(!store().isImporting());
        QCOMPARE(titles(store().tracks()), "c a d");
        addSongs({"y.mp3"}, -5);
        addSongs({"x.mp3"}, 1);
        QCOMPARE(titles(store().tracks()), "y x c a d");
        // Views are told the row where it went in.
        QCOMPARE(m_lastChange.kind, TrackListChange::Kind::Inserted);
        QCOMPARE(m_lastChange.first, 1);
    }

    // Of two replacing opens, the later one's songs land even when the earlier one finishes last.
    void aLaterOpenSupersedesAnEarlierOne() {
        m_music->addSong("a.mp3");
        m_music->addFile("long.m3u", QByteArray("a.mp3\n").repeated(400));
        m_music->addFile("short.m3u", "a.mp3\n");
        QFuture<void> earlier = store().openPlaylist(url("long.m3u"), true);
        QVERIFY(await(store().openPlaylist(url("short.m3u"), true)) && await(earlier));
        QCOMPARE(store().tracks().size(), 1);
        QCOMPARE(store().playlistURL(), url("short.m3u"));
    }

    // Save and Save As; Open and Close ask first only when unsaved songs would be lost.
    void savesAndConfirms() {
        store().saveAs(); // asks no name either: see the names offered below
        QCOMPARE(store().errorMessage(), "There's nothing in the playlist to save.");
        store().setErrorMessage(QString());
        m_music->addFile("other.m3u", "Album/02 Two.mp3\n");
        addSongs({"Album/01 One.mp3", "Album/02 Two.mp3"});
        store().requestOpenPlaylist(url("other.m3u"));
        store().requestClear();
        QCOMPARE(store().pendingOpenURL(), url("other.m3u"));
        QVERIFY(store().pendingClearConfirmation() && !store().isImporting());
        store().setPendingClearConfirmation(false);

        store().save(); // the dialog is cancelled
        QCOMPARE(m_offeredNames, QStringList({"Untitled Playlist"}));
        QVERIFY(store().errorMessage().isNull());
        m_destination = url("nowhere/list.m3u8");
        store().save();
        const QString error = store().errorMessage();
        QVERIFY2(error.startsWith("Couldn't save list.m3u8: ") && !error.endsWith(": "), qPrintable(error));
        QVERIFY(store().playlistURL().isEmpty() && store().hasUnsavedChanges());
        m_destination = url("mix.m3u8");
        store().saveAs();
        QCOMPARE(store().status(), "Saved mix.m3u8.");
        QCOMPARE(store().playlistURL(), url("mix.m3u8"));
        QVERIFY(store().bookmarks().bookmarks().contains(m_music->filePath("mix.m3u8")));
        // Save goes back to that file without asking, with paths relative to it.
        store().moveTrack(store().tracks().first().id, 1);
        store().save();
        QCOMPARE(m_offeredNames.size(), 3);
        QVERIFY(!store().hasUnsavedChanges());
        const QByteArray saved = fixtures::readFile(m_music->filePath("mix.m3u8"));
        QVERIFY(saved.contains("\nAlbum/02 Two.mp3\n") && saved.endsWith("\nAlbum/01 One.mp3\n"));

        store().confirmPendingOpen(); // the open asked for above
        QVERIFY(store().pendingOpenURL().isEmpty());
        QTRY_COMPARE(store().playlistURL(), url("other.m3u"));
        store().requestClear(); // unchanged since it was opened: closes at once
        QVERIFY(!store().pendingClearConfirmation() && store().tracks().isEmpty());
        QVERIFY(store().playlistURL().isEmpty() && store().status().isNull() && !store().hasUnsavedChanges());
    }

    // A swap by an offset, a drag onto another track (removal and insertion: two changes, which views
    // see as one move), a block move before a gap, or a removal, over the unchanged list "a b c d". A move
    // out of the list is silent.
    void reorders_data() {
        using Kind = TrackListChange::Kind;
        QTest::addColumn<QString>("how");
        QTest::addColumn<QList<int>>("arguments"); // track indices, or an index and an offset
        QTest::addColumn<QString>("order");
        QTest::addColumn<int>("changes");
        QTest::addColumn<Kind>("seenAs");
        QTest::addRow("first up") << "offset" << QList<int>{0, -1} << "a b c d" << 0 << Kind::Reset;
        QTest::addRow("one down") << "offset" << QList<int>{1, 1} << "a c b d" << 1 << Kind::Moved;
        QTest::addRow("a swap two places away")
            << "offset" << QList<int>{0, 2} << "c b a d" << 1 << Kind::Reset;
        QTest::addRow("dragged down") << "onto" << QList<int>{0, 2} << "b c a d" << 2 << Kind::Moved;
        QTest::addRow("dragged up") << "onto" << QList<int>{3, 1} << "a d b c" << 2 << Kind::Moved;
        QTest::addRow("one to the end") << "block" << QList<int>{0, 4} << "b c d a" << 1 << Kind::Reset;
        QTest::addRow("two into the middle")
            << "block" << QList<int>{0, 3, 2} << "b a d c" << 1 << Kind::Reset;
        QTest::addRow("remove two") << "remove" << QList<int>{0, 2} << "b d" << 1 << Kind::Removed;
    }
    void reorders() {
        QFETCH(QString, how);
        QFETCH(QList<int>, arguments);
        QFETCH(QString, order);
        QFETCH(int, changes);
        QFETCH(TrackListChange::Kind, seenAs);
        const QList<Track> tracks{trackAt({}, "a"), trackAt({}, "b"), trackAt({}, "c"), trackAt({}, "d")};
        store().setTracks(tracks);
        QSignalSpy changed(&store(), &LibraryStore::tracksChanged);
        QSet<QUuid> ids;
        for (const int i : arguments)
            ids.insert(tracks.value(i).id); // an offset is no index
        if (how == "offset")
            store().moveTrack(tracks[arguments[0]].id, arguments[1]);
        else if (how == "onto")
            store().moveTrack(tracks[arguments[0]].id, tracks[arguments[1]].id);
        else if (how == "block")
            store().move(arguments.first(arguments.size() - 1), arguments.last());
        else
            store().remove(ids);
        QCOMPARE(titles(store().tracks()), order);
        QCOMPARE(changed.count(), changes);
        QCOMPARE(m_lastChange.kind, seenAs);
        QCOMPARE(store().hasUnsavedChanges(), changes > 0);
    }

    // The store's part of a tag save: which artwork goes in (by where the track's came from), its sentences,
    // and the track taking the new values. How the tag is written is the writer's test.
    void savesTags_data() {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<bool>("embed");
        QTest::addColumn<QByteArray>("written");
        QTest::addColumn<QString>("error");
        QTest::addRow("folder art, embedding asked") << "cover.jpg" << true << folderCover << QString();
        QTest::addRow("folder art, not asked; moved") << "moved" << false << QByteArray() << QString();
        QTest::addRow("embedded art written again") << "embedded" << false << embeddedCover << QString();
        QTest::addRow("removed meanwhile")
            << "removed" << true << QByteArray() << "That track is no longer in the playlist.";
        QTest::addRow("missing file")
            << "missing" << true << QByteArray() << "The file is missing, so its tags can't be written.";
    }
    void savesTags() {
        QFETCH(QString, situation);
        QFETCH(bool, embed);
        QFETCH(QByteArray, written);
        QFETCH(QString, error);
        m_music->addFile("art/cover.jpg", folderCover);
        Track track = trackAt(m_music->addSong("a.mp3"), "a");
        track.isMissing = situation == "missing";
        track.setAlbumArtist("Old");
        // The file's own picture is written again; a folder's only when asked.
        if (situation == "embedded")
            QVERIFY(!ID3TagWriter::write({}, embeddedCover, track.url()));
        track.setArtworkFingerprint(artworkFingerprint(situation == "embedded" ? embeddedCover : "folder"));
        track.setArtworkSource(situation == "embedded" ? ArtworkSource::embedded()
                                                       : ArtworkSource::folder(url("art/cover.jpg")));
        store().setTracks(situation == "removed" ? QList<Track>() : QList<Track>{track});
        const MusicMetadata metadata{"Título", "Artist", "Album", "", "3/12", "1999", "Rock", "note"};
        const QFuture<std::optional<QString>> saving = store().saveTags(track.id, metadata, embed);
        // The list is not locked while the file is written: the values reach the track where it now is.
        if (situation == "moved")
            store().setTracks({trackAt({}, "b"), track});
        QVERIFY(await(saving));
        QCOMPARE(saving.result().value_or(QString()), error);
        QVERIFY(!store().hasUnsavedChanges());
        QCOMPARE(store().status(), error.isNull() ? "Saved tags to a.mp3." : QString());
        if (!error.isNull())
            return;
        const Track saved = store().tracks().last();
        QVERIFY(musicMetadata(saved) == metadata);
        QCOMPARE(saved.artworkFingerprint(),
                 written.isEmpty() ? track.artworkFingerprint() : artworkFingerprint(written));
        QCOMPARE(saved.artworkSource().kind() == ArtworkSource::Kind::Embedded, !written.isEmpty());
        // The file holds the tag the writer builds for these values and that picture (or none).
        const std::optional<QByteArray> picture = written.isEmpty() ? std::nullopt : std::optional(written);
        QVERIFY(fixtures::readFile(m_music->filePath("a.mp3"))
                    .startsWith(*ID3TagWriter::buildTag(metadata, picture)));
    }

    void revealsFilesInTheFileManager() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        FakeFileManager fileManager;
        if (!bus.registerService("org.freedesktop.FileManager1") ||
            !bus.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                QDBusConnection::ExportAllInvokables))
            QSKIP("No session bus, or another file manager owns the name on it");
        QList<Track> tracks = addSongs({"a b.mp3", "c.mp3", "d.mp3"});
        tracks[1].isMissing = true;
        store().setTracks(tracks);
        store().revealInFileBrowser({tracks[2].id, tracks[1].id, tracks[0].id});
        QTRY_COMPARE(fileManager.shown, QStringList({url("a b.mp3").toString(QUrl::FullyEncoded),
                                                     url("d.mp3").toString(QUrl::FullyEncoded)}));
    }
};

QTEST_GUILESS_MAIN(LibraryStoreTest)
#include "library_store_test.moc"

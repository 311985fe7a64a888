#include "library/PlaylistFile.h"
#include "library/store/LibraryStore.h"
#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"
#include "support/Await.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"
#include "support/ScratchMount.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using fixtures::await;

namespace {

const QString dash = QString(QChar(0x2014));

QStringList titles(const QList<Track>& tracks) {
    QStringList result;
    for (const Track& track : tracks)
        result.append(track.title);
    return result;
}

// Runs `script` under mutagen with the file as sys.argv[1]; what it printed.
QByteArray readWithMutagen(const QString& path, const QString& script) {
    const auto read =
        fixtures::run(fixtures::systemPython(), {"-c", "import mutagen.id3,sys; " + script, path});
    return read.exitCode == 0 ? read.out : "mutagen failed: " + read.err;
}

const QByteArray folderCover = QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(300, 'c');
const QByteArray embeddedCover = QByteArray("\x89PNG", 4) + QByteArray(200, 'e');

} // namespace

// A file manager on the session bus that records what it was asked to show.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QStringList shown;

public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown = uris; }
};

// The open playlist end to end, over real files, a real engine with mpv's null output and a real bus.
class LibraryStoreTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;
    std::unique_ptr<LibraryStore> m_store;
    std::optional<QUrl> m_destination;
    QStringList m_offeredNames;

    LibraryStore& store() { return *m_store; }

    // Adds songs named after `names` (copies of one MP3) and waits for them.
    QList<Track> addSongs(fixtures::MusicFolder& music, const QStringList& names,
                          std::optional<int> index = std::nullopt) {
        QList<QUrl> urls;
        for (const QString& name : names)
            urls.append(QUrl::fromLocalFile(music.addSong(name)));
        [&] { QVERIFY(await(store().addURLs(urls, index))); }();
        return store().tracks();
    }

    void saveTo(const QUrl& url) {
        m_destination = url;
        store().save();
    }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
            qputenv("ORVELLE_AUDIO_OUTPUT", "null");
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
    }

    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
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
    }

    void cleanup() {
        m_store.reset();
        m_home.reset();
    }

    // Twelve songs load in batches; the results still come in the folder's natural order.
    void addsFoldersInNaturalOrder() {
        fixtures::MusicFolder music;
        for (const int n : {10, 2, 12, 1, 7, 3, 11, 5, 9, 4, 8, 6})
            music.addSong(QStringLiteral("album/%1.mp3").arg(n));
        for (const char* name : {"album/.hidden.mp3", "album/cover.txt", "album/Disc 2/1.mp3"})
            music.addSong(QString::fromUtf8(name));
        QFuture<void> added = store().addURLs({music.url("album")});
        QVERIFY(store().isImporting());
        QVERIFY(await(added));
        QCOMPARE(titles(store().tracks()).join(' '), "1 2 3 4 5 6 7 8 9 10 11 12 1");
        QCOMPARE(store().tracks().last().url, music.url("album/Disc 2/1.mp3"));
        QCOMPARE(store().status(), "Added 13 songs.");
        QVERIFY(!store().isImporting());
    }

    void reportsWhatWasAdded_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("count");
        QTest::addRow("nothing chosen") << QStringList{} << QString() << 0;
        QTest::addRow("one song") << QStringList{"a.mp3"} << "Added 1 song." << 1;
        QTest::addRow("the same file twice") << QStringList{"a.mp3", "a.mp3"} << "Added 2 songs." << 2;
        QTest::addRow("nothing playable")
            << QStringList{"notes.txt", "gone.mp3", "empty"} << "Nothing playable in that selection." << 0;
    }
    void reportsWhatWasAdded() {
        QFETCH(QStringList, names);
        QFETCH(QString, status);
        QFETCH(int, count);
        fixtures::MusicFolder music;
        music.addSong("a.mp3");
        music.addFile("notes.txt", "hello");
        QDir().mkpath(music.filePath("empty"));
        QList<QUrl> urls;
        for (const QString& name : names)
            urls.append(music.url(name));
        QSignalSpy importing(&store(), &LibraryStore::isImportingChanged);
        QVERIFY(await(store().addURLs(urls)));
        QCOMPARE(store().status(), status);
        QCOMPARE(store().status().isNull(), status.isNull());
        QCOMPARE(store().tracks().size(), count);
        QCOMPARE(store().hasUnsavedChanges(), count > 0);
        QCOMPARE(importing.count(), names.isEmpty() ? 0 : 2);
        if (count == 2)
            QVERIFY(store().tracks()[0].id != store().tracks()[1].id);
    }

    void insertsIntoTheListAsItStandsWhenSongsArrive() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        const QUuid b = store().tracks()[1].id;
        QFuture<void> late = store().addURLs({QUrl::fromLocalFile(music.addSong("d.mp3"))}, 3);
        store().remove({b});
        store().moveTrack(store().tracks()[0].id, 1);
        QVERIFY(await(late));
        QCOMPARE(titles(store().tracks()).join(""), "cad"); // the index clamped to the shorter list
        QCOMPARE(store().status(), "Added 1 song.");
        addSongs(music, {"y.mp3"}, -5);
        addSongs(music, {"x.mp3"}, 1);
        QCOMPARE(titles(store().tracks()).join(""), "yxcad");
    }

    void clearsTheImportFlagWhenImportsEnd() {
        fixtures::MusicFolder music;
        // An import may finish before addURLs returns, so follow the flag through its signal.
        QList<bool> seen;
        QObject observer;
        connect(&store(), &LibraryStore::isImportingChanged, &observer, [&] { seen << store().isImporting(); });
        QFuture<void> first = store().addURLs({QUrl::fromLocalFile(music.addSong("a.mp3"))});
        QFuture<void> second = store().addURLs({music.url("none.txt")});
        QVERIFY(await(first) && await(second));
        QVERIFY(!seen.isEmpty() && seen.first());
        QVERIFY(!store().isImporting());
        QCOMPARE(store().tracks().size(), 1);
    }

    void opensPlaylists_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("status");
        QTest::addRow("one song") << QByteArray("a.mp3\n") << "Opened 1 song.";
        QTest::addRow("one missing of three")
            << QByteArray("#EXTM3U\na.mp3\n#EXTINF:215,Band - Lost Song\ngone.mp3\nb.mp3\n")
            << "Opened 3 songs " + dash + " 1 couldn't be found on disk.";
        QTest::addRow("a playlist that lists itself") << QByteArray("list.m3u\na.mp3\n") << "Opened 2 songs.";
    }
    void opensPlaylists() {
        QFETCH(QByteArray, text);
        QFETCH(QString, status);
        fixtures::MusicFolder music;
        music.addSong("a.mp3");
        music.addSong("b.mp3");
        music.addFile("list.m3u", text);
        QVERIFY(await(store().openPlaylist(music.url("list.m3u"), true)));
        QCOMPARE(store().status(), status);
        QCOMPARE(store().playlistURL(), music.url("list.m3u"));
        QVERIFY(!store().hasUnsavedChanges());
        QVERIFY(!store().isImporting());
        QCOMPARE(store().suggestedPlaylistName(), "list");
        for (const Track& track : store().tracks()) {
            if (track.isMissing) // keeps what the playlist said of it
                QCOMPARE(QStringList({track.title, track.artist, QString::number(track.duration)}),
                         QStringList({"Lost Song", "Band", "215"}));
        }
    }

    void reportsPlaylistsItCannotOpen_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("error");
        QTest::addRow("vanished")
            << "gone.m3u"
            << "Can't read gone.m3u. The file may be damaged or in an unsupported format.";
        QTest::addRow("only streams") << "radio.m3u"
                                      << "radio.m3u doesn't list any playable local files.";
    }
    void reportsPlaylistsItCannotOpen() {
        QFETCH(QString, name);
        QFETCH(QString, error);
        fixtures::MusicFolder music;
        const QList<Track> before = addSongs(music, {"a.mp3"});
        music.addFile("radio.m3u", "#EXTM3U\nhttp://example.org/stream\n");
        QVERIFY(await(store().openPlaylist(music.url(name), true)));
        QCOMPARE(store().errorMessage(), error);
        QCOMPARE(store().tracks(), before);
        QVERIFY(!store().isImporting());
        QVERIFY(store().playlistURL().isEmpty());
    }

    void appendsThePlaylistsSongs() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3"});
        music.addSong("b.mp3");
        music.addFile("more.m3u", "b.mp3\nb.mp3\n");
        QVERIFY(await(store().openPlaylist(music.url("more.m3u"), false)));
        QCOMPARE(titles(store().tracks()).join(""), "abb");
        QVERIFY(store().hasUnsavedChanges());
        QVERIFY(store().playlistURL().isEmpty());
        QCOMPARE(store().status(), "Opened 2 songs.");
    }

    void asksBeforeReplacingUnsavedChanges() {
        fixtures::MusicFolder music;
        const QList<Track> before = addSongs(music, {"a.mp3"});
        music.addSong("b.mp3");
        music.addFile("other.m3u", "b.mp3\n");
        store().requestOpenPlaylist(music.url("other.m3u"));
        QCOMPARE(store().pendingOpenURL(), music.url("other.m3u"));
        QCOMPARE(store().tracks(), before);
        QVERIFY(!store().isImporting());
        store().confirmPendingOpen();
        QVERIFY(store().pendingOpenURL().isEmpty());
        QTRY_COMPARE(titles(store().tracks()), QStringList({"b"}));
        QCOMPARE(store().playlistURL(), music.url("other.m3u"));

        // An empty list has nothing to lose, even when it is unsaved.
        store().remove({store().tracks().first().id});
        QVERIFY(store().hasUnsavedChanges());
        store().requestOpenPlaylist(music.url("other.m3u"));
        QVERIFY(store().pendingOpenURL().isEmpty());
        QTRY_COMPARE(store().tracks().size(), 1);
    }

    void closesOrAsksFirst() {
        store().requestClear();
        QVERIFY(!store().pendingClearConfirmation());
        for (const auto save : {&LibraryStore::save, &LibraryStore::saveAs}) {
            store().setErrorMessage(QString());
            (store().*save)();
            QCOMPARE(store().errorMessage(), "There's nothing in the playlist to save.");
        }
        QVERIFY(m_offeredNames.isEmpty());
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3"});
        store().requestClear();
        QVERIFY(store().pendingClearConfirmation());
        QCOMPARE(store().tracks().size(), 1);
        store().setPendingClearConfirmation(false);
        saveTo(music.url("saved.m3u8"));
        store().requestClear();
        QVERIFY(!store().pendingClearConfirmation());
        QVERIFY(store().tracks().isEmpty());
        QVERIFY(store().playlistURL().isEmpty());
        QVERIFY(store().status().isNull());
        QVERIFY(!store().hasUnsavedChanges());
    }

    void savesWithRelativePathsAndReopens() {
        fixtures::MusicFolder music;
        addSongs(music, {"Artist/Album/01 One.mp3", "Artist/Album/02 Two.mp3"});
        store().save();
        QCOMPARE(store().errorMessage(), QString());
        QCOMPARE(m_offeredNames, QStringList({"Untitled Playlist"}));
        QVERIFY(store().playlistURL().isEmpty()); // cancelled
        QVERIFY(store().hasUnsavedChanges());

        m_destination = music.url("mix.m3u8");
        store().saveAs();
        QCOMPARE(store().status(), "Saved mix.m3u8.");
        QCOMPARE(store().playlistURL(), music.url("mix.m3u8"));
        QVERIFY(!store().hasUnsavedChanges());
        QVERIFY(fixtures::readFile(music.filePath("mix.m3u8")).contains("\nArtist/Album/01 One.mp3\n"));
        QVERIFY(store().bookmarks().bookmarks().contains(music.filePath("mix.m3u8")));

        // Moved as a whole, the playlist still finds its songs.
        const QString moved = music.filePath("moved");
        QVERIFY(QDir().mkpath(moved));
        QVERIFY(QDir().rename(music.filePath("Artist"), moved + "/Artist"));
        QVERIFY(QFile::rename(music.filePath("mix.m3u8"), moved + "/mix.m3u8"));
        QVERIFY(await(store().openPlaylist(QUrl::fromLocalFile(moved + "/mix.m3u8"), true)));
        QCOMPARE(store().status(), "Opened 2 songs.");
        QCOMPARE(titles(store().tracks()), QStringList({"01 One", "02 Two"}));

        // Save goes back to the file it came from without asking.
        store().moveTrack(store().tracks().first().id, 1);
        m_offeredNames.clear();
        store().save();
        QVERIFY(m_offeredNames.isEmpty());
        QVERIFY(!store().hasUnsavedChanges());
        const QByteArray saved = fixtures::readFile(moved + "/mix.m3u8");
        QVERIFY(saved.indexOf("02 Two.mp3") < saved.indexOf("01 One"));
    }

    void reportsSaveFailures_data() {
        QTest::addColumn<QString>("situation");
        QTest::addRow("a folder that does not exist") << "no folder";
        QTest::addRow("a read-only folder") << "read-only";
        QTest::addRow("a full disk") << "full";
    }
    void reportsSaveFailures() {
        QFETCH(QString, situation);
        fixtures::MusicFolder music;
        QStringList names; // long names make the playlist bigger than the full disk
        for (int i = 0; i < 40; ++i)
            names.append(QStringLiteral("%1 %2.mp3").arg(QString(200, 'x')).arg(i));
        addSongs(music, names);
        fixtures::ScratchMount mount(4096);
        if (situation == "no folder") {
            m_destination = music.url("nowhere/list.m3u8");
        } else {
            if (!mount.isValid())
                QSKIP("Mounting a scratch file system needs the right to mount");
            if (situation == "read-only")
                QVERIFY(mount.setReadOnly(true));
            m_destination = QUrl::fromLocalFile(mount.filePath("list.m3u8"));
        }
        store().saveAs();
        const QString prefix = "Couldn't save list.m3u8: ";
        QVERIFY2(store().errorMessage().startsWith(prefix), qPrintable(store().errorMessage()));
        QVERIFY(store().errorMessage().size() > prefix.size());
        QVERIFY(store().playlistURL().isEmpty());
        QVERIFY(store().hasUnsavedChanges());
        QVERIFY(!QFile::exists(m_destination->toLocalFile()));
    }

    // By an offset (a swap), onto another track (dragged: lands after it going down, before it going up),
    // or as a block to a gap. Each change reaches the engine at once; a move that changes nothing is silent.
    void reorders_data() {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QList<int>>("arguments");
        QTest::addColumn<QString>("order");
        QTest::addRow("first up") << "offset" << QList<int>{0, -1} << "abcd";
        QTest::addRow("beyond the end") << "offset" << QList<int>{1, 3} << "abcd";
        QTest::addRow("one up") << "offset" << QList<int>{3, -1} << "abdc";
        QTest::addRow("a swap two places away") << "offset" << QList<int>{0, 2} << "cbad";
        QTest::addRow("dragged down") << "onto" << QList<int>{0, 2} << "bcad";
        QTest::addRow("dragged up") << "onto" << QList<int>{3, 1} << "adbc";
        QTest::addRow("dragged onto itself") << "onto" << QList<int>{2, 2} << "abcd";
        QTest::addRow("one to the end") << "block" << QList<int>{0, 4} << "bcda";
        QTest::addRow("two to the front") << "block" << QList<int>{1, 3, 0} << "bdac";
        QTest::addRow("two into the middle") << "block" << QList<int>{0, 3, 2} << "badc";
    }
    void reorders() {
        QFETCH(QString, how);
        QFETCH(QList<int>, arguments);
        QFETCH(QString, order);
        fixtures::MusicFolder music;
        const QList<Track> tracks = addSongs(music, {"a.mp3", "b.mp3", "c.mp3", "d.mp3"});
        saveTo(music.url("list.m3u"));
        QSignalSpy changed(&store(), &LibraryStore::tracksChanged);
        QSignalSpy queued(store().engine(), &PlayerEngine::queueChanged);
        if (how == "offset")
            store().moveTrack(tracks[arguments[0]].id, arguments[1]);
        else if (how == "onto")
            store().moveTrack(tracks[arguments[0]].id, tracks[arguments[1]].id);
        else
            store().move(arguments.first(arguments.size() - 1), arguments.last());
        QCOMPARE(titles(store().tracks()).join(""), order);
        QCOMPARE(store().hasUnsavedChanges(), order != "abcd");
        QCOMPARE(changed.isEmpty(), order == "abcd");
        QCOMPARE(queued.count(), changed.count());
    }

    void removesTracks() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        saveTo(music.url("list.m3u"));
        QSignalSpy changed(&store(), &LibraryStore::tracksChanged);
        store().remove({});
        QCOMPARE(changed.count(), 0);
        QVERIFY(!store().hasUnsavedChanges());
        store().remove({QUuid::createUuid()});
        QVERIFY(store().hasUnsavedChanges());
        store().remove({store().tracks()[0].id, store().tracks()[2].id});
        QCOMPARE(titles(store().tracks()), QStringList({"b"}));
    }

    void keepsPlayingThroughASwapOnly() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        store().engine()->playTrack(store().tracks()[1].id);
        QVERIFY(store().engine()->isPlaying());
        // The playing song stays playing through a swap, and stops when it is dragged (removed, reinserted).
        store().moveTrack(store().tracks()[0].id, 1);
        QVERIFY(store().engine()->isPlaying());
        store().moveTrack(store().tracks()[0].id, store().tracks()[2].id);
        QVERIFY(!store().engine()->isPlaying());
    }

    // Tags go into the file (read back by mutagen) and the track; artwork by where the track's came from.
    void savesTagsIntoTheFile_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("embed");
        QTest::addColumn<QByteArray>("written");
        QTest::addRow("folder, embedded on request") << "folder" << true << folderCover;
        QTest::addRow("folder, not asked") << "folder" << false << QByteArray();
        QTest::addRow("folder image gone") << "gone" << true << QByteArray();
        QTest::addRow("embedded is written again") << "embedded" << false << embeddedCover;
    }
    void savesTagsIntoTheFile() {
        QFETCH(QString, source);
        QFETCH(bool, embed);
        QFETCH(QByteArray, written);
        if (!fixtures::haveTool(fixtures::systemPython()))
            QSKIP("mutagen is needed to read the tags back");
        fixtures::MusicFolder music;
        music.addFile("art/cover.jpg", folderCover);
        Track track = addSongs(music, {"a.mp3"}).first();
        if (source == "embedded") {
            track.artworkSource = ArtworkSource::embedded();
            track.artwork = embeddedCover;
        } else {
            track.artworkSource =
                ArtworkSource::folder(music.url(source == "gone" ? "art/gone.jpg" : "art/cover.jpg"));
        }
        store().setTracks({track});
        const MusicMetadata metadata{"Título", "Artist", "Album", "", "3/12", "1999", "Rock", "note"};
        QCOMPARE(store().saveTags(track.id, metadata, embed).value_or("saved"), "saved");
        QCOMPARE(store().status(), "Saved tags to a.mp3.");
        const Track saved = store().tracks().first();
        QCOMPARE(saved.id, track.id);
        QCOMPARE(saved.title, "Título");
        QCOMPARE(saved.trackNumber, "3/12");
        QCOMPARE(saved.artworkSource.kind() == ArtworkSource::Kind::Embedded, !written.isEmpty());
        QCOMPARE(saved.artwork, track.artwork);
        QVERIFY(store().hasUnsavedChanges()); // from the add; a tag save leaves it alone
        QCOMPARE(QString::fromUtf8(readWithMutagen(
                     music.filePath("a.mp3"),
                     "t=mutagen.id3.ID3(sys.argv[1]); p=t.getall('APIC'); "
                     "print(t['TIT2'].text[0], t['TRCK'].text[0], p[0].data.hex() if p else '')")),
                 "Título 3/12 " + written.toHex() + "\n");
    }

    void refusesTagSavesItCannotDo_data() {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("error");
        QTest::addRow("removed meanwhile") << "removed"
                                           << "That track is no longer in the playlist.";
        QTest::addRow("missing file") << "missing"
                                      << "The file is missing, so its tags can't be written.";
        QTest::addRow("not an MP3") << "m4a"
                                    << "Tag editing currently supports MP3 files only. This is a .m4a file " +
                                           dash + " its metadata can be viewed but not saved.";
    }
    void refusesTagSavesItCannotDo() {
        QFETCH(QString, situation);
        QFETCH(QString, error);
        fixtures::MusicFolder music;
        Track track = addSongs(music, {situation == "m4a" ? "a.m4a" : "a.mp3"}).first();
        if (situation == "removed")
            store().remove({track.id});
        if (situation == "missing") {
            track.isMissing = true;
            store().setTracks({track});
        }
        const QList<Track> before = store().tracks();
        store().setErrorMessage(QString());
        const QString status = store().status();
        QCOMPARE(
            store().saveTags(track.id, MusicMetadata{"New", "", "", "", "", "", "", ""}, true).value_or(""),
            error);
        QCOMPARE(store().tracks(), before);
        QCOMPARE(store().status(), status);
    }

    void revealsFilesInTheFileManager() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected())
            QSKIP("No session bus");
        FakeFileManager fileManager;
        if (!bus.registerService("org.freedesktop.FileManager1") ||
            !bus.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                QDBusConnection::ExportAllSlots))
            QSKIP("Another file manager owns the name on this bus");
        fixtures::MusicFolder music;
        QList<Track> tracks = addSongs(music, {"a b.mp3", "c.mp3", "d.mp3"});
        tracks[1].isMissing = true;
        store().setTracks(tracks);
        store().revealInFileBrowser({tracks[2].id, tracks[1].id, tracks[0].id});
        QTRY_COMPARE(fileManager.shown, QStringList({music.url("a b.mp3").toString(QUrl::FullyEncoded),
                                                     music.url("d.mp3").toString(QUrl::FullyEncoded)}));
        bus.unregisterObject("/org/freedesktop/FileManager1");
        bus.unregisterService("org.freedesktop.FileManager1");
    }
};

QTEST_GUILESS_MAIN(LibraryStoreTest)
#include "library_store_test.moc"

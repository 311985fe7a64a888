#include "library/PlaylistFile.h"
#include "library/store/LibraryStore.h"
#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"
#include "support/Await.h"
#include "support/Fixtures.h"
#include "support/MusicFolder.h"
#include "support/ScratchMount.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
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

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

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

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<LibraryStore> m_store;
    std::optional<QUrl> m_destination;
    QStringList m_offeredNames;

    LibraryStore& store() { return *m_store; }

    // Adds songs named after `names` (copies of one MP3) from a new folder and waits for them.
    QList<Track> addSongs(fixtures::MusicFolder& music, const QStringList& names) {
        QList<QUrl> urls;
        for (const QString& name : names)
            urls.append(QUrl::fromLocalFile(music.addSong(name)));
        [&] { QVERIFY(await(store().addURLs(urls))); }();
        return store().tracks();
    }

    void writeFile(const QString& path, const QByteArray& text) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
    }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
            qputenv("ORVELLE_AUDIO_OUTPUT", "null");
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
    }

    void init() {
        m_home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_DATA_HOME", m_home->filePath("data").toUtf8());
        m_settings = std::make_unique<QSettings>(m_home->filePath("settings.ini"), QSettings::IniFormat);
        m_destination.reset();
        m_offeredNames.clear();
        m_store = std::make_unique<LibraryStore>(m_settings.get(), MpvAudioPlayer::factory(),
                                                 [this](const QString& name) {
                                                     m_offeredNames.append(name);
                                                     return m_destination;
                                                 });
    }

    void cleanup() {
        m_store.reset();
        m_settings.reset();
        m_home.reset();
    }

    void addsFoldersInNaturalOrder() {
        fixtures::MusicFolder music;
        for (const char* name : {"album/10.mp3", "album/2.mp3", "album/1.mp3", "album/.hidden.mp3",
                                 "album/cover.txt", "album/Disc 2/1.mp3"})
            music.addSong(QString::fromUtf8(name));
        QSignalSpy importing(&store(), &LibraryStore::isImportingChanged);
        QFuture<void> added = store().addURLs({music.url("album")});
        QVERIFY(store().isImporting());
        QVERIFY(await(added));
        QCOMPARE(titles(store().tracks()), QStringList({"1", "2", "10", "1"}));
        QCOMPARE(store().tracks().last().url, music.url("album/Disc 2/1.mp3"));
        QCOMPARE(store().status(), "Added 4 songs.");
        QVERIFY(store().hasUnsavedChanges());
        QVERIFY(!store().isImporting());
        QCOMPARE(importing.count(), 2);
        QCOMPARE(store().engine()->queue(), store().tracks());
    }

    void reportsWhatWasAdded_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("count");
        QTest::addRow("one song") << QStringList{"a.mp3"} << "Added 1 song." << 1;
        QTest::addRow("twelve songs") << QStringList{"folder"} << "Added 12 songs." << 12;
        QTest::addRow("the same file twice") << QStringList{"a.mp3", "a.mp3"} << "Added 2 songs." << 2;
        QTest::addRow("a text file") << QStringList{"notes.txt"} << "Nothing playable in that selection."
                                     << 0;
        QTest::addRow("nothing on disk")
            << QStringList{"gone.mp3"} << "Nothing playable in that selection." << 0;
        QTest::addRow("an empty folder")
            << QStringList{"empty"} << "Nothing playable in that selection." << 0;
    }
    void reportsWhatWasAdded() {
        QFETCH(QStringList, names);
        QFETCH(QString, status);
        QFETCH(int, count);
        fixtures::MusicFolder music;
        music.addSong("a.mp3");
        music.addFile("notes.txt", "hello");
        QDir().mkpath(music.filePath("empty"));
        for (int i = 1; i <= 12; ++i)
            music.addSong(QStringLiteral("folder/%1.m4a").arg(i, 2, 10, QChar('0')));
        QList<QUrl> urls;
        for (const QString& name : names)
            urls.append(music.url(name));
        QVERIFY(await(store().addURLs(urls)));
        QCOMPARE(store().status(), status);
        QCOMPARE(store().tracks().size(), count);
        QCOMPARE(store().hasUnsavedChanges(), count > 0);
        QVERIFY(!store().isImporting());
        if (count == 2)
            QVERIFY(store().tracks()[0].id != store().tracks()[1].id);
    }

    void ignoresAnEmptySelection() {
        QSignalSpy importing(&store(), &LibraryStore::isImportingChanged);
        QVERIFY(await(store().addURLs({})));
        QCOMPARE(importing.count(), 0);
        QVERIFY(store().status().isNull());
    }

    void keepsEditsMadeWhileAnImportLoads() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        const QUuid b = store().tracks()[1].id;
        QFuture<void> late = store().addURLs({QUrl::fromLocalFile(music.addSong("d.mp3"))}, 3);
        store().remove({b});
        store().moveTrack(store().tracks()[0].id, 1);
        QVERIFY(await(late));
        // Inserted into the list as it stood when the songs arrived, the index clamped to its end.
        QCOMPARE(titles(store().tracks()), QStringList({"c", "a", "d"}));
        QCOMPARE(store().status(), "Added 1 song.");
    }

    void insertsAtAnIndex() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3"});
        QVERIFY(await(store().addURLs({QUrl::fromLocalFile(music.addSong("x.mp3"))}, 1)));
        QVERIFY(await(store().addURLs({QUrl::fromLocalFile(music.addSong("y.mp3"))}, -5)));
        QCOMPARE(titles(store().tracks()), QStringList({"y", "a", "x", "b"}));
    }

    void clearsTheImportFlagWhenTheFirstImportEnds() {
        fixtures::MusicFolder music;
        QFuture<void> first = store().addURLs({QUrl::fromLocalFile(music.addSong("a.mp3"))});
        QFuture<void> second = store().addURLs({music.url("none.txt")});
        QVERIFY(store().isImporting());
        QVERIFY(await(first));
        QVERIFY(await(second));
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
        writeFile(music.filePath("list.m3u"), text);
        QVERIFY(await(store().openPlaylist(music.url("list.m3u"), true)));
        QCOMPARE(store().status(), status);
        QCOMPARE(store().playlistURL(), music.url("list.m3u"));
        QVERIFY(!store().hasUnsavedChanges());
        QVERIFY(!store().isImporting());
        QCOMPARE(store().suggestedPlaylistName(), "list");
        QCOMPARE(store().engine()->queue(), store().tracks());
    }

    void keepsMissingEntriesWithTheirPlaylistValues() {
        fixtures::MusicFolder music;
        writeFile(music.filePath("list.m3u8"), "#EXTM3U\n#EXTINF:215,Band - Lost Song\ngone.mp3\n");
        QVERIFY(await(store().openPlaylist(music.url("list.m3u8"), true)));
        QCOMPARE(store().tracks().size(), 1);
        const Track lost = store().tracks().first();
        QVERIFY(lost.isMissing);
        QCOMPARE(lost.title, "Lost Song");
        QCOMPARE(lost.artist, "Band");
        QCOMPARE(lost.duration, 215.0);
    }

    void reportsPlaylistsItCannotOpen_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("error");
        QTest::addRow("vanished")
            << "gone.m3u" << QByteArray()
            << "Can't read gone.m3u. The file may be damaged or in an unsupported format.";
        QTest::addRow("only streams") << "radio.m3u" << QByteArray("#EXTM3U\nhttp://example.org/stream\n")
                                      << "radio.m3u doesn't list any playable local files.";
        QTest::addRow("empty") << "empty.pls" << QByteArray("")
                               << "empty.pls doesn't list any playable local files.";
    }
    void reportsPlaylistsItCannotOpen() {
        QFETCH(QString, name);
        QFETCH(QByteArray, text);
        QFETCH(QString, error);
        fixtures::MusicFolder music;
        const QList<Track> before = addSongs(music, {"a.mp3"});
        if (name != "gone.m3u")
            writeFile(music.filePath(name), text);
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
        writeFile(music.filePath("more.m3u"), "b.mp3\nb.mp3\n");
        QVERIFY(await(store().openPlaylist(music.url("more.m3u"), false)));
        QCOMPARE(titles(store().tracks()), QStringList({"a", "b", "b"}));
        QVERIFY(store().hasUnsavedChanges());
        QVERIFY(store().playlistURL().isEmpty());
        QCOMPARE(store().status(), "Opened 2 songs.");
    }

    void asksBeforeReplacingUnsavedChanges() {
        fixtures::MusicFolder music;
        const QList<Track> before = addSongs(music, {"a.mp3"});
        music.addSong("b.mp3");
        writeFile(music.filePath("other.m3u"), "b.mp3\n");
        store().requestOpenPlaylist(music.url("other.m3u"));
        QCOMPARE(store().pendingOpenURL(), music.url("other.m3u"));
        QCOMPARE(store().tracks(), before);
        QVERIFY(!store().isImporting());

        store().confirmPendingOpen();
        QVERIFY(store().pendingOpenURL().isEmpty());
        QTRY_COMPARE(titles(store().tracks()), QStringList({"b"}));
        QCOMPARE(store().playlistURL(), music.url("other.m3u"));
    }

    void opensAtOnceOverAnEmptyList() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3"});
        store().remove({store().tracks().first().id});
        QVERIFY(store().hasUnsavedChanges());
        writeFile(music.filePath("list.m3u"), "a.mp3\n");
        store().requestOpenPlaylist(music.url("list.m3u"));
        QVERIFY(store().pendingOpenURL().isEmpty());
        QTRY_COMPARE(store().tracks().size(), 1);
    }

    void closesOrAsksFirst() {
        store().requestClear();
        QVERIFY(!store().pendingClearConfirmation());

        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3"});
        store().requestClear();
        QVERIFY(store().pendingClearConfirmation());
        QCOMPARE(store().tracks().size(), 1);

        store().setPendingClearConfirmation(false);
        m_destination = music.url("saved.m3u8");
        store().save();
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
        QVERIFY(readAll(music.filePath("mix.m3u8")).contains("\nArtist/Album/01 One.mp3\n"));
        QVERIFY(store().bookmarks().bookmarks().contains(music.filePath("mix.m3u8")));

        // Moved as a whole, the playlist still finds its songs.
        const QString moved = music.filePath("moved");
        QVERIFY(QDir().mkpath(moved));
        QVERIFY(QDir().rename(music.filePath("Artist"), moved + "/Artist"));
        QVERIFY(QFile::rename(music.filePath("mix.m3u8"), moved + "/mix.m3u8"));
        QVERIFY(await(store().openPlaylist(QUrl::fromLocalFile(moved + "/mix.m3u8"), true)));
        QCOMPARE(store().status(), "Opened 2 songs.");
        QCOMPARE(titles(store().tracks()), QStringList({"01 One", "02 Two"}));
        QCOMPARE(store().suggestedPlaylistName(), "mix");

        // Save goes back to the file it came from without asking.
        store().moveTrack(store().tracks().first().id, 1);
        m_offeredNames.clear();
        store().save();
        QVERIFY(m_offeredNames.isEmpty());
        QVERIFY(!store().hasUnsavedChanges());
        QVERIFY(readAll(moved + "/mix.m3u8").indexOf("02 Two.mp3") <
                readAll(moved + "/mix.m3u8").indexOf("01 One"));
    }

    void reportsSaveFailures_data() {
        QTest::addColumn<QString>("situation");
        QTest::addRow("nothing to save") << "empty";
        QTest::addRow("a folder that does not exist") << "no folder";
        QTest::addRow("a read-only folder") << "read-only";
        QTest::addRow("a full disk") << "full";
    }
    void reportsSaveFailures() {
        QFETCH(QString, situation);
        if (situation == "empty") {
            store().save();
            QCOMPARE(store().errorMessage(), "There's nothing in the playlist to save.");
            store().setErrorMessage(QString());
            store().saveAs();
            QCOMPARE(store().errorMessage(), "There's nothing in the playlist to save.");
            QVERIFY(m_offeredNames.isEmpty());
            return;
        }
        fixtures::MusicFolder music;
        // Long names make the playlist bigger than the full disk.
        QStringList names;
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
        QVERIFY2(store().errorMessage().startsWith("Couldn't save list.m3u8: "),
                 qPrintable(store().errorMessage()));
        QVERIFY(store().errorMessage().size() > QString("Couldn't save list.m3u8: ").size());
        QVERIFY(store().playlistURL().isEmpty());
        QVERIFY(store().hasUnsavedChanges());
        QVERIFY(!QFile::exists(m_destination->toLocalFile()));
    }

    void movesTracks_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QString>("order");
        QTest::addRow("first up") << 0 << -1 << "abcd";
        QTest::addRow("last down") << 3 << 1 << "abcd";
        QTest::addRow("beyond the end") << 1 << 3 << "abcd";
        QTest::addRow("one down") << 0 << 1 << "bacd";
        QTest::addRow("one up") << 3 << -1 << "abdc";
        QTest::addRow("a swap two places away") << 0 << 2 << "cbad";
    }
    void movesTracks() {
        QFETCH(int, index);
        QFETCH(int, offset);
        QFETCH(QString, order);
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3", "d.mp3"});
        m_destination = music.url("list.m3u");
        store().save();
        store().moveTrack(store().tracks()[index].id, offset);
        QCOMPARE(titles(store().tracks()).join(""), order);
        QCOMPARE(store().hasUnsavedChanges(), order != "abcd");
    }

    void dragsTracksOntoOthers_data() {
        QTest::addColumn<int>("dragged");
        QTest::addColumn<int>("target");
        QTest::addColumn<QString>("order");
        QTest::addColumn<int>("changes");
        QTest::addRow("down lands after") << 0 << 2 << "bcad" << 2;
        QTest::addRow("up lands before") << 3 << 1 << "adbc" << 2;
        QTest::addRow("onto the last") << 1 << 3 << "acdb" << 2;
        QTest::addRow("onto itself") << 2 << 2 << "abcd" << 0;
    }
    void dragsTracksOntoOthers() {
        QFETCH(int, dragged);
        QFETCH(int, target);
        QFETCH(QString, order);
        QFETCH(int, changes);
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3", "d.mp3"});
        QSignalSpy changed(&store(), &LibraryStore::tracksChanged);
        QSignalSpy queued(store().engine(), &PlayerEngine::queueChanged);
        store().moveTrack(store().tracks()[dragged].id, store().tracks()[target].id);
        QCOMPARE(titles(store().tracks()).join(""), order);
        QCOMPARE(changed.count(), changes);
        QCOMPARE(queued.count(), changes);
    }

    void movesBlocks_data() {
        QTest::addColumn<QList<int>>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<QString>("order");
        QTest::addRow("one to the end") << QList<int>{0} << 4 << "bcda";
        QTest::addRow("two to the front") << QList<int>{1, 3} << 0 << "bdac";
        QTest::addRow("two into the middle") << QList<int>{0, 3} << 2 << "badc";
        QTest::addRow("onto its own place") << QList<int>{1} << 1 << "abcd";
    }
    void movesBlocks() {
        QFETCH(QList<int>, from);
        QFETCH(int, to);
        QFETCH(QString, order);
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3", "d.mp3"});
        store().move(from, to);
        QCOMPARE(titles(store().tracks()).join(""), order);
        QVERIFY(store().hasUnsavedChanges());
    }

    void removesTracks() {
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        m_destination = music.url("list.m3u");
        store().save();
        QSignalSpy changed(&store(), &LibraryStore::tracksChanged);
        store().remove({});
        QCOMPARE(changed.count(), 0);
        QVERIFY(!store().hasUnsavedChanges());
        store().remove({QUuid::createUuid()});
        QVERIFY(store().hasUnsavedChanges());
        store().remove({store().tracks()[0].id, store().tracks()[2].id});
        QCOMPARE(titles(store().tracks()), QStringList({"b"}));
    }

    void keepsTheEngineQueueEqualToTheList() {
        fixtures::MusicFolder music;
        connect(&store(), &LibraryStore::tracksChanged, this,
                [this] { QCOMPARE(store().engine()->queue(), store().tracks()); });
        addSongs(music, {"a.mp3", "b.mp3", "c.mp3"});
        store().engine()->playTrack(store().tracks()[1].id);
        QVERIFY(store().engine()->isPlaying());

        // The playing song stays playing through a swap, and stops when it is dragged (removed, reinserted).
        store().moveTrack(store().tracks()[0].id, 1);
        QVERIFY(store().engine()->isPlaying());
        store().moveTrack(store().tracks()[0].id, store().tracks()[2].id);
        QVERIFY(!store().engine()->isPlaying());

        store().setTracks({});
        QVERIFY(store().engine()->queue().isEmpty());
        QVERIFY(store().hasUnsavedChanges());
    }

    void savesTagsIntoTheFile() {
        if (!fixtures::haveTool(fixtures::systemPython()))
            QSKIP("mutagen is needed to read the tags back");
        fixtures::MusicFolder music;
        addSongs(music, {"a.mp3"});
        const QUuid id = store().tracks().first().id;
        MusicMetadata metadata{"Título", "Artist", "Album", "", "3/12", "1999", "Rock", "note"};
        QCOMPARE(store().saveTags(id, metadata, false).value_or("saved"), "saved");
        QCOMPARE(store().status(), "Saved tags to a.mp3.");
        const Track saved = store().tracks().first();
        QCOMPARE(saved.id, id);
        QCOMPARE(saved.title, "Título");
        QCOMPARE(saved.trackNumber, "3/12");
        QCOMPARE(saved.albumArtist, "");
        QVERIFY(store().hasUnsavedChanges()); // from the add; a tag save leaves it alone
        QCOMPARE(store().engine()->queue(), store().tracks());

        const auto read = fixtures::run(
            fixtures::systemPython(),
            {"-c",
             "import mutagen.id3,sys; t=mutagen.id3.ID3(sys.argv[1]); print(t['TIT2'].text[0]); "
             "print(t['TRCK'].text[0])",
             music.filePath("a.mp3")});
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(QString::fromUtf8(read.out), "Título\n3/12\n");
    }

    void writesArtworkByItsSource_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("embed");
        QTest::addColumn<QByteArray>("written");
        QTest::addColumn<bool>("becomesEmbedded");
        const QByteArray cover = QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(300, 'c');
        const QByteArray embedded = QByteArray("\x89PNG", 4) + QByteArray(200, 'e');
        QTest::addRow("folder, embedded on request") << "folder" << true << cover << true;
        QTest::addRow("folder, not asked") << "folder" << false << QByteArray() << false;
        QTest::addRow("folder image gone") << "gone" << true << QByteArray() << false;
        QTest::addRow("embedded is written again") << "embedded" << false << embedded << false;
        QTest::addRow("none") << "none" << true << QByteArray() << false;
    }
    void writesArtworkByItsSource() {
        QFETCH(QString, source);
        QFETCH(bool, embed);
        QFETCH(QByteArray, written);
        QFETCH(bool, becomesEmbedded);
        if (!fixtures::haveTool(fixtures::systemPython()))
            QSKIP("mutagen is needed to read the tags back");
        fixtures::MusicFolder music;
        const QByteArray cover = QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(300, 'c');
        music.addFile("art/cover.jpg", cover);
        Track track;
        track.id = QUuid::createUuid();
        track.url = QUrl::fromLocalFile(music.addSong("a.mp3"));
        if (source == "folder")
            track.artworkSource = ArtworkSource::folder(music.url("art/cover.jpg"));
        if (source == "gone")
            track.artworkSource = ArtworkSource::folder(music.url("art/gone.jpg"));
        if (source == "embedded") {
            track.artworkSource = ArtworkSource::embedded();
            track.artwork = QByteArray("\x89PNG", 4) + QByteArray(200, 'e');
        }
        store().setTracks({track});
        QCOMPARE(store()
                     .saveTags(track.id, MusicMetadata{"T", "", "", "", "", "", "", ""}, embed)
                     .value_or("saved"),
                 "saved");
        const Track saved = store().tracks().first();
        QCOMPARE(saved.artworkSource.kind() == ArtworkSource::Kind::Embedded,
                 becomesEmbedded || source == "embedded");
        QCOMPARE(saved.artwork, track.artwork);

        const auto read =
            fixtures::run(fixtures::systemPython(),
                          {"-c",
                           "import mutagen.id3,sys; t=mutagen.id3.ID3(sys.argv[1]); p=t.getall('APIC'); "
                           "sys.stdout.buffer.write(p[0].data if p else b'')",
                           music.filePath("a.mp3")});
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(read.out, written);
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
        if (situation == "m4a")
            addSongs(music, {"a.m4a"});
        else
            addSongs(music, {"a.mp3"});
        Track track = store().tracks().first();
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
        addSongs(music, {"a b.mp3", "c.mp3", "d.mp3"});
        QList<Track> tracks = store().tracks();
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

#include "library/BookmarkStore.h"
#include "library/PlaylistFile.h"
#include "library/SessionFile.h"
#include "library/store/LibraryStore.h"
#include "support/Await.h"
#include "support/MusicFolder.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using fixtures::await;

namespace {

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// The engine never plays here; a player that cannot open anything is enough.
AudioPlayerCreation noPlayer(const QUrl&) {
    return {nullptr, QStringLiteral("No audio output in this test.")};
}

constexpr auto writerVariable = "ORVELLE_SESSION_TEST_WRITER";

QList<Track> sessionOf(int count) {
    QList<Track> tracks;
    for (int i = 0; i < count; ++i) {
        Track track;
        track.url = QUrl::fromLocalFile(QStringLiteral("/music/%1/Song %2.mp3").arg(count).arg(i));
        track.title = QStringLiteral("Song %1").arg(i);
        track.duration = i;
        tracks.append(track);
    }
    return tracks;
}

} // namespace

// The session file and the bookmark store across runs of the program (a run is one LibraryStore).
class SessionTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<QSettings> m_settings;

    std::unique_ptr<LibraryStore> newRun() {
        return std::make_unique<LibraryStore>(m_settings.get(), noPlayer,
                                              [](const QString&) { return std::nullopt; });
    }

    QString sessionPath() const { return m_home->filePath("data/Orvelle/LastSession.m3u8"); }

    Track songAt(const QString& path, const QString& title = {}) {
        Track track;
        track.id = QUuid::createUuid();
        track.url = QUrl::fromLocalFile(path);
        track.title = title.isEmpty() ? QFileInfo(path).completeBaseName() : title;
        return track;
    }

private slots:
    void init() {
        m_home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_DATA_HOME", m_home->filePath("data").toUtf8());
        m_settings = std::make_unique<QSettings>(m_home->filePath("settings.ini"), QSettings::IniFormat);
    }

    void cleanup() {
        m_settings.reset();
        m_home.reset();
    }

    void keepsTheSessionInTheDataFolder() {
        QVERIFY(!QFileInfo::exists(m_home->filePath("data/Orvelle")));
        QCOMPARE(LibraryStore::lastSessionURL(), QUrl::fromLocalFile(sessionPath()));
        QVERIFY(QFileInfo(m_home->filePath("data/Orvelle")).isDir());
    }

    void writesOnceForABurstOfChanges() {
        auto store = newRun();
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        store->setTracks({songAt("/music/a.mp3")});
        store->setTracks({songAt("/music/a.mp3"), songAt("/music/b.mp3")});
        store->remove({store->tracks().first().id});
        store->setTracks(store->tracks() + QList<Track>{songAt("/music/c d.mp3", "C")});
        QVERIFY(!QFileInfo::exists(sessionPath()));
        QVERIFY(saved.wait(5000));
        QCOMPARE(readAll(sessionPath()),
                 "#EXTM3U\n#EXTINF:-1,b\n/music/b.mp3\n#EXTINF:-1,C\n/music/c d.mp3\n");
        QVERIFY(!saved.wait(1500));
        QCOMPARE(saved.count(), 1);
    }

    void writesAnEmptySessionWhenClosed() {
        {
            auto store = newRun();
            QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
            store->setTracks({songAt("/music/a.mp3")});
            QVERIFY(saved.wait(5000));
            store->clear();
            QVERIFY(saved.wait(5000));
            QCOMPARE(readAll(sessionPath()), "#EXTM3U\n");
        }
        auto next = newRun();
        QSignalSpy changed(next.get(), &LibraryStore::tracksChanged);
        QVERIFY(await(next->restoreSession()));
        QVERIFY(next->tracks().isEmpty());
        QCOMPARE(changed.count(), 0);
        QVERIFY(next->status().isNull());
        QVERIFY(next->errorMessage().isNull());
    }

    void restoresMissingSongsWithTheirSavedValues() {
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
        auto music = std::make_unique<fixtures::MusicFolder>();
        music->addSong("Album/01 Intro.mp3");
        music->addSong("Album/02 Song.mp3");
        {
            auto store = newRun();
            QVERIFY(await(store->addURLs({music->url("Album")})));
            QList<Track> tracks = store->tracks();
            tracks[1].artist = "Band";
            tracks[1].title = "Song";
            tracks[1].duration = 215.6;
            QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
            store->setTracks(tracks);
            QVERIFY(saved.wait(5000));
        }
        QVERIFY(readAll(sessionPath()).contains(QFile::encodeName(music->filePath("Album/02 Song.mp3"))));

        // The music folder moves away between runs.
        const QString oldAlbum = music->filePath("Album");
        music.reset();
        QVERIFY(!QFileInfo::exists(oldAlbum));

        auto next = newRun();
        QVERIFY(await(next->restoreSession()));
        const QList<Track> restored = next->tracks();
        QCOMPARE(restored.size(), 2);
        QVERIFY(std::all_of(restored.cbegin(), restored.cend(), [](const Track& t) { return t.isMissing; }));
        QCOMPARE(restored[0].title, "01 Intro");
        QCOMPARE(restored[1].title, "Song");
        QCOMPARE(restored[1].artist, "Band");
        QCOMPARE(restored[1].duration, 215.0);
        QCOMPARE(restored[0].url, QUrl::fromLocalFile(oldAlbum + "/01 Intro.mp3"));
        QVERIFY(!next->hasUnsavedChanges());
        QVERIFY(next->playlistURL().isEmpty());
        QVERIFY(next->status().isNull());
        QCOMPARE(next->suggestedPlaylistName(), "Untitled Playlist");

        // A restored playlist closes without asking.
        next->requestClear();
        QVERIFY(!next->pendingClearConfirmation());
        QVERIFY(next->tracks().isEmpty());
    }

    void restoresPresentSongsFromTheirFiles() {
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
        fixtures::MusicFolder music;
        const QString path = music.addSong("a.mp3");
        QVERIFY(QDir().mkpath(QFileInfo(sessionPath()).absolutePath()));
        QVERIFY(
            writeAll(sessionPath(), "#EXTM3U\n#EXTINF:99,Hinted - Name\n" + QFile::encodeName(path) + "\n"));
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(store->tracks().size(), 1);
        QVERIFY(!store->tracks()[0].isMissing);
        QCOMPARE(store->tracks()[0].title, "Name"); // the file has no title tag
        QVERIFY(store->tracks()[0].duration > 0.5 &&
                store->tracks()[0].duration < 2); // the file's own length
    }

    void killsWhileWritingLeaveAWholeFile() {
        QTemporaryDir reference;
        const QString small = reference.filePath("small.m3u8");
        const QString large = reference.filePath("large.m3u8");
        QVERIFY(!PlaylistFile::writePlaylist(sessionOf(500), QUrl::fromLocalFile(small), false));
        QVERIFY(!PlaylistFile::writePlaylist(sessionOf(3000), QUrl::fromLocalFile(large), false));
        const QByteArray smallText = readAll(small);
        const QByteArray largeText = readAll(large);

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(writerVariable, "1");
        environment.insert("XDG_DATA_HOME", m_home->filePath("data"));
        QRandomGenerator generator(11);
        for (int run = 0; run < 15; ++run) {
            QProcess writer;
            writer.setProcessEnvironment(environment);
            writer.start(QCoreApplication::applicationFilePath(), {});
            QVERIFY(writer.waitForStarted());
            QTRY_VERIFY(QFileInfo::exists(sessionPath()));
            QTest::qWait(int(generator.bounded(5, 60))); // a random moment of the write loop
            writer.kill();
            QVERIFY(writer.waitForFinished());
            const QByteArray text = readAll(sessionPath());
            QVERIFY2(text == smallText || text == largeText,
                     qPrintable(QString("%1 bytes").arg(text.size())));
        }
    }

    void restoresNothingFromGarbage_data() {
        QTest::addColumn<QByteArray>("contents");
        QByteArray random(64 * 1024, Qt::Uninitialized);
        QRandomGenerator generator(7);
        for (char& byte : random)
            byte = char(generator.bounded(256));
        QTest::addRow("random bytes") << random;
        QTest::addRow("only comments") << QByteArray("#EXTM3U\n#EXTINF:1,x\n# nothing\n");
        QTest::addRow("empty") << QByteArray();
    }
    void restoresNothingFromGarbage() {
        QFETCH(QByteArray, contents);
        QVERIFY(QDir().mkpath(QFileInfo(sessionPath()).absolutePath()));
        QVERIFY(writeAll(sessionPath(), contents));
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        // Whatever lines read as paths come back as songs (mostly missing); nothing is shown.
        QVERIFY(store->errorMessage().isNull());
        QVERIFY(store->status().isNull());
        QVERIFY(!store->hasUnsavedChanges());
    }

    void restoresFiftyThousandSongs() {
        QByteArray session = "#EXTM3U\n";
        for (int i = 0; i < 50000; ++i)
            session += "#EXTINF:61,Artist - Song " + QByteArray::number(i) + "\n/nonexistent/music/" +
                       QByteArray::number(i) + ".mp3\n";
        QVERIFY(QDir().mkpath(QFileInfo(sessionPath()).absolutePath()));
        QVERIFY(writeAll(sessionPath(), session));
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(store->tracks().size(), 50000);
        QCOMPARE(store->tracks()[49999].title, "Song 49999");
        QCOMPARE(store->tracks()[12345].url, QUrl::fromLocalFile("/nonexistent/music/12345.mp3"));
    }

    void restoresTheBookmarkStore() {
        QVariantMap stored{{"/music/a.mp3", QByteArray("/music/a.mp3")},
                           {"/music/odd", QByteArray("not a path")},
                           {"/music/Album", QByteArray("/music/Album")}};
        m_settings->setValue(BookmarkStore::settingsKey, stored);
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(store->bookmarks().bookmarks().size(), 3);
        QCOMPARE(store->bookmarks().accessedURLs(),
                 QList<QUrl>({QUrl::fromLocalFile("/music/Album"), QUrl::fromLocalFile("/music/a.mp3")}));
        store->stopAccessingAll();
        QVERIFY(store->bookmarks().accessedURLs().isEmpty());
    }

    void ignoresAMalformedBookmarkStore_data() {
        QTest::addColumn<QVariant>("stored");
        QTest::addRow("a value that is not bytes")
            << QVariant(QVariantMap{{"/music/a.mp3", QByteArray("/music/a.mp3")}, {"/music/b.mp3", 42}});
        QTest::addRow("not a map") << QVariant(QStringLiteral("/music/a.mp3"));
    }
    void ignoresAMalformedBookmarkStore() {
        QFETCH(QVariant, stored);
        m_settings->setValue(BookmarkStore::settingsKey, stored);
        fixtures::MusicFolder music;
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QVERIFY(store->bookmarks().bookmarks().isEmpty());
        QVERIFY(store->bookmarks().accessedURLs().isEmpty());

        // The next session save replaces the store with the current map.
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        music.addFile("nothing here.txt");
        music.addFile("chosen/x.txt");
        QVERIFY(await(store->addURLs({music.url("nothing here.txt")})));
        store->rememberBookmark(QUrl::fromLocalFile(music.path() + "/./x/../chosen"));
        store->rememberBookmark(music.url("gone.mp3"));
        store->setTracks({});
        QVERIFY(saved.wait(5000));
        const QVariant written = m_settings->value(BookmarkStore::settingsKey);
        QCOMPARE(written.typeId(), QMetaType::QVariantMap);
        QCOMPARE(written.toMap(),
                 QVariantMap({{music.path() + "/chosen", QFile::encodeName(music.path() + "/chosen")},
                              {music.path() + "/nothing here.txt",
                               QFile::encodeName(music.path() + "/nothing here.txt")}}));
    }

    void recordsBookmarksForWhatTheUserChose() {
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
        fixtures::MusicFolder music;
        music.addSong("Album/1.mp3");
        music.addFile("lists/mix.m3u", "../Album/1.mp3\n");
        auto store = newRun();
        QVERIFY(await(store->addURLs({music.url("Album")})));
        QVERIFY(await(store->openPlaylist(music.url("lists/mix.m3u"), false)));
        QCOMPARE(
            store->bookmarks().bookmarks().keys(),
            QStringList({music.filePath("Album"), music.filePath("lists"), music.filePath("lists/mix.m3u")}));
    }
};

// The writer half of killsWhileWritingLeaveAWholeFile: writes the two sessions in turn until killed.
static int writeSessionsUntilKilled() {
    for (bool first = true;; first = !first)
        SessionFile::write(sessionOf(first ? 500 : 3000));
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(writerVariable))
        return writeSessionsUntilKilled();
    SessionTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "session_test.moc"

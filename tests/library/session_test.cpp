#include "library/BookmarkStore.h"
#include "library/PlaylistFile.h"
#include "library/SessionFile.h"
#include "library/store/LibraryStore.h"
#include "support/Await.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using fixtures::await;
using fixtures::readFile;

namespace {

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

Track songAt(const QString& path, const QString& title = {}) {
    Track track;
    track.id = QUuid::createUuid();
    track.url = QUrl::fromLocalFile(path);
    track.title = title.isEmpty() ? QFileInfo(path).completeBaseName() : title;
    return track;
}

// The engine never plays here; a player that cannot open anything is enough.
AudioPlayerCreation noPlayer(const QUrl&) {
    return {nullptr, QStringLiteral("No audio output in this test.")};
}

} // namespace

// The session file and the bookmark store across runs of the program (a run is one LibraryStore).
class SessionTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;

    std::unique_ptr<LibraryStore> newRun() {
        return std::make_unique<LibraryStore>(&m_home->settings, noPlayer,
                                              [](const QString&) { return std::nullopt; });
    }

    QString sessionPath() const { return m_home->dataPath("Orvelle/LastSession.m3u8"); }

    // A new run that restores a session file with `contents`.
    std::unique_ptr<LibraryStore> restoredFrom(const QByteArray& contents) {
        auto store = newRun();
        [&] {
            QVERIFY(QDir().mkpath(QFileInfo(sessionPath()).absolutePath()));
            QVERIFY(fixtures::writeFile(sessionPath(), contents));
            QVERIFY(await(store->restoreSession()));
        }();
        return store;
    }

private slots:
    void init() { m_home = std::make_unique<fixtures::ScratchHome>(); }

    void cleanup() { m_home.reset(); }

    void writesOnceForABurstOfChanges() {
        auto store = newRun();
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        store->setTracks({songAt("/music/a.mp3")});
        store->setTracks({songAt("/music/a.mp3"), songAt("/music/b.mp3")});
        store->remove({store->tracks().first().id});
        store->setTracks(store->tracks() + QList<Track>{songAt("/music/c d.mp3", "C")});
        QVERIFY(!QFileInfo::exists(sessionPath()));
        QVERIFY(saved.wait(5000));
        QCOMPARE(readFile(sessionPath()),
                 "#EXTM3U\n#EXTINF:-1,b\n/music/b.mp3\n#EXTINF:-1,C\n/music/c d.mp3\n");
        QVERIFY(!saved.wait(1500));
        QCOMPARE(saved.count(), 1);

        // Closing the playlist writes an empty session, which the next run restores quietly.
        store->clear();
        QVERIFY(saved.wait(5000));
        QCOMPARE(readFile(sessionPath()), "#EXTM3U\n");
        store.reset();
        auto next = newRun();
        QSignalSpy changed(next.get(), &LibraryStore::tracksChanged);
        QVERIFY(await(next->restoreSession()));
        QCOMPARE(changed.count(), 0);
        QVERIFY(next->status().isNull());
    }

    // Missing songs keep their saved values; present ones are read again, an untagged one keeping its saved
    // title.
    void restoresTheSessionAfterSongsMove() {
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
        fixtures::MusicFolder music;
        music.addSong("Album/01 Intro.mp3");
        music.addSong("Album/02 Song.mp3");
        music.addFile("lists/mix.m3u", "../Album/01 Intro.mp3\n../Album/02 Song.mp3\n");
        {
            auto store = newRun();
            QVERIFY(await(store->openPlaylist(music.url("lists/mix.m3u"), false)));
            // What the user chose stays reachable in later runs.
            QCOMPARE(store->bookmarks().bookmarks().keys(),
                     QStringList({music.filePath("lists"), music.filePath("lists/mix.m3u")}));
            QList<Track> tracks = store->tracks();
            tracks[0].title = "Intro";
            tracks[0].duration = 99;
            tracks[1].artist = "Band";
            tracks[1].title = "Song";
            tracks[1].duration = 215.6;
            QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
            store->setTracks(tracks);
            QVERIFY(saved.wait(5000));
        }
        QVERIFY(QDir().rename(music.filePath("Album/02 Song.mp3"), music.filePath("02 Song.mp3")));

        auto next = newRun();
        QVERIFY(await(next->restoreSession()));
        const QList<Track> restored = next->tracks();
        QCOMPARE(restored.size(), 2);
        QVERIFY(!restored[0].isMissing);
        QCOMPARE(restored[0].title, "Intro");
        QVERIFY(restored[0].duration > 0.5 && restored[0].duration < 2); // the file's own length
        QVERIFY(restored[1].isMissing);
        QCOMPARE(restored[1].url, music.url("Album/02 Song.mp3"));
        QCOMPARE(restored[1].title, "Song");
        QCOMPARE(restored[1].artist, "Band");
        QCOMPARE(restored[1].duration, 215.0);
        QVERIFY(!next->hasUnsavedChanges());
        QVERIFY(next->playlistURL().isEmpty());
        QVERIFY(next->status().isNull());

        next->requestClear(); // a restored playlist closes without asking
        QVERIFY(!next->pendingClearConfirmation());
        QVERIFY(next->tracks().isEmpty());
    }

    void killsWhileWritingLeaveAWholeFile() {
        QTemporaryDir reference;
        QList<QByteArray> wholeFiles;
        for (int count : {500, 3000}) {
            const QString path = reference.filePath(QString::number(count));
            QVERIFY(!PlaylistFile::writePlaylist(sessionOf(count), QUrl::fromLocalFile(path), false));
            wholeFiles.append(readFile(path));
        }
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(writerVariable, "1");
        environment.insert("XDG_DATA_HOME", m_home->dataPath());
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
            const QByteArray text = readFile(sessionPath());
            QVERIFY2(wholeFiles.contains(text), qPrintable(QString("%1 bytes").arg(text.size())));
        }
    }

    void restoresGarbageQuietly() {
        QByteArray random(64 * 1024, Qt::Uninitialized);
        QRandomGenerator generator(7);
        for (char& byte : random)
            byte = char(generator.bounded(256));
        // Whatever lines read as paths come back as songs (mostly missing); nothing is shown.
        auto store = restoredFrom(random);
        QVERIFY(store->errorMessage().isNull());
        QVERIFY(store->status().isNull());
        QVERIFY(!store->hasUnsavedChanges());
    }

    void restoresFiftyThousandSongs() {
        QByteArray session = "#EXTM3U\n";
        for (int i = 0; i < 50000; ++i)
            session += "#EXTINF:61,Artist - Song " + QByteArray::number(i) + "\n/nonexistent/music/" +
                       QByteArray::number(i) + ".mp3\n";
        auto store = restoredFrom(session);
        QCOMPARE(store->tracks().size(), 50000);
        QCOMPARE(store->tracks()[49999].title, "Song 49999");
        QCOMPARE(store->tracks()[12345].url, QUrl::fromLocalFile("/nonexistent/music/12345.mp3"));
    }

    // A sound store comes back; a malformed one is ignored whole and replaced by the next session save.
    void restoresTheBookmarkStore_data() {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QStringList>("accessed");
        QTest::addRow("sound") << QVariant(QVariantMap{{"/music/a.mp3", QByteArray("/music/a.mp3")},
                                                       {"/music/odd", QByteArray("not a path")},
                                                       {"/music/Album", QByteArray("/music/Album")}})
                               << QStringList{"/music/Album", "/music/a.mp3"};
        QTest::addRow("a value that is not bytes")
            << QVariant(QVariantMap{{"/music/a.mp3", QByteArray("/music/a.mp3")}, {"/music/b.mp3", 42}})
            << QStringList{};
        QTest::addRow("not a map") << QVariant(QStringLiteral("/music/a.mp3")) << QStringList{};
    }
    void restoresTheBookmarkStore() {
        QFETCH(QVariant, stored);
        QFETCH(QStringList, accessed);
        m_home->settings.setValue(BookmarkStore::settingsKey, stored);
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QStringList accessedPaths;
        for (const QUrl& url : store->bookmarks().accessedURLs())
            accessedPaths.append(url.toLocalFile());
        QCOMPARE(accessedPaths, accessed);
        QVariantMap expected = accessed.isEmpty() ? QVariantMap() : stored.toMap();
        QCOMPARE(store->bookmarks().bookmarks().size(), expected.size());

        fixtures::MusicFolder music;
        const QString chosen = music.path() + "/chosen", text = music.addFile("nothing here.txt");
        music.addFile("chosen/x.txt");
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        QVERIFY(await(store->addURLs({QUrl::fromLocalFile(text)})));
        store->rememberBookmark(QUrl::fromLocalFile(music.path() + "/./x/../chosen"));
        store->rememberBookmark(music.url("gone.mp3"));
        store->setTracks({});
        QVERIFY(saved.wait(5000));
        expected.insert(chosen, QFile::encodeName(chosen));
        expected.insert(text, QFile::encodeName(text));
        const QVariant written = m_home->settings.value(BookmarkStore::settingsKey);
        QCOMPARE(written.typeId(), QMetaType::QVariantMap);
        QCOMPARE(written.toMap(), expected);
        store->stopAccessingAll();
        QVERIFY(store->bookmarks().accessedURLs().isEmpty());
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

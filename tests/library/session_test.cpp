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

Track songAt(const QString& path, const QString& title = {}, double duration = 0) {
    Track track;
    track.id = QUuid::createUuid();
    track.url = QUrl::fromLocalFile(path);
    track.title = title.isEmpty() ? QFileInfo(path).completeBaseName() : title;
    track.duration = duration;
    return track;
}

QList<Track> sessionOf(int count) {
    QList<Track> tracks;
    for (int i = 0; i < count; ++i)
        tracks.append(songAt(QStringLiteral("/music/%1/Song %2.mp3").arg(count).arg(i), {}, i));
    return tracks;
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

private slots:
    void init() { m_home = std::make_unique<fixtures::ScratchHome>(); }

    void cleanup() { m_home.reset(); }

    // Three changes within 0.7 s write once, the list as it was at the last change; closing writes the
    // header.
    void writesOnceForABurstOfChanges() {
        auto store = newRun();
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        store->setTracks({songAt("/music/a.mp3"), songAt("/music/b.mp3")});
        store->remove({store->tracks().first().id});
        store->setTracks(store->tracks() + QList<Track>{songAt("/music/c d.mp3", "C")});
        QVERIFY(!QFileInfo::exists(sessionPath()));
        QVERIFY(saved.wait(5000));
        QCOMPARE(readFile(sessionPath()),
                 "#EXTM3U\n#EXTINF:-1,b\n/music/b.mp3\n#EXTINF:-1,C\n/music/c d.mp3\n");
        QVERIFY(!saved.wait(1500));
        store->clear();
        QVERIFY(saved.wait(5000));
        QCOMPARE(saved.count(), 2);
        QCOMPARE(readFile(sessionPath()), "#EXTM3U\n");
    }

    // Nothing is shown and the playlist is not marked changed, whatever the session file holds.
    void restoresQuietly_data() {
        QTest::addColumn<QByteArray>("session");
        QTest::addColumn<int>("count"); // -1: whatever the lines give
        QByteArray garbage(64 * 1024, Qt::Uninitialized);
        QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(garbage.data()), garbage.size() / 4);
        QByteArray many = "#EXTM3U\n";
        for (int i = 0; i < 50000; ++i)
            many += "#EXTINF:61,Artist - Song " + QByteArray::number(i) + "\n/nonexistent/" +
                    QByteArray::number(i) + ".mp3\n";
        QTest::addRow("only the header") << QByteArray("#EXTM3U\n") << 0;
        QTest::addRow("garbage") << garbage << -1;
        QTest::addRow("50,000 songs") << many << 50000;
    }
    void restoresQuietly() {
        QFETCH(QByteArray, session);
        QFETCH(int, count);
        QVERIFY(QDir().mkpath(QFileInfo(sessionPath()).absolutePath()));
        QVERIFY(fixtures::writeFile(sessionPath(), session));
        auto store = newRun();
        QSignalSpy changed(store.get(), &LibraryStore::tracksChanged);
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(changed.count(), store->tracks().isEmpty() ? 0 : 1);
        QVERIFY(store->errorMessage().isNull() && store->status().isNull() && !store->hasUnsavedChanges());
        if (count < 0)
            return;
        QCOMPARE(store->tracks().size(), count);
        if (count > 0) {
            QCOMPARE(store->tracks().last().title, "Song 49999");
            QCOMPARE(store->tracks()[12345].url, QUrl::fromLocalFile("/nonexistent/12345.mp3"));
        }
    }

    // Missing songs keep their saved values; present ones are read again, an untagged one keeping its saved
    // title. A restored playlist counts as unchanged and untitled.
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
            QCOMPARE(store->bookmarks().bookmarks().keys(),
                     QStringList({music.filePath("lists"), music.filePath("lists/mix.m3u")}));
            QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
            store->setTracks({songAt(store->tracks()[0].url.toLocalFile(), "Intro", 99),
                              songAt(store->tracks()[1].url.toLocalFile(), "Band - Song", 215.6)});
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
        QCOMPARE((QStringList{restored[1].artist, restored[1].title}), (QStringList{"Band", "Song"}));
        QCOMPARE(restored[1].duration, 215.0);
        QVERIFY(!next->hasUnsavedChanges() && next->playlistURL().isEmpty() && next->status().isNull());
        next->requestClear(); // closes without asking
        QVERIFY(!next->pendingClearConfirmation() && next->tracks().isEmpty());
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

    // A sound store comes back; a malformed one is ignored whole and replaced by the next session save,
    // which also holds what was chosen since (standardized, and only what exists).
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
        QCOMPARE(m_home->settings.value(BookmarkStore::settingsKey).toMap(), expected);
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

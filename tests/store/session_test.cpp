#include "library/BookmarkStore.h"
#include "library/SessionFile.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <sys/resource.h>

#include <csignal>
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
QFuture<AudioPlayerCreation> noPlayer(const QUrl&) {
    return QtFuture::makeReadyFuture(
        AudioPlayerCreation{nullptr, QStringLiteral("No audio output in this test.")});
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

    // A new run that restores a session file holding `session`.
    std::unique_ptr<LibraryStore> restoredFrom(const QByteArray& session) {
        fixtures::writeFile(LibraryStore::lastSessionURL().toLocalFile(), session);
        auto store = newRun();
        await(store->restoreSession());
        return store;
    }

private slots:
    void init() { m_home = std::make_unique<fixtures::ScratchHome>(); }

    void cleanup() { m_home.reset(); }

    // Three changes within 0.7 s write once, the list as it was at the last change; closing writes the
    // header.
    void writesOnceForABurstOfChanges() {
        const QString music = m_home->dataPath("music"); // shares folders with the session: still absolute
        auto store = newRun();
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        store->setTracks({songAt(music + "/a.mp3"), songAt(music + "/b.mp3")});
        store->remove({store->tracks().first().id});
        store->setTracks(store->tracks() + QList<Track>{songAt(music + "/c d.mp3", "C")});
        QVERIFY(!QFileInfo::exists(sessionPath()));
        QVERIFY(saved.wait(5000));
        QCOMPARE(QString::fromUtf8(readFile(sessionPath())),
                 "#EXTM3U\n#EXTINF:-1,b\n" + music + "/b.mp3\n#EXTINF:-1,C\n" + music + "/c d.mp3\n");
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
            many += "#EXTINF:61,Artist - Song\n/nonexistent/" + QByteArray::number(i) + ".mp3\n";
        QTest::addRow("only the header") << QByteArray("#EXTM3U\n") << 0;
        QTest::addRow("garbage") << garbage << -1;
        QTest::addRow("50,000 songs") << many << 50000;
    }
    void restoresQuietly() {
        QFETCH(QByteArray, session);
        QFETCH(int, count);
        auto store = restoredFrom(session);
        QVERIFY(store->errorMessage().isNull() && store->status().isNull() && !store->hasUnsavedChanges());
        if (count >= 0)
            QCOMPARE(store->tracks().size(), count);
        if (count > 0)
            QCOMPARE(store->tracks().last().url, QUrl::fromLocalFile("/nonexistent/49999.mp3"));
    }

    // The music moved since the last run: missing songs keep the session's values; present ones are read
    // again, an untagged one keeping its saved title. A restored playlist counts as unchanged and untitled.
    void restoresTheSessionAfterSongsMove() {
        if (fixtures::sampleSong().isEmpty())
            QSKIP("ffmpeg is needed to make songs");
        fixtures::MusicFolder music;
        const QString present = music.addSong("Album/01 Intro.mp3"),
                      gone = music.filePath("Album/02 Song.mp3");
        auto store = restoredFrom("#EXTM3U\n#EXTINF:99,Intro\n" + QFile::encodeName(present) +
                                  "\n#EXTINF:215,Band - Song\n" + QFile::encodeName(gone));
        const QList<Track> restored = store->tracks();
        QCOMPARE(restored.size(), 2);
        QCOMPARE((QList<bool>{restored[0].isMissing, restored[1].isMissing}), (QList<bool>{false, true}));
        QCOMPARE(restored[0].title, "Intro");
        QVERIFY(restored[0].duration > 0.5 && restored[0].duration < 2); // the file's own length
        QCOMPARE(restored[1].url, QUrl::fromLocalFile(gone));
        QCOMPARE((QStringList{restored[1].artist, restored[1].title}), (QStringList{"Band", "Song"}));
        QCOMPARE(restored[1].duration, 215.0);
        QVERIFY(!store->hasUnsavedChanges() && store->playlistURL().isEmpty() && store->status().isNull());
        store->requestClear(); // closes without asking
        QVERIFY(!store->pendingClearConfirmation() && store->tracks().isEmpty());
    }

    // Killed in the middle of writing a session (by the file size limit, whose signal ends the program), the
    // program leaves the previous session file whole and nothing beside it.
    void killsWhileWritingLeaveTheOldFile() {
        QVERIFY(!SessionFile::write(sessionOf(500)));
        const QByteArray previous = readFile(sessionPath());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(); // with XDG_DATA_HOME
        environment.insert(writerVariable, "1");
        QProcess writer;
        writer.setProcessEnvironment(environment);
        writer.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(writer.waitForFinished());
        QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
        QCOMPARE(readFile(sessionPath()), previous);
        QCOMPARE(fixtures::folderEntries(QFileInfo(sessionPath()).path()), QStringList{"LastSession.m3u8"});
    }

    // A sound store comes back; a malformed one is ignored whole and replaced by the next session save,
    // which also holds what was chosen since (standardized, and only what exists).
    void restoresTheBookmarkStore_data() {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QList<QUrl>>("accessed");
        const auto file = [](const char* path) { return QUrl::fromLocalFile(path); };
        QTest::addRow("sound") << QVariant(QVariantMap{{"/music/a.mp3", QByteArray("/music/a.mp3")},
                                                       {"/music/odd", QByteArray("not a path")},
                                                       {"/music/Album", QByteArray("/music/Album")}})
                               << QList<QUrl>{file("/music/Album"), file("/music/a.mp3")};
        QTest::addRow("a value that is not bytes")
            << QVariant(QVariantMap{{"/music/a.mp3", QByteArray("/music/a.mp3")}, {"/music/b.mp3", 42}})
            << QList<QUrl>{};
        QTest::addRow("not a map") << QVariant(QStringLiteral("/music/a.mp3")) << QList<QUrl>{};
    }
    void restoresTheBookmarkStore() {
        QFETCH(QVariant, stored);
        QFETCH(QList<QUrl>, accessed);
        m_home->settings.setValue(BookmarkStore::settingsKey, stored);
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(store->bookmarks().accessedURLs(), accessed);
        QVariantMap expected = accessed.isEmpty() ? QVariantMap() : stored.toMap();
        QCOMPARE(store->bookmarks().bookmarks().size(), expected.size());

        // What the user chose: a file, a playlist opened (and its folder), a folder written oddly, a path
        // with nothing there.
        fixtures::MusicFolder music;
        const QString text = music.addFile("nothing here.txt"),
                      list = music.addFile("lists/mix.m3u", "gone.mp3\n");
        music.addFile("chosen/x.txt");
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        QVERIFY(await(store->addURLs({QUrl::fromLocalFile(text)})));
        QVERIFY(await(store->openPlaylist(QUrl::fromLocalFile(list), false)));
        store->rememberBookmark(QUrl::fromLocalFile(music.path() + "/./x/../chosen"));
        store->rememberBookmark(music.url("gone.mp3"));
        QVERIFY(saved.wait(5000));
        for (const QString& path : {text, list, music.filePath("lists"), music.filePath("chosen")})
            expected.insert(path, QFile::encodeName(path));
        QCOMPARE(m_home->settings.value(BookmarkStore::settingsKey).toMap(), expected);
        store->stopAccessingAll();
        QVERIFY(store->bookmarks().accessedURLs().isEmpty());
    }
};

// The writer half of killsWhileWritingLeaveTheOldFile: a session far larger than the file size limit.
static int writeSessionPastTheSizeLimit() {
    std::signal(SIGXFSZ, SIG_DFL);
    rlimit limit{0, 0};
    setrlimit(RLIMIT_CORE, &limit);
    limit = {64 * 1024, 64 * 1024};
    setrlimit(RLIMIT_FSIZE, &limit);
    return SessionFile::write(sessionOf(30000)) ? 1 : 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(writerVariable))
        return writeSessionPastTheSizeLimit();
    SessionTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "session_test.moc"

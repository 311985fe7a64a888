#include "library/BookmarkStore.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FakeAudioPlayer.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"

#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using fixtures::await;
using fixtures::readFile;

// The session file and the bookmark store across runs of the program (a run is one LibraryStore).
class SessionTest : public QObject {
    Q_OBJECT

    std::unique_ptr<fixtures::ScratchHome> m_home;

    // The engine never plays here; a player that cannot open anything is enough.
    std::unique_ptr<LibraryStore> newRun() {
        return std::make_unique<LibraryStore>(&m_home->settings, fixtures::noAudioPlayer,
                                              [](const QString&) { return std::nullopt; });
    }

    QString sessionPath() const { return m_home->dataPath("Orvelle/LastSession.m3u8"); }

private slots:
    void init() { m_home = std::make_unique<fixtures::ScratchHome>(); }

    void cleanup() { m_home.reset(); }

    // Three changes within 0.7 s write once, the list as it was at the last change; closing writes the
    // header. The second write is the deadline for a stray one: any write of the burst would come first.
    void writesOnceForABurstOfChanges() {
        const QString music = m_home->dataPath("music"); // shares folders with the session: still absolute
        auto store = newRun();
        QSignalSpy saved(store.get(), &LibraryStore::sessionSaved);
        store->setTracks(
            {fixtures::trackAt(music + "/a.mp3", "a"), fixtures::trackAt(music + "/b.mp3", "b")});
        store->remove({store->tracks().first().id});
        store->setTracks(store->tracks() + QList<Track>{fixtures::trackAt(music + "/c d.mp3", "C")});
        QVERIFY(!QFileInfo::exists(sessionPath()));
        QVERIFY(saved.wait(5000));
        QCOMPARE(QString::fromUtf8(readFile(sessionPath())),
                 "#EXTM3U\n#EXTINF:-1,b\n" + music + "/b.mp3\n#EXTINF:-1,C\n" + music + "/c d.mp3\n");
        store->clear();
        QVERIFY(saved.wait(5000));
        QCOMPARE(saved.count(), 2);
        QCOMPARE(readFile(sessionPath()), "#EXTM3U\n");
    }

    // Nothing is shown and the playlist counts as unchanged and untitled, whatever the session file holds.
    // When the music moved since the last run, the session's lines reach the loader as hints (whose rules the
    // loader's test owns).
    void restores_data() {
        QTest::addColumn<QByteArray>("session");
        QTest::addColumn<QString>("restored"); // "artist|title|duration|missing" per song
        QTest::addRow("only the header") << QByteArray("#EXTM3U\n") << "";
        QTest::addRow("songs moved") << QByteArray("#EXTM3U\n#EXTINF:215,Band - Song\n/gone/02 Song.mp3\n")
                                     << "Band|Song|215|1";
    }
    void restores() {
        QFETCH(QByteArray, session);
        QFETCH(QString, restored);
        fixtures::writeFile(LibraryStore::lastSessionURL().toLocalFile(), session);
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QVERIFY(store->errorMessage().isNull() && store->status().isNull() && !store->hasUnsavedChanges());
        QVERIFY(store->playlistURL().isEmpty());
        QStringList songs;
        for (const Track& t : store->tracks())
            songs << QString("%1|%2|%3|%4").arg(t.artist(), t.title()).arg(t.duration).arg(t.isMissing);
        QCOMPARE(songs.join(' '), restored);
    }

    // A stored set of bookmarks comes back (an entry whose bookmark is no path is kept, not accessed), and
    // the next session save adds what was chosen since (standardized, and only what exists).
    void restoresTheBookmarkStore() {
        QVariantMap expected{{"/music/a.mp3", QByteArray("/music/a.mp3")},
                             {"/music/odd", QByteArray("not a path")},
                             {"/music/Album", QByteArray("/music/Album")}};
        m_home->settings.setValue(BookmarkStore::settingsKey, expected);
        auto store = newRun();
        QVERIFY(await(store->restoreSession()));
        QCOMPARE(store->bookmarks().accessedURLs(),
                 (QList<QUrl>{QUrl::fromLocalFile("/music/Album"), QUrl::fromLocalFile("/music/a.mp3")}));

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

QTEST_GUILESS_MAIN(SessionTest)
#include "session_test.moc"

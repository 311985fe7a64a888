#include "library/BookmarkStore.h"
#include "store/LibraryStore.h"
#include "support/Await.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/ScratchHome.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using fixtures::await;
using fixtures::readFile;

namespace {

Track songAt(const QString& path, const QString& title = {}, double duration = 0) {
    Track track;
    track.id = QUuid::createUuid();
    track.setUrl(QUrl::fromLocalFile(path));
    track.setTitle(title.isEmpty() ? QFileInfo(path).completeBaseName() : title);
    track.duration = duration;
    return track;
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
    // header. The second write is the deadline for a stray one: any write of the burst would come first.
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
        QTest::addRow("only the header") << QByteArray("#EXTM3U\n") << 0;
        QTest::addRow("garbage") << garbage << -1;
    }
    void restoresQuietly() {
        QFETCH(QByteArray, session);
        QFETCH(int, count);
        auto store = restoredFrom(session);
        QVERIFY(store->errorMessage().isNull() && store->status().isNull() && !store->hasUnsavedChanges());
        if (count >= 0)
            QCOMPARE(store->tracks().size(), count);
    }

    // The music moved since the last run: the session's lines reach the loader as hints (whose rules the
    // loader's test owns), and the restored playlist counts as unchanged and untitled.
    void restoresTheSessionAfterSongsMove() {
        auto store = restoredFrom("#EXTM3U\n#EXTINF:215,Band - Song\n/gone/02 Song.mp3\n");
        QCOMPARE(store->tracks().size(), 1);
        const Track restored = store->tracks().first();
        QCOMPARE(QString("%1|%2|%3|%4")
                     .arg(restored.artist(), restored.title())
                     .arg(restored.duration)
                     .arg(restored.isMissing),
                 "Band|Song|215|1");
        QVERIFY(!store->hasUnsavedChanges() && store->playlistURL().isEmpty() && store->status().isNull());
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

QTEST_GUILESS_MAIN(SessionTest)
#include "session_test.moc"

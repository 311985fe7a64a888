// The player as desktop clients see it on the session bus: driven by playerctl and dbus-send, watched from a
// second bus connection, over the real engine.
#include "library/TrackArtwork.h"
#include "playback/NowPlaying.h"
#include "playback/PlayerEngine.h"
#include "support/FakeAudioPlayer.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/Pictures.h"
#include "support/ScratchHome.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString mprisPath = "/org/mpris/MediaPlayer2";
const QString playerInterface = "org.mpris.MediaPlayer2.Player";

} // namespace

class MprisTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<fixtures::ScratchHome> m_home;
    fixtures::FakeAudioBackend m_backend;
    std::unique_ptr<PlayerEngine> m_engine;
    std::unique_ptr<NowPlaying> m_nowPlaying;
    QList<Track> m_tracks;
    QList<QVariantMap> m_changes; // what a second client of the bus hears: the Player's changed properties,
    QList<qlonglong> m_seeks;     // and the positions of Seeked, in microseconds

    // A song on disk (the fake back end does not read it, but checks that it exists).
    Track song(const QString& fileName, const QString& title) {
        return fixtures::trackAt(m_home->dir.filePath(fileName), title, true);
    }

    // Runs a client while the event loop keeps serving the bus (the client waits for the player's replies).
    // Returns its output without the final newline.
    static QString client(const QString& program, const QStringList& arguments) {
        QProcess process;
        QSignalSpy finished(&process, &QProcess::finished);
        process.start(program, arguments);
        if (!finished.wait(20000))
            return program + " timed out";
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

    QString playerctl(const QStringList& arguments) {
        const QString name = m_nowPlaying->serviceName().mid(QString("org.mpris.MediaPlayer2.").size());
        return client("playerctl", QStringList{"-p", name} + arguments);
    }

    // Calls `method` (interface.member) on the player with dbus-send; returns the reply's last line,
    // simplified (a property reads as, say, `variant boolean true`).
    QString call(const QString& method, const QStringList& arguments = {}) {
        const QStringList options{"--session", "--print-reply", "--dest=" + m_nowPlaying->serviceName(),
                                  mprisPath, method};
        return client("dbus-send", options + arguments).section('\n', -1).simplified();
    }

    // Starts the song at `index` and leaves it as asked, `position` seconds in.
    void startAt(int index, bool paused, double position) {
        m_engine->playTrack(m_tracks.at(index).id);
        if (paused)
            m_engine->pause();
        if (position > 0)
            m_engine->seek(position);
    }

    QString property(const QString& name) {
        return call("org.freedesktop.DBus.Properties.Get", {"string:" + playerInterface, "string:" + name});
    }

    static QString trackId(const Track& track) {
        return "/org/orvelle/track/" + track.id.toString(QUuid::Id128);
    }

protected slots:
    void changed(const QString& interface, const QVariantMap& properties) {
        if (interface == playerInterface)
            m_changes.append(properties);
    }
    void seeked(qlonglong position) { m_seeks.append(position); }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("No session bus (run under dbus-run-session)");
        if (!fixtures::haveTool("playerctl") || !fixtures::haveTool("dbus-send"))
            QSKIP("playerctl and dbus-send are needed");
    }

    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
        // Covers go to the cache folder: keep them in the test's own.
        qputenv("XDG_CACHE_HOME", m_home->dir.filePath("cache").toUtf8());
        m_backend = {};
        m_backend.duration = 200;
        m_tracks = {song("1.mp3", "Blue Train"), song("2.mp3", "Moment's Notice"),
                    song("3.mp3", "Lazy Bird")};
        m_nowPlaying.reset();
        m_engine = std::make_unique<PlayerEngine>(&m_home->settings, m_backend.factory());
        m_nowPlaying = std::make_unique<NowPlaying>(m_engine.get());
        m_engine->setQueue(m_tracks);
    }

    void metadata() {
        Track track = song("01 Intro #1.mp3", "Giant Steps");
        track.setArtist("John Coltrane");
        track.setAlbum("Giant Steps");
        const QString image = m_home->dir.filePath("cover.png");
        fixtures::writeFile(image, fixtures::pictureBytes("PNG", Qt::red));
        track.setArtworkSource(ArtworkSource::folder(QUrl::fromLocalFile(image)));
        const QByteArray cover = loadArtwork(track).value_or(QByteArray()); // as the window shows it
        track.setArtworkFingerprint(artworkFingerprint(cover));
        m_engine->setQueue({track});
        m_engine->playTrack(track.id);
        const QString format =
            "{{title}}|{{artist}}|{{album}}|{{mpris:length}}|{{mpris:trackid}}|{{xesam:url}}";
        // The id follows the playlist entry, not its row; addresses go out percent-encoded, as URIs must be.
        // (playerctl quotes object paths.)
        QCOMPARE(playerctl({"metadata", "--format", format}),
                 "Giant Steps|John Coltrane|Giant Steps|200000000|'" + trackId(track) + "'|" +
                     track.url().toString(QUrl::FullyEncoded));
        // The cover is written in the background, to the cache folder, and announced when it is there.
        QTRY_COMPARE(fixtures::readFile(QUrl(playerctl({"metadata", "mpris:artUrl"})).toLocalFile()), cover);
        QCOMPARE(fixtures::folderEntries(m_home->dir.filePath("cache/Orvelle/art")).size(), 1);
    }

    // Each command reaches the engine; what the engine then does (wrapping, restarting, clamping) is its
    // test's.
    void transport_data() {
        QTest::addColumn<QString>("start");       // "<song> playing|paused <seconds>"
        QTest::addColumn<QStringList>("command"); // playerctl's
        QTest::addColumn<QString>("expected");    // "<song> <status> <seconds>"
        QTest::addRow("play-pause") << "0 playing 0" << QStringList{"play-pause"} << "0 Paused 0";
        QTest::addRow("pause") << "1 playing 20" << QStringList{"pause"} << "1 Paused 20";
        QTest::addRow("play resumes") << "1 paused 20" << QStringList{"play"} << "1 Playing 20";
        QTest::addRow("next") << "1 playing 0" << QStringList{"next"} << "2 Playing 0";
        QTest::addRow("previous") << "1 playing 0" << QStringList{"previous"} << "0 Playing 0";
        QTest::addRow("stop") << "1 playing 20" << QStringList{"stop"} << "1 Stopped 0";
        QTest::addRow("seek forward") << "0 paused 42.5" << QStringList{"position", "5+"} << "0 Paused 47.5";
    }

    void transport() {
        QFETCH(QString, start);
        QFETCH(QStringList, command);
        const QStringList from = start.split(' ');
        startAt(from[0].toInt(), from[1] == "paused", from[2].toDouble());

        playerctl(command);
        // The command runs just after its reply, so before the next client is answered.
        const QString status = playerctl({"status"});
        QTEST(QString("%1 %2 %3").arg(m_engine->currentIndex()).arg(status).arg(m_engine->currentTime()),
              "expected");
        if (status == "Paused")
            QCOMPARE(playerctl({"position"}).toDouble(), m_engine->currentTime());
    }

    // Between publications the position runs on by itself, up to the song's length and no further.
    void positionStopsAtTheLength() {
        startAt(0, false, 199.999);
        QCOMPARE_LE(playerctl({"position"}).toDouble(), 200.001); // playerctl alone takes longer than 2 ms
    }

    // Shuffle, loop and volume, written by playerctl and read back after the engine changes them; what the
    // player can do.
    void properties() {
        playerctl({"shuffle", "On"});
        playerctl({"loop", "Track"});
        playerctl({"volume", "1.5"});
        QTRY_VERIFY(m_engine->isShuffling() && m_engine->repeatMode() == RepeatMode::One);
        QTRY_COMPARE(m_engine->volume(), 1.0f);

        m_engine->setShuffling(false);
        m_engine->setRepeatMode(RepeatMode::All);
        m_engine->setVolume(0.25f);
        QCOMPARE(playerctl({"shuffle"}) + playerctl({"loop"}) + playerctl({"volume"}), "OffPlaylist0.250000");

        // Which of CanControl, CanPlay, CanGoNext, CanGoPrevious, CanPause, CanSeek are true.
        const auto can = [&] {
            QString flags;
            for (const char* name :
                 {"CanControl", "CanPlay", "CanGoNext", "CanGoPrevious", "CanPause", "CanSeek"})
                flags += property(name).endsWith("true") ? '1' : '0';
            return flags;
        };
        QCOMPARE(can(), "111100");
        m_engine->playTrack(m_tracks[0].id);
        QCOMPARE(can(), "111111");
        m_backend.duration = 0; // a length not known: no seeking
        m_engine->playTrack(m_tracks[1].id);
        QCOMPARE(can(), "111110");

        const QString root = "org.mpris.MediaPlayer2";
        // Each request is counted on its own signal, so one sent for the other shows.
        QSignalSpy raise(m_nowPlaying.get(), &NowPlaying::raiseRequested);
        QSignalSpy quit(m_nowPlaying.get(), &NowPlaying::quitRequested);
        call(root + ".Raise");
        QCOMPARE((QList<qsizetype>{raise.size(), quit.size()}), (QList<qsizetype>{1, 0}));
        call(root + ".Quit");
        QCOMPARE((QList<qsizetype>{raise.size(), quit.size()}), (QList<qsizetype>{1, 1}));
        QSignalSpy open(m_nowPlaying.get(), &NowPlaying::openRequested);
        call(playerInterface + ".OpenUri", {"string:file:///music/a%20b.mp3"});
        QTRY_COMPARE(open.value(0).value(0).toUrl(), QUrl::fromLocalFile("/music/a b.mp3"));
    }

    // What clients are told without asking: jumps of the position and changed properties (the engine's test
    // shows that it publishes nothing while the song merely plays on). Track ids guard SetPosition.
    void announcements() {
        QDBusConnection observer = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "observer");
        const QString service = m_nowPlaying->serviceName();
        observer.connect(service, mprisPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", this,
                         SLOT(changed(QString, QVariantMap)));
        observer.connect(service, mprisPath, playerInterface, "Seeked", this, SLOT(seeked(qlonglong)));
        startAt(0, false, 0);
        QTRY_COMPARE(m_changes.size(), 1); // the song and its status
        m_engine->seek(30);
        m_engine->skip(10);
        m_engine->previous();
        m_engine->pause();
        m_engine->setVolume(0.5f);
        m_engine->next();
        QTRY_COMPARE(m_changes.size(), 4);
        QCOMPARE(m_seeks, (QList<qlonglong>{30000000, 40000000, 0}));
        QCOMPARE(m_changes[1], (QVariantMap{{"PlaybackStatus", "Paused"}}));
        QCOMPARE(m_changes[2], (QVariantMap{{"Volume", 0.5}}));
        const QVariantMap metadata = qdbus_cast<QVariantMap>(m_changes[3].value("Metadata"));
        QCOMPARE(metadata.value("xesam:title"), QVariant(m_tracks[1].title()));
        QCOMPARE(m_changes[3].value("PlaybackStatus"), QVariant("Playing"));

        // A SetPosition for a song no longer loaded is dropped; one for the loaded song is applied.
        for (const auto& [song, microseconds] : {std::pair{0, "50000000"}, {1, "7000000"}})
            call(playerInterface + ".SetPosition",
                 {"objpath:" + trackId(m_tracks[song]), QString("int64:") + microseconds});
        QTRY_COMPARE(m_engine->currentTime(), 7.0);
        // The song starting over by itself moves the clock back too, once.
        m_engine->setRepeatMode(RepeatMode::One);
        emit m_backend.current->finished(true);
        QTRY_COMPARE(m_seeks.size(), 5);
        QCOMPARE(m_seeks.mid(3), (QList<qlonglong>{7000000, 0}));
    }
};

QTEST_GUILESS_MAIN(MprisTest)
#include "mpris_test.moc"

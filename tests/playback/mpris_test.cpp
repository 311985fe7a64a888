// The player as desktop clients see it on the session bus: driven by playerctl, observed from a second
// bus connection, over the real engine.
#include "playback/MpvAudioPlayer.h"
#include "playback/NowPlaying.h"
#include "playback/PlayerEngine.h"
#include "support/FakeAudioPlayer.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/Pictures.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

const QString mprisPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// Set in the copy of this program that runs against a bus address where nothing listens.
const char* const noBusChild = "ORVELLE_MPRIS_TEST_WITHOUT_BUS";

// A second client of the bus: records the player's signals and makes calls without blocking the
// main thread, which has to keep serving the player it calls.
class BusObserver : public QObject {
    Q_OBJECT

public:
    explicit BusObserver(const QString& service)
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("observer")))
        , m_service(service) {
        m_bus.connect(service, mprisPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                      SLOT(record(QDBusMessage)));
        m_bus.connect(service, mprisPath, playerInterface, QStringLiteral("Seeked"), this,
                      SLOT(record(QDBusMessage)));
    }
    ~BusObserver() override { QDBusConnection::disconnectFromBus(QStringLiteral("observer")); }

    // The reply, once it has come.
    QDBusMessage call(const QString& interface, const QString& method, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(m_service, mprisPath, interface, method);
        message.setArguments(arguments);
        QDBusPendingCallWatcher watcher(m_bus.asyncCall(message));
        QSignalSpy finished(&watcher, &QDBusPendingCallWatcher::finished);
        if (!watcher.isFinished())
            finished.wait(10000);
        return watcher.reply();
    }

    QVariant property(const QString& interface, const QString& name) {
        const QDBusMessage reply = call(propertiesInterface, QStringLiteral("Get"), {interface, name});
        return reply.arguments().isEmpty() ? QVariant()
                                           : reply.arguments().constFirst().value<QDBusVariant>().variant();
    }

    QList<QDBusMessage> received(const QString& member) const {
        QList<QDBusMessage> matching;
        std::copy_if(m_received.begin(), m_received.end(), std::back_inserter(matching),
                     [&](const QDBusMessage& message) { return message.member() == member; });
        return matching;
    }

    // The changed-properties maps of the PropertiesChanged signals received so far.
    QList<QVariantMap> propertyChanges() const {
        QList<QVariantMap> changes;
        for (const QDBusMessage& message : received(QStringLiteral("PropertiesChanged"))) {
            if (message.arguments().value(0).toString() == playerInterface)
                changes.append(qdbus_cast<QVariantMap>(message.arguments().value(1)));
        }
        return changes;
    }

    void forget() { m_received.clear(); }

private slots:
    void record(const QDBusMessage& message) { m_received.append(message); }

private:
    QDBusConnection m_bus;
    QString m_service;
    QList<QDBusMessage> m_received;
};

} // namespace

class MprisTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_home;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QSettings> m_settings;
    fixtures::FakeAudioBackend m_backend;
    std::unique_ptr<PlayerEngine> m_engine;
    std::unique_ptr<NowPlaying> m_nowPlaying;
    QList<Track> m_tracks;

    QString songPath(const QString& name) const { return m_dir->filePath(name); }

    // A song on disk (the fake back end does not read it, but the engine checks that it exists).
    Track song(const QString& fileName, const QString& title, const QString& artist = "John Coltrane",
               const QString& album = "Blue Train", std::optional<QByteArray> artwork = std::nullopt) {
        QFile(songPath(fileName)).open(QIODevice::WriteOnly);
        Track track;
        track.id = QUuid::createUuid();
        track.url = QUrl::fromLocalFile(songPath(fileName));
        track.title = title;
        track.artist = artist;
        track.album = album;
        track.artwork = std::move(artwork);
        return track;
    }

    void startEngine(AudioPlayerFactory factory) {
        m_engine = std::make_unique<PlayerEngine>(m_settings.get(), std::move(factory));
        m_nowPlaying = std::make_unique<NowPlaying>(m_engine.get());
    }

    // The name playerctl knows the player by.
    QString playerName() const {
        return m_nowPlaying->serviceName().mid(QStringLiteral("org.mpris.MediaPlayer2.").size());
    }

    // Runs playerctl for this player while the event loop keeps serving the bus (playerctl waits for the
    // player's replies). Returns its output without the final newline.
    QString playerctl(const QStringList& arguments) {
        QProcess process;
        process.start(QStringLiteral("playerctl"),
                      QStringList{QStringLiteral("-p"), playerName()} + arguments);
        QSignalSpy finished(&process, &QProcess::finished);
        if (!finished.wait(20000)) {
            process.kill();
            process.waitForFinished();
            return QStringLiteral("<playerctl timed out>");
        }
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

    // The loaded song's mpris:trackid (playerctl shows object paths in quotes).
    QString trackIdShown() {
        QString shown = playerctl({QStringLiteral("metadata"), QStringLiteral("mpris:trackid")});
        return shown.remove(QLatin1Char('\''));
    }

    // Starts the song at `index` and leaves it as asked, `position` seconds in.
    void startAt(int index, bool paused, double position) {
        m_engine->playTrack(m_tracks.at(index).id);
        QVERIFY(m_backend.current);
        if (paused)
            m_engine->pause();
        if (position > 0)
            m_engine->seek(position);
    }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("No session bus (run under dbus-run-session)");
        if (!fixtures::haveTool(QStringLiteral("playerctl")))
            QSKIP("playerctl is not installed");
        QVERIFY(m_home.isValid());
        // Covers go to the cache folder; keep them, and the rest of the user's folders, in the test's own.
        qputenv("XDG_CACHE_HOME", m_home.filePath(QStringLiteral("cache")).toUtf8());
        qputenv("XDG_CONFIG_HOME", m_home.filePath(QStringLiteral("config")).toUtf8());
        if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
            qputenv("ORVELLE_AUDIO_OUTPUT", "null");
    }

    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_settings = std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("settings.ini")),
                                                 QSettings::IniFormat);
        m_backend = {};
        m_backend.duration = 200;
        m_tracks = {song("1.mp3", "Blue Train", "John Coltrane", "Blue Train",
                         fixtures::pictureBytes("PNG", Qt::blue)),
                    song("2.mp3", "Moment's Notice"), song("3.mp3", "Lazy Bird")};
        if (qEnvironmentVariableIsSet(noBusChild))
            return;
        startEngine(m_backend.factory());
        m_engine->setQueue(m_tracks);
    }

    void cleanup() {
        m_nowPlaying.reset();
        m_engine.reset();
    }

    void metadata_data() {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QStringList>("tags"); // title, artist, album
        QTest::addColumn<std::optional<QByteArray>>("artwork");
        QTest::addColumn<QStringList>("shown"); // title, artist, album
        QTest::addColumn<bool>("hasCover");

        const QStringList tags{"Giant Steps", "John Coltrane", "Giant Steps"};
        QTest::addRow("tagged, with a cover")
            << "a.mp3" << tags << std::optional<QByteArray>(fixtures::pictureBytes("PNG", Qt::red)) << tags
            << true;
        QTest::addRow("untagged") << "01 Intro.mp3" << QStringList{"", "", ""} << std::optional<QByteArray>()
                                  << QStringList{"01 Intro", "Unknown artist", "Unknown album"} << false;
        QTest::addRow("cover bytes that are not a picture")
            << "b.mp3" << tags << std::optional<QByteArray>("not a picture") << tags << false;
    }

    void metadata() {
        QFETCH(QString, fileName);
        QFETCH(QStringList, tags);
        QFETCH(std::optional<QByteArray>, artwork);
        QFETCH(QStringList, shown);
        QFETCH(bool, hasCover);

        const Track track = song(fileName, tags[0], tags[1], tags[2], artwork);
        m_engine->setQueue({track});
        m_engine->playTrack(track.id);
        const QStringList fields =
            playerctl({QStringLiteral("metadata"), QStringLiteral("--format"),
                       QStringLiteral("{{title}}|{{artist}}|{{album}}|{{mpris:length}}|{{mpris:artUrl}}")})
                .split('|');
        QCOMPARE(fields.size(), 5);
        QCOMPARE(fields.mid(0, 3), shown);
        QCOMPARE(fields[3], QStringLiteral("200000000"));
        QCOMPARE(trackIdShown(), QStringLiteral("/org/orvelle/track/") + track.id.toString(QUuid::Id128));
        if (!hasCover) {
            QCOMPARE(fields[4], QString());
            return;
        }
        const QUrl artUrl(fields[4]);
        QVERIFY2(artUrl.isLocalFile(), qPrintable(fields[4]));
        QVERIFY(artUrl.toLocalFile().startsWith(m_home.filePath(QStringLiteral("cache/Orvelle/art/"))));
        QCOMPARE(fixtures::readFile(artUrl.toLocalFile()), *artwork);
    }

    void transport_data() {
        QTest::addColumn<int>("startIndex"); // -1: nothing loaded
        QTest::addColumn<bool>("startPaused");
        QTest::addColumn<double>("startPosition");
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("position");
        QTest::addColumn<QString>("status");

        const QStringList playPause{"play-pause"};
        QTest::addRow("play-pause while playing") << 0 << false << 0.0 << playPause << 0 << 0.0 << "Paused";
        QTest::addRow("play-pause while paused") << 0 << true << 0.0 << playPause << 0 << 0.0 << "Playing";
        QTest::addRow("pause") << 1 << false << 20.0 << QStringList{"pause"} << 1 << 20.0 << "Paused";
        QTest::addRow("play resumes") << 1 << true << 20.0 << QStringList{"play"} << 1 << 20.0 << "Playing";
        QTest::addRow("play with nothing loaded")
            << -1 << false << 0.0 << QStringList{"play"} << 0 << 0.0 << "Playing";
        QTest::addRow("next") << 0 << false << 20.0 << QStringList{"next"} << 1 << 0.0 << "Playing";
        QTest::addRow("next on the last song wraps")
            << 2 << false << 0.0 << QStringList{"next"} << 0 << 0.0 << "Playing";
        QTest::addRow("previous after 3 s restarts")
            << 1 << false << 3.5 << QStringList{"previous"} << 1 << 0.0 << "Playing";
        QTest::addRow("stop") << 1 << false << 20.0 << QStringList{"stop"} << 1 << 0.0 << "Stopped";
        QTest::addRow("set position")
            << 0 << true << 42.5 << QStringList{"position", "10"} << 0 << 10.0 << "Paused";
        QTest::addRow("forward") << 0 << true << 42.5 << QStringList{"position", "5+"} << 0 << 47.5
                                 << "Paused";
        QTest::addRow("back past the start")
            << 0 << true << 42.5 << QStringList{"position", "60-"} << 0 << 0.0 << "Paused";
        QTest::addRow("set past the end clamps")
            << 0 << true << 42.5 << QStringList{"position", "500"} << 0 << 200.0 << "Paused";
    }

    void transport() {
        QFETCH(int, startIndex);
        QFETCH(bool, startPaused);
        QFETCH(double, startPosition);
        QFETCH(QStringList, command);
        QFETCH(int, index);
        QFETCH(double, position);
        QFETCH(QString, status);

        if (startIndex >= 0)
            startAt(startIndex, startPaused, startPosition);
        QSignalSpy stateChanges(m_engine.get(), &PlayerEngine::isPlayingChanged);
        QSignalSpy songChanges(m_engine.get(), &PlayerEngine::currentIndexChanged);
        QSignalSpy jumps(m_engine.get(), &PlayerEngine::seeked);

        playerctl(command);
        QTRY_VERIFY(!stateChanges.isEmpty() || !songChanges.isEmpty() || !jumps.isEmpty());
        QCOMPARE(m_engine->currentIndex(), index);
        QCOMPARE(m_engine->currentTime(), position);
        QCOMPARE(playerctl({QStringLiteral("status")}), status);
        if (status == QLatin1String("Paused"))
            QCOMPARE(playerctl({QStringLiteral("position")}).toDouble(), position);
    }

    // A position read while playing runs on from the last published one, without the engine republishing.
    void positionAdvancesWhilePlaying() {
        startAt(0, false, 10);
        QSignalSpy ticks(m_engine.get(), &PlayerEngine::currentTimeChanged);
        m_backend.current->m_time = 10.2;
        QVERIFY(ticks.wait());
        const double position = playerctl({QStringLiteral("position")}).toDouble();
        QVERIFY2(position > 10.1 && position < 15, qPrintable(QString::number(position)));
    }

    // Shuffle, loop and volume, written by playerctl and read back after the engine changes them.
    void settings() {
        playerctl({QStringLiteral("shuffle"), QStringLiteral("On")});
        playerctl({QStringLiteral("loop"), QStringLiteral("Track")});
        playerctl({QStringLiteral("volume"), QStringLiteral("1.5")});
        QTRY_VERIFY(m_engine->isShuffling() && m_engine->repeatMode() == RepeatMode::One);
        QTRY_COMPARE(m_engine->volume(), 1.0f);

        m_engine->setShuffling(false);
        m_engine->setRepeatMode(RepeatMode::All);
        m_engine->setVolume(0.25f);
        QCOMPARE(playerctl({QStringLiteral("shuffle")}), QStringLiteral("Off"));
        QCOMPARE(playerctl({QStringLiteral("loop")}), QStringLiteral("Playlist"));
        QCOMPARE(playerctl({QStringLiteral("volume")}).toDouble(), 0.25);
        playerctl({QStringLiteral("loop"), QStringLiteral("None")});
        QTRY_VERIFY(m_engine->repeatMode() == RepeatMode::Off);
    }

    // What clients are told without asking: jumps of the position and changed properties, but nothing
    // while the song merely plays on.
    void announcements() {
        BusObserver observer(m_nowPlaying->serviceName());
        startAt(0, false, 0);
        QTRY_VERIFY(!observer.propertyChanges().isEmpty());
        QCOMPARE(observer.propertyChanges().constLast().value(QStringLiteral("PlaybackStatus")),
                 QVariant(QStringLiteral("Playing")));

        // Plays on for a few ticks: nothing is announced.
        observer.forget();
        QSignalSpy ticks(m_engine.get(), &PlayerEngine::currentTimeChanged);
        for (double time : {30.2, 30.4, 30.6}) {
            m_backend.current->m_time = time;
            QVERIFY(ticks.wait());
        }
        // A reply comes after every signal sent before it.
        QCOMPARE(observer.property(playerInterface, QStringLiteral("PlaybackStatus")),
                 QVariant(QStringLiteral("Playing")));
        QCOMPARE(observer.received(QStringLiteral("PropertiesChanged")).size(), 0);
        QCOMPARE(observer.received(QStringLiteral("Seeked")).size(), 0);

        m_engine->seek(30);
        m_engine->skip(10);
        m_engine->previous();
        QTRY_COMPARE(observer.received(QStringLiteral("Seeked")).size(), 3);
        QList<qlonglong> positions;
        for (const QDBusMessage& message : observer.received(QStringLiteral("Seeked")))
            positions.append(message.arguments().value(0).toLongLong());
        QCOMPARE(positions, (QList<qlonglong>{30000000, 40000000, 0}));

        observer.forget();
        m_engine->pause();
        m_engine->setVolume(0.5f);
        m_engine->next();
        QTRY_COMPARE(observer.propertyChanges().size(), 3);
        const QList<QVariantMap> changes = observer.propertyChanges();
        QCOMPARE(changes[0], (QVariantMap{{QStringLiteral("PlaybackStatus"), QStringLiteral("Paused")}}));
        QCOMPARE(changes[1].value(QStringLiteral("Volume")).toDouble(), 0.5);
        const QVariantMap metadata = qdbus_cast<QVariantMap>(changes[2].value(QStringLiteral("Metadata")));
        QCOMPARE(metadata.value(QStringLiteral("xesam:title")), QVariant(m_tracks[1].title));
        QCOMPARE(changes[2].value(QStringLiteral("PlaybackStatus")), QVariant(QStringLiteral("Playing")));

        // The song starting over by itself moves the clock back too, once.
        observer.forget();
        m_engine->setRepeatMode(RepeatMode::One);
        m_engine->seek(150);
        m_backend.current->end(true);
        QCOMPARE(m_engine->currentIndex(), 1);
        QTRY_COMPARE(observer.received(QStringLiteral("Seeked")).size(), 2);
        QCOMPARE(observer.received(QStringLiteral("Seeked")).constLast().arguments().value(0).toLongLong(),
                 0);
    }

    // Track ids are stable; a SetPosition for a song that is no longer loaded is dropped, one for the
    // loaded song is applied.
    void staleSetPosition() {
        BusObserver observer(m_nowPlaying->serviceName());
        startAt(0, true, 0);
        const QDBusObjectPath firstSong(trackIdShown());
        m_engine->next();
        const QDBusObjectPath secondSong(trackIdShown());
        QVERIFY(firstSong != secondSong);
        // The id follows the playlist entry, not its row.
        m_engine->setQueue({m_tracks[2], m_tracks[1], m_tracks[0]});
        m_engine->seek(1); // republishes
        QCOMPARE(trackIdShown(), secondSong.path());

        QSignalSpy jumps(m_engine.get(), &PlayerEngine::seeked);
        for (const auto& [song, microseconds] : {std::pair{firstSong, 50000000LL}, {secondSong, 7000000LL}}) {
            const QVariantList arguments{QVariant::fromValue(song), microseconds};
            QCOMPARE(observer.call(playerInterface, QStringLiteral("SetPosition"), arguments).type(),
                     QDBusMessage::ReplyMessage);
        }
        QTRY_COMPARE(jumps.size(), 1);
        QCOMPARE(jumps[0][0].toDouble(), 7.0);
        QCOMPARE(m_engine->currentIndex(), 1);
    }

    void capabilities() {
        BusObserver observer(m_nowPlaying->serviceName());
        // Which of CanControl, CanPlay, CanGoNext, CanGoPrevious, CanPause, CanSeek are true.
        const auto can = [&] {
            QString flags;
            for (const char* name :
                 {"CanControl", "CanPlay", "CanGoNext", "CanGoPrevious", "CanPause", "CanSeek"})
                flags += observer.property(playerInterface, QString::fromLatin1(name)).toBool() ? '1' : '0';
            return flags;
        };
        QCOMPARE(can(), QStringLiteral("111100"));
        m_engine->playTrack(m_tracks[0].id);
        QCOMPARE(can(), QStringLiteral("111111"));
        m_engine->setQueue({});
        QCOMPARE(can(), QStringLiteral("100000"));
        QCOMPARE(playerctl({QStringLiteral("status")}), QStringLiteral("Stopped"));
    }

    void identityAndWindowRequests() {
        BusObserver observer(m_nowPlaying->serviceName());
        QCOMPARE(observer.property(rootInterface, QStringLiteral("Identity")),
                 QVariant(QStringLiteral("Orvelle")));
        const QString desktopEntry =
            observer.property(rootInterface, QStringLiteral("DesktopEntry")).toString();
        for (const char* can : {"CanRaise", "CanQuit"})
            QVERIFY(observer.property(rootInterface, QString::fromLatin1(can)).toBool());

        // The desktop file the entry names exists and is the program's.
        const QString desktopFile = QFINDTESTDATA(QStringLiteral("../../data/") + desktopEntry + ".desktop");
        QVERIFY2(!desktopFile.isEmpty(), qPrintable(desktopEntry));
        QSettings entry(desktopFile, QSettings::IniFormat);
        QCOMPARE(entry.value(QStringLiteral("Desktop Entry/Name")), QVariant(QStringLiteral("Orvelle")));

        QSignalSpy raise(m_nowPlaying.get(), &NowPlaying::raiseRequested);
        QSignalSpy quit(m_nowPlaying.get(), &NowPlaying::quitRequested);
        observer.call(rootInterface, QStringLiteral("Raise"), {});
        QCOMPARE(raise.size(), 1);
        QCOMPARE(quit.size(), 0);
        observer.call(rootInterface, QStringLiteral("Quit"), {});
        QCOMPARE(quit.size(), 1);
    }

    // A real song decoded by mpv (to the null output) is what playerctl shows.
    void playingSongOverMpv() {
        const Track tone = song(QStringLiteral("tone.mp3"), "A Long Tone", "The Oscillators", "Sine Waves");
        QVERIFY(fixtures::makeAudio(tone.url.toLocalFile(), 30));
        m_nowPlaying.reset();
        startEngine(MpvAudioPlayer::factory());
        m_engine->setQueue({tone});
        m_engine->play();
        QVERIFY(m_engine->isPlaying());

        const QString shown = playerctl({QStringLiteral("metadata")});
        for (const char* field : {"A Long Tone", "The Oscillators", "Sine Waves"})
            QVERIFY2(shown.contains(QLatin1String(field)), qPrintable(shown));
        const qlonglong length =
            playerctl({QStringLiteral("metadata"), QStringLiteral("mpris:length")}).toLongLong();
        QVERIFY2(length > 29500000 && length < 30500000, qPrintable(QString::number(length)));
        QCOMPARE(playerctl({QStringLiteral("status")}), QStringLiteral("Playing"));

        QSignalSpy ticks(m_engine.get(), &PlayerEngine::currentTimeChanged);
        QVERIFY(ticks.wait());
        QVERIFY(playerctl({QStringLiteral("position")}).toDouble() > 0);
        playerctl({QStringLiteral("pause")});
        QTRY_VERIFY(!m_engine->isPlaying());
        QCOMPARE(playerctl({QStringLiteral("status")}), QStringLiteral("Paused"));
    }

    // Without a session bus the player plays on and nothing complains. Runs in a copy of this program
    // whose bus address leads nowhere, since the bus connection of a process is made once.
    void runsWithoutSessionBus() {
        if (qEnvironmentVariableIsSet(noBusChild)) {
            QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
            startEngine(m_backend.factory());
            QCOMPARE(m_nowPlaying->serviceName(), QString());
            m_engine->setQueue(m_tracks);
            m_engine->playTrack(m_tracks[1].id);
            m_engine->seek(20);
            m_engine->next();
            QCOMPARE(m_engine->currentIndex(), 2);
            QVERIFY(m_engine->isPlaying());
            return;
        }
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(noBusChild), QStringLiteral("1"));
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                           QStringLiteral("unix:path=") + m_dir->filePath(QStringLiteral("no-bus")));
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("runsWithoutSessionBus")});
        QVERIFY(child.waitForFinished(60000));
        const QByteArray output = child.readAllStandardOutput() + child.readAllStandardError();
        QVERIFY2(child.exitCode() == 0, output.constData());
        QVERIFY2(output.contains("PASS   : MprisTest::runsWithoutSessionBus()"), output.constData());
    }
};

QTEST_GUILESS_MAIN(MprisTest)
#include "mpris_test.moc"

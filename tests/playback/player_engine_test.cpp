// The engine's rules (order, repeat, shuffle, failures, preferences) over a scripted audio player.
#include "playback/NowPlayingPublisher.h"
#include "playback/PlayerEngine.h"

#include "support/FakeAudioPlayer.h"
#include "support/ScratchHome.h"

#include <QHash>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

namespace {

using fixtures::FakeAudioPlayer;

// One line per publication: "s0 playing, rate 1, at 0 s", or "cleared".
struct RecordingPublisher : NowPlayingPublisher {
    QStringList log;
    void publish(const NowPlayingInfo& info, NowPlayingState state) override {
        log << QString("%1 %2, rate %3, at %4 s")
                   .arg(info.title, state == NowPlayingState::Playing ? "playing" : "paused")
                   .arg(info.rate)
                   .arg(info.elapsed);
    }
    void clear() override { log << "cleared"; }
};

} // namespace

class PlayerEngineTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<fixtures::ScratchHome> m_home; // fresh for every test function
    fixtures::FakeAudioBackend m_backend;
    RecordingPublisher m_publisher;
    QRandomGenerator m_random{20240611};
    std::unique_ptr<PlayerEngine> m_engine;

    // Songs "s0" … named after their row; 'm' in `kinds` leaves the file absent, 'u' makes it unreadable.
    QList<Track> makeQueue(const QString& kinds) {
        QList<Track> tracks;
        for (qsizetype i = 0; i < kinds.size(); ++i) {
            const QString path = m_home->dir.filePath(QString("s%1.mp3").arg(i));
            if (kinds[i] == 'u')
                m_backend.unreadable.insert(path, "The file isn't in a format Orvelle can play.");
            tracks.append(fixtures::trackAt(path, QString("s%1").arg(i), kinds[i] != 'm'));
        }
        return tracks;
    }

    // The song, whether it plays (engine and player agreeing), the player's position and the message:
    // "2 playing at 0 s", "4 not playing, no player: <message>".
    QString state() const {
        const bool playing = m_engine->isPlaying();
        QString text = QString::number(m_engine->currentIndex()) + (playing ? " playing" : " not playing");
        if (const FakeAudioPlayer* player = m_backend.current)
            text +=
                player->isPlaying() == playing ? QString(" at %1 s").arg(player->m_time) : ", out of step";
        else
            text += ", no player";
        if (!m_engine->playbackError().isNull())
            text += ": " + m_engine->playbackError();
        return text;
    }

    PlayerEngine& engine() { return *m_engine; }
    FakeAudioPlayer& player() { return *m_backend.current; }
    void newEngine() {
        m_engine = std::make_unique<PlayerEngine>(&m_home->settings, m_backend.factory());
        m_engine->setRandomGenerator(&m_random);
        m_engine->setNowPlayingPublisher(&m_publisher);
    }
    // A queue of `count` playable songs, the song at `index` playing.
    void playing(int count, int index) {
        engine().setQueue(makeQueue(QString(count, 'o')));
        engine().playTrackAt(index);
    }

private slots:
    void init() {
        m_engine.reset();
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_backend = {};
        m_publisher = {};
        newEngine();
    }

    void flow_data() {
        QTest::addColumn<QString>("queue"); // o plays, m missing, u unreadable
        QTest::addColumn<RepeatMode>("mode");
        QTest::addColumn<int>("start"); // the song started, its player this far in; -1: play() from nothing
        QTest::addColumn<double>("position");
        // then "ends", "ends badly", "next", "previous", "seek:" + seconds, "decode:" + sentence, or ""
        // (nothing)
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("expected");

        const auto last = [](const char* name, const char* action, RepeatMode mode, const QString& expected) {
            QTest::addRow("%s", name) << "ooo" << mode << 2 << 42.0 << action << expected;
        };
        last("repeat off: paused at its start", "ends", RepeatMode::Off, "2 not playing at 0 s");
        last("repeat all: wraps", "ends", RepeatMode::All, "0 playing at 0 s");
        last("repeat one: again", "ends", RepeatMode::One, "2 playing at 0 s");
        last("repeat one, ended badly: moves on", "ends badly", RepeatMode::One, "2 not playing at 0 s");
        last("Next, repeat off: wraps", "next", RepeatMode::Off, "0 playing at 0 s");
        last("seek past the end", "seek:500", RepeatMode::Off, "2 playing at 100 s");
        last("repeat one, decode error: moves on", "decode:The sound output couldn't be started.",
             RepeatMode::One, "2 not playing at 0 s: The sound output couldn't be started.");
        const auto previous = [](const char* name, int start, double position, const char* expected) {
            QTest::addRow("%s", name)
                << "ooo" << RepeatMode::Off << start << position << "previous" << expected;
        };
        previous("previous at 3.0 s: previous song", 1, 3.0, "0 playing at 0 s");
        previous("previous at 3.01 s: restart", 1, 3.01, "1 playing at 0 s");
        previous("previous on the first song: the last", 0, 1.0, "2 playing at 0 s");
        const auto play = [](const char* name, const char* queue, const char* action,
                             const QString& expected) {
            QTest::addRow("%s", name) << queue << RepeatMode::Off << -1 << 0.0 << action << expected;
        };
        const QString failed = " not playing, no player: ";
        play("five failures in a row stop", "mmumuo", "",
             "4" + failed + "Stopped \u2014 several files in a row couldn't be played.");
        // The decode error after the start does not count either.
        play("a start resets the count", "mmmmommmmo", "decode:", "9 playing at 0 s");
        play("unreadable last song", "ou",
             "decode:", "1" + failed + "Can't play s1: The file isn't in a format Orvelle can play.");
    }

    void flow() {
        QFETCH(QString, queue);
        QFETCH(RepeatMode, mode);
        QFETCH(int, start);
        QFETCH(double, position);
        QFETCH(QString, action);
        engine().setRepeatMode(mode);
        engine().setQueue(makeQueue(queue));
        if (start < 0)
            engine().play();
        else
            engine().playTrackAt(start);
        if (m_backend.current)
            player().m_time = position;

        if (action == "next")
            engine().next();
        else if (action == "previous")
            engine().previous();
        else if (action.startsWith("seek:"))
            engine().seek(action.mid(5).toDouble());
        else if (action.startsWith("decode:"))
            emit player().decodeError(action.mid(7));
        else if (!action.isEmpty())
            emit player().finished(action == "ends");
        QTEST(state(), "expected");
    }

    void shuffle() {
        playing(8, 5);
        engine().setShuffling(true);
        const QList<int> order = engine().playOrder();
        QCOMPARE(order.first(), 5);
        QCOMPARE(m_backend.opened, 1); // not interrupted
        engine().next();
        QCOMPARE(engine().currentIndex(), order.at(1));

        // Choosing a song continues from its place in the order, which is not redrawn.
        engine().playTrack(engine().queue().at(order.at(4)).id);
        engine().next();
        QCOMPARE(engine().playOrder(), order);
        QCOMPARE(engine().currentIndex(), order.at(5));

        engine().setShuffling(false);
        QCOMPARE(engine().playOrder(), QList<int>({0, 1, 2, 3, 4, 5, 6, 7}));
        QCOMPARE(engine().orderPosition(), order.at(5));

        // Next past the end keeps the order, unless repeating all draws a new one.
        engine().setShuffling(true);
        const QList<int> before = engine().playOrder();
        for (RepeatMode mode : {RepeatMode::Off, RepeatMode::All}) {
            engine().setRepeatMode(mode);
            engine().playTrackAt(engine().playOrder().last());
            engine().next();
            QCOMPARE(engine().playOrder() == before, mode == RepeatMode::Off);
            QCOMPARE(engine().currentIndex(), engine().playOrder().first());
        }

        // 6000 draws of a three-song order: each of the six orders should come up about 1000 times.
        const QList<Track> three = makeQueue("ooo");
        QHash<QList<int>, int> counts;
        for (int i = 0; i < 6000; ++i) {
            engine().setQueue(three);
            ++counts[engine().playOrder()];
        }
        QCOMPARE(counts.size(), 6);
        for (int count : std::as_const(counts))
            QVERIFY2(count > 880 && count < 1120, qPrintable(QString::number(count)));
    }

    // An opening superseded by another song, a pause or the song's removal starts nothing when its answer
    // comes.
    void opening() {
        m_backend.deferred = true;
        QList<Track> tracks = makeQueue("oooo");
        engine().setQueue(tracks);
        engine().playTrackAt(0);
        engine().playTrackAt(1);
        m_backend.answer(1);
        QTRY_COMPARE(state(), "1 playing at 0 s");
        m_backend.answer(0);
        QCoreApplication::processEvents();
        QVERIFY(!m_backend.current); // taken by nobody

        engine().playTrackAt(2);
        engine().pause();
        m_backend.answer();
        QCoreApplication::processEvents();
        QCOMPARE(state(), "2 not playing, no player");
        engine().play();
        m_backend.answer();
        QTRY_COMPARE(state(), "2 playing at 0 s");

        engine().playTrackAt(3);
        engine().setQueue(tracks.mid(0, 3));
        m_backend.answer();
        QCoreApplication::processEvents();
        QCOMPARE(state(), "-1 not playing, no player");
    }

    void setQueueFollowsTheCurrentSong() {
        QList<Track> tracks = makeQueue("oooooo");
        engine().setQueue(tracks);
        engine().playTrackAt(1);
        tracks.move(1, 5);
        tracks[5].setTitle("renamed");
        engine().setQueue(tracks);
        QCOMPARE(state(), "5 playing at 0 s");
        QCOMPARE(m_backend.opened, 1); // undisturbed
        QCOMPARE(engine().currentTrack()->title(), "renamed");
        QCOMPARE(engine().orderPosition(), 5);

        tracks.removeAt(5);
        engine().setQueue(tracks);
        QCOMPARE(state(), "-1 not playing, no player");
        QCOMPARE(m_publisher.log.last(), "cleared");
    }

    // A song that fails to start is what the desktop shows, paused, not the song before it; Play tries it
    // again.
    void aFailedStart() {
        const QList<Track> tracks = makeQueue("om");
        engine().setQueue(tracks);
        engine().playTrackAt(0);
        engine().next();
        QCOMPARE(m_publisher.log.last(), "s1 paused, rate 0, at 0 s");
        QCOMPARE(state(), "1 not playing, no player: s1 isn't where the playlist says it is.");
        QVERIFY(QFile(tracks[1].url().toLocalFile()).open(QIODevice::WriteOnly));
        engine().togglePlayPause();
        QCOMPARE(state(), "1 playing at 0 s");
    }

    // Now playing is published at events only: the ticker moves the position without republishing.
    void nowPlayingAtEventsOnly() {
        playing(2, 0);
        player().m_time = 4;
        QTRY_COMPARE(engine().currentTime(), 4.0);
        engine().pause();
        engine().seek(20);
        engine().togglePlayPause();
        engine().next();
        QCOMPARE(m_publisher.log, QStringList({"s0 playing, rate 1, at 0 s", "s0 paused, rate 0, at 4 s",
                                               "s0 paused, rate 0, at 20 s", "s0 playing, rate 1, at 20 s",
                                               "s1 playing, rate 1, at 0 s"}));
    }

    void preferences() {
        const auto shown = [&] {
            return QString("%1 %2 ").arg(engine().volume(), 0, 'g', 3).arg(engine().isShuffling()) +
                   toString(engine().repeatMode());
        };
        QCOMPARE(shown(), "0.7 0 off");
        playing(1, 0);
        engine().setVolume(0.95f);
        engine().adjustVolume(0.1f);
        QCOMPARE(player().m_volume, 1.0f);
        engine().setShuffling(true);
        engine().setRepeatMode(RepeatMode::One);

        // Read at the next start as stored: the volume unclamped, an unknown repeat mode as off.
        using Stored = std::tuple<QVariant, QVariant, QString>;
        for (const auto& [volume, repeat, expected] :
             {Stored{{}, {}, "1 1 one"}, Stored{1.5, "all", "1.5 1 all"},
              Stored{"loud", "One", "0.7 1 off"}}) {
            if (volume.isValid()) {
                m_home->settings.setValue("player.volume", volume);
                m_home->settings.setValue("player.repeatMode", repeat);
            }
            newEngine();
            QCOMPARE(shown(), expected);
        }
    }
};

QTEST_GUILESS_MAIN(PlayerEngineTest)
#include "player_engine_test.moc"

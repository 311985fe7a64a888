// The engine's rules (order, repeat, shuffle, failures, preferences) over a scripted audio player.
#include "playback/NowPlayingPublisher.h"
#include "playback/PlayerEngine.h"

#include "support/FakeAudioPlayer.h"

#include <QFile>
#include <QHash>
#include <QPointer>
#include <QRandomGenerator>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <numeric>

namespace {

using fixtures::FakeAudioPlayer;

struct RecordingPublisher : NowPlayingPublisher {
    QList<std::pair<NowPlayingInfo, NowPlayingState>> published;
    int clears = 0;
    void publish(const NowPlayingInfo& info, NowPlayingState state) override {
        published.append({info, state});
    }
    void clear() override { ++clears; }
};

QList<int> sorted(QList<int> order) {
    std::sort(order.begin(), order.end());
    return order;
}

QList<int> identity(int count) {
    QList<int> order(count);
    std::iota(order.begin(), order.end(), 0);
    return order;
}

} // namespace

class PlayerEngineTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir; // fresh for every test function
    std::unique_ptr<QSettings> m_settings;
    fixtures::FakeAudioBackend m_backend;
    std::unique_ptr<PlayerEngine> m_engine;
    QRandomGenerator m_random{20240611};

    // Songs "s0" … named after their row; 'm' in `kinds` leaves the file absent, 'u' makes it unreadable.
    QList<Track> makeQueue(const QString& kinds) {
        QList<Track> tracks;
        for (qsizetype i = 0; i < kinds.size(); ++i) {
            const QString path = m_dir->filePath(QStringLiteral("s%1.mp3").arg(i));
            if (kinds[i] != QLatin1Char('m'))
                QFile(path).open(QIODevice::WriteOnly);
            if (kinds[i] == QLatin1Char('u'))
                m_backend.unreadable.insert(path,
                                            QStringLiteral("The file isn't in a format Orvelle can play."));
            Track track;
            track.id = QUuid::createUuid();
            track.url = QUrl::fromLocalFile(path);
            track.title = QStringLiteral("s%1").arg(i);
            tracks.append(track);
        }
        return tracks;
    }

    PlayerEngine& engine() { return *m_engine; }
    void newEngine() {
        m_engine = std::make_unique<PlayerEngine>(m_settings.get(), m_backend.factory());
        m_engine->setRandomGenerator(&m_random);
    }
    // A queue of `count` playable songs, the song at `index` playing.
    void playing(int count, int index) {
        engine().setQueue(makeQueue(QString(count, QLatin1Char('o'))));
        engine().playTrackAt(index);
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_settings = std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("settings.ini")),
                                                 QSettings::IniFormat);
        m_backend = {};
        newEngine();
    }

    void cleanup() {
        m_engine.reset();
        m_settings.reset();
    }

    void endOfLastSong_data() {
        QTest::addColumn<RepeatMode>("mode");
        QTest::addColumn<bool>("userNext"); // Next pressed instead of the song ending by itself
        QTest::addColumn<bool>("successfully");
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<bool>("expectedPlaying"); // and reopened

        QTest::addRow("repeat off: paused at its start") << RepeatMode::Off << false << true << 2 << false;
        QTest::addRow("repeat all: wraps") << RepeatMode::All << false << true << 0 << true;
        QTest::addRow("repeat one: again") << RepeatMode::One << false << true << 2 << true;
        QTest::addRow("repeat one, ended badly: moves on") << RepeatMode::One << false << false << 2 << false;
        QTest::addRow("Next, repeat off: wraps") << RepeatMode::Off << true << true << 0 << true;
    }

    void endOfLastSong() {
        QFETCH(RepeatMode, mode);
        QFETCH(bool, userNext);
        QFETCH(bool, successfully);
        QFETCH(int, expectedIndex);
        QFETCH(bool, expectedPlaying);
        engine().setRepeatMode(mode);
        playing(3, 2);
        m_backend.current->m_time = 42;
        const qsizetype opensBefore = m_backend.opened.size();

        if (userNext)
            engine().next();
        else
            m_backend.current->end(successfully);

        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(engine().isPlaying(), expectedPlaying);
        QCOMPARE(m_backend.opened.size() - opensBefore, expectedPlaying ? 1 : 0);
        QVERIFY(engine().hasAudioPlayer());
        QCOMPARE(m_backend.current->isPlaying(), expectedPlaying);
        QCOMPARE(m_backend.current->m_time, 0.0);
        QCOMPARE(engine().currentTime(), 0.0);
    }

    void previous_data() {
        QTest::addColumn<int>("startIndex");
        QTest::addColumn<double>("position");
        QTest::addColumn<int>("expectedIndex");

        QTest::addRow("at 3.0 s: previous song") << 1 << 3.0 << 0;
        QTest::addRow("at 3.01 s: restart") << 1 << 3.01 << 1;
        QTest::addRow("first song: goes to the last") << 0 << 1.0 << 2;
    }

    void previous() {
        QFETCH(int, startIndex);
        QFETCH(double, position);
        QFETCH(int, expectedIndex);
        playing(3, startIndex);
        m_backend.current->m_time = position;
        const QPointer<FakeAudioPlayer> before = m_backend.current;

        engine().previous();

        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(before.isNull(), expectedIndex != startIndex); // a restart keeps the player
        QCOMPARE(m_backend.current->m_time, 0.0);
        QVERIFY(engine().isPlaying());
    }

    void shuffleOnPutsCurrentSongFirst() {
        playing(8, 5);
        const QPointer<FakeAudioPlayer> player = m_backend.current;

        engine().setShuffling(true);

        const QList<int> order = engine().playOrder();
        QCOMPARE(order.first(), 5);
        QCOMPARE(engine().orderPosition(), 0);
        QCOMPARE(sorted(order), identity(8));
        QVERIFY(player && engine().isPlaying()); // not interrupted
        engine().next();
        QCOMPARE(engine().currentIndex(), order.at(1));

        engine().setShuffling(false);
        QCOMPARE(engine().playOrder(), identity(8));
        QCOMPARE(engine().orderPosition(), order.at(1));
    }

    void shuffleIsUniform() {
        // 6000 draws of a three-song order: each of the six orders should come up about 1000 times.
        engine().setShuffling(true);
        const QList<Track> tracks = makeQueue(QStringLiteral("ooo"));
        QHash<QList<int>, int> counts;
        for (int i = 0; i < 6000; ++i) {
            engine().setQueue(tracks);
            ++counts[engine().playOrder()];
        }
        QCOMPARE(counts.size(), 6);
        for (int count : std::as_const(counts))
            QVERIFY2(count > 880 && count < 1120, qPrintable(QString::number(count)));
    }

    void wrapWithShuffle_data() {
        QTest::addColumn<RepeatMode>("mode");
        QTest::addColumn<bool>("redrawn");
        QTest::addRow("repeat all draws a new order") << RepeatMode::All << true;
        QTest::addRow("repeat off keeps the order") << RepeatMode::Off << false;
    }

    void wrapWithShuffle() {
        QFETCH(RepeatMode, mode);
        QFETCH(bool, redrawn);
        engine().setShuffling(true);
        engine().setRepeatMode(mode);
        engine().setQueue(makeQueue(QString(12, QLatin1Char('o'))));
        const QList<int> order = engine().playOrder();
        engine().playTrackAt(order.last());

        engine().next();

        QCOMPARE(engine().playOrder() != order, redrawn);
        QCOMPARE(engine().orderPosition(), 0);
        QCOMPARE(engine().currentIndex(), engine().playOrder().first());
    }

    void choosingASongKeepsTheShuffledOrder() {
        engine().setShuffling(true);
        engine().setQueue(makeQueue(QStringLiteral("oooooo")));
        const QList<int> order = engine().playOrder();

        engine().playTrack(engine().queue().at(order.at(3)).id);

        QCOMPARE(engine().playOrder(), order);
        QCOMPARE(engine().orderPosition(), 3);
        engine().next();
        QCOMPARE(engine().currentIndex(), order.at(4));
    }

    void failuresInARow_data() {
        QTest::addColumn<QString>("kinds"); // o plays, m missing, u unreadable; playing starts at song 0
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<QString>("expectedError");

        QTest::addRow("five in a row stop")
            << "mmumuo" << 4 << "Stopped \u2014 several files in a row couldn't be played.";
        QTest::addRow("a start resets the count") << "mmmmommmmo" << 9 << QString();
        QTest::addRow("missing last song") << "om" << 1 << "s1 isn't where the playlist says it is.";
        QTest::addRow("unreadable last song")
            << "ou" << 1 << "Can't play s1: The file isn't in a format Orvelle can play.";
    }

    void failuresInARow() {
        QFETCH(QString, kinds);
        QFETCH(int, expectedIndex);
        QFETCH(QString, expectedError);
        engine().setQueue(makeQueue(kinds));
        engine().play();
        // The first song that plays ends by itself, and the failures after it follow.
        if (m_backend.current && m_backend.current->isPlaying())
            m_backend.current->end(true);

        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(engine().isPlaying(), expectedError.isNull());
        QCOMPARE(engine().hasAudioPlayer(), expectedError.isNull());
        QCOMPARE(engine().playbackError(), expectedError);
        QCOMPARE(engine().playbackError().isNull(), expectedError.isNull());
    }

    void decodeErrorMovesOn() {
        engine().setQueue(makeQueue(QStringLiteral("oo")));
        engine().play();
        m_backend.current->failDecoding(QString());
        QCOMPARE(engine().currentIndex(), 1);
        QVERIFY(engine().isPlaying());

        m_backend.current->failDecoding(QStringLiteral("The sound output couldn't be started."));
        QCOMPARE(engine().currentIndex(), 1);
        QVERIFY(!engine().isPlaying());
        QCOMPARE(engine().playbackError(), QStringLiteral("The sound output couldn't be started."));
    }

    void playAfterAFailureRetriesTheSong() {
        engine().play(); // an empty queue: nothing to do
        engine().togglePlayPause();
        QCOMPARE(engine().currentIndex(), -1);
        QVERIFY(m_backend.opened.isEmpty());

        const QList<Track> tracks = makeQueue(QStringLiteral("m"));
        engine().setQueue(tracks);
        engine().play();
        QCOMPARE(engine().currentIndex(), 0);
        QVERIFY(!engine().hasAudioPlayer());

        QVERIFY(QFile(tracks.first().url.toLocalFile()).open(QIODevice::WriteOnly));
        engine().togglePlayPause();
        QVERIFY(engine().isPlaying());
        QVERIFY(engine().playbackError().isNull());
    }

    void setQueueKeepsTheCurrentSong_data() {
        QTest::addColumn<bool>("shuffling");
        QTest::addRow("in order") << false;
        QTest::addRow("shuffled: current song first") << true;
    }

    void setQueueKeepsTheCurrentSong() {
        QFETCH(bool, shuffling);
        engine().setShuffling(shuffling);
        QList<Track> tracks = makeQueue(QStringLiteral("oooooo"));
        engine().setQueue(tracks);
        engine().playTrackAt(1);
        const QPointer<FakeAudioPlayer> player = m_backend.current;
        QSignalSpy indexChanged(&engine(), &PlayerEngine::currentIndexChanged);

        tracks.move(1, 5);
        tracks[5].title = QStringLiteral("renamed");
        engine().setQueue(tracks);

        QCOMPARE(engine().currentIndex(), 5);
        QCOMPARE(indexChanged.count(), 1);
        QCOMPARE(engine().currentTrack()->title, QStringLiteral("renamed"));
        QVERIFY(player && engine().isPlaying());
        QCOMPARE(sorted(engine().playOrder()), identity(6));
        QCOMPARE(engine().playOrder().at(engine().orderPosition()), 5);
        QCOMPARE(engine().orderPosition(), shuffling ? 0 : 5);
    }

    void setQueueWithoutTheCurrentSongStops() {
        RecordingPublisher publisher;
        engine().setNowPlayingPublisher(&publisher);
        QList<Track> tracks = makeQueue(QStringLiteral("ooo"));
        engine().setQueue(tracks);
        engine().playTrackAt(1);

        tracks.removeAt(1);
        engine().setQueue(tracks);

        QCOMPARE(engine().currentIndex(), -1);
        QVERIFY(!engine().isPlaying());
        QVERIFY(m_backend.current.isNull()); // the player was dropped
        QCOMPARE(engine().duration(), 0.0);
        QCOMPARE(publisher.clears, 1);
        engine().setNowPlayingPublisher(nullptr);
    }

    void skipClamps_data() {
        QTest::addColumn<double>("from");
        QTest::addColumn<double>("skipBy");
        QTest::addColumn<double>("expected");
        QTest::addRow("forward") << 30.0 << 10.0 << 40.0;
        QTest::addRow("back past the start") << 5.0 << -10.0 << 0.0;
        QTest::addRow("forward past the end") << 95.0 << 10.0 << 100.0;
    }

    void skipClamps() {
        QFETCH(double, from);
        QFETCH(double, skipBy);
        QFETCH(double, expected);
        playing(1, 0);
        engine().seek(from);
        QSignalSpy seeked(&engine(), &PlayerEngine::seeked);

        engine().skip(skipBy);

        QCOMPARE(m_backend.current->m_time, expected);
        QCOMPARE(engine().currentTime(), expected);
        QCOMPARE(seeked.count(), 1);
    }

    // Now playing is published at events only: the ticker moves the position without republishing.
    void nowPlayingAndTicker() {
        RecordingPublisher publisher;
        engine().setNowPlayingPublisher(&publisher);
        playing(2, 0);
        const auto last = [&] { return publisher.published.last(); };
        QCOMPARE(publisher.published.size(), 1);
        QCOMPARE(last().second, NowPlayingState::Playing);
        QCOMPARE(last().first.rate, 1.0);
        QCOMPARE(last().first.artist, QStringLiteral("Unknown artist"));

        m_backend.current->m_time = 4;
        QTRY_COMPARE(engine().currentTime(), 4.0);
        QCOMPARE(publisher.published.size(), 1);

        engine().pause();
        QCOMPARE(publisher.published.size(), 2);
        QCOMPARE(last().second, NowPlayingState::Paused);
        QCOMPARE(last().first.rate, 0.0);
        QCOMPARE(last().first.elapsed, 4.0);
        QSignalSpy timeChanged(&engine(), &PlayerEngine::currentTimeChanged);
        m_backend.current->m_time = 9;
        QVERIFY(!timeChanged.wait(500)); // no ticker while paused

        engine().seek(20);
        engine().togglePlayPause();
        engine().next();
        QCOMPARE(publisher.published.size(), 5);
        QCOMPARE(last().first.trackId, engine().queue().at(1).id);
        engine().setNowPlayingPublisher(nullptr);
    }

    void volume_data() {
        QTest::addColumn<float>("start");
        QTest::addColumn<float>("delta");
        QTest::addColumn<float>("expected");
        QTest::addRow("up to the top") << 0.95f << 0.1f << 1.0f;
        QTest::addRow("down to silence") << 0.05f << -0.1f << 0.0f;
    }

    void volume() {
        QFETCH(float, start);
        QFETCH(float, delta);
        QFETCH(float, expected);
        playing(1, 0);
        engine().setVolume(start);

        engine().adjustVolume(delta);

        QCOMPARE(engine().volume(), expected);
        QCOMPARE(m_backend.current->m_volume, expected);
        QCOMPARE(m_settings->value(QStringLiteral("player.volume")).toFloat(), expected);
    }

    void preferencesSurviveARestart() {
        QCOMPARE(engine().volume(), 0.7f);
        QVERIFY(m_settings->allKeys().isEmpty()); // reading them writes nothing
        engine().setVolume(0.25f);
        engine().setShuffling(true);
        engine().setRepeatMode(RepeatMode::One);
        QCOMPARE(m_settings->value(QStringLiteral("player.repeatMode")).toString(), QStringLiteral("one"));

        newEngine();

        QCOMPARE(engine().volume(), 0.25f);
        QVERIFY(engine().isShuffling());
        QCOMPARE(toString(engine().repeatMode()), toString(RepeatMode::One));
    }

    void storedPreferencesAreRead() {
        const auto restartWith = [&](const QVariant& volume, const QString& repeat) {
            m_settings->setValue(QStringLiteral("player.volume"), volume);
            m_settings->setValue(QStringLiteral("player.repeatMode"), repeat);
            newEngine();
        };
        restartWith(1.5, QStringLiteral("all"));
        QCOMPARE(engine().volume(), 1.5f);                                    // not clamped
        QCOMPARE(toString(engine().repeatMode()), toString(RepeatMode::All)); // QTest cannot print RepeatMode
        restartWith(QStringLiteral("loud"), QStringLiteral("One"));
        QCOMPARE(engine().volume(), 0.7f);
        QCOMPARE(toString(engine().repeatMode()), toString(RepeatMode::Off));
    }
};

QTEST_GUILESS_MAIN(PlayerEngineTest)
#include "player_engine_test.moc"

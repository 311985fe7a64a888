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

namespace {

using fixtures::FakeAudioBackend;
using fixtures::FakeAudioPlayer;

struct RecordingPublisher : NowPlayingPublisher {
    QList<std::pair<NowPlayingInfo, NowPlayingState>> published;
    int clears = 0;
    void publish(const NowPlayingInfo& info, NowPlayingState state) override {
        published.append({info, state});
    }
    void clear() override { ++clears; }
};

const QString stopMessage = QStringLiteral("Stopped \u2014 several files in a row couldn't be played.");

} // namespace

class PlayerEngineTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir; // fresh for every test function
    std::unique_ptr<QSettings> m_settings;
    FakeAudioBackend m_backend;
    std::unique_ptr<PlayerEngine> m_engine;
    QRandomGenerator m_random{20240611};

    // Songs "s0" … named after their row; 'm' in `kinds` leaves the file absent, 'u' makes it unreadable.
    QList<Track> makeQueue(const QString& kinds) {
        QList<Track> tracks;
        for (qsizetype i = 0; i < kinds.size(); ++i) {
            const QString path = m_dir->filePath(QStringLiteral("s%1.mp3").arg(i));
            if (kinds[i] != QLatin1Char('m')) {
                QFile file(path);
                file.open(QIODevice::WriteOnly);
            }
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
    PlayerEngine& newEngine() {
        m_engine = std::make_unique<PlayerEngine>(m_settings.get(), m_backend.factory());
        m_engine->setRandomGenerator(&m_random);
        return *m_engine;
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_settings = std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("settings.ini")),
                                                 QSettings::IniFormat);
        m_backend = FakeAudioBackend();
        newEngine();
    }

    void cleanup() {
        m_engine.reset();
        m_settings.reset();
    }

    void endOfLastSong_data() {
        QTest::addColumn<int>("songs");
        QTest::addColumn<RepeatMode>("mode");
        QTest::addColumn<bool>("userNext"); // Next pressed instead of the song ending by itself
        QTest::addColumn<bool>("successfully");
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<bool>("expectedPlaying");
        QTest::addColumn<int>("expectedOpens"); // files opened after the first start

        QTest::addRow("one song, repeat off: paused at its start")
            << 1 << RepeatMode::Off << false << true << 0 << false << 0;
        QTest::addRow("one song, repeat all: again")
            << 1 << RepeatMode::All << false << true << 0 << true << 1;
        QTest::addRow("one song, repeat one: again")
            << 1 << RepeatMode::One << false << true << 0 << true << 1;
        QTest::addRow("last song, repeat off: stays")
            << 3 << RepeatMode::Off << false << true << 2 << false << 0;
        QTest::addRow("last song, repeat all: wraps")
            << 3 << RepeatMode::All << false << true << 0 << true << 1;
        QTest::addRow("last song, repeat one: again")
            << 3 << RepeatMode::One << false << true << 2 << true << 1;
        QTest::addRow("repeat one, ended badly: moves on")
            << 3 << RepeatMode::One << false << false << 2 << false << 0;
        QTest::addRow("Next, repeat off: wraps") << 3 << RepeatMode::Off << true << true << 0 << true << 1;
        QTest::addRow("Next, repeat one: wraps") << 3 << RepeatMode::One << true << true << 0 << true << 1;
        QTest::addRow("Next, repeat all: wraps") << 3 << RepeatMode::All << true << true << 0 << true << 1;
    }

    void endOfLastSong() {
        QFETCH(int, songs);
        QFETCH(RepeatMode, mode);
        QFETCH(bool, userNext);
        QFETCH(bool, successfully);
        engine().setQueue(makeQueue(QString(songs, QLatin1Char('o'))));
        engine().setRepeatMode(mode);
        engine().playTrackAt(songs - 1);
        QVERIFY(engine().isPlaying());
        m_backend.current->m_time = 42;
        const qsizetype opensBefore = m_backend.opened.size();

        if (userNext)
            engine().next();
        else
            m_backend.current->end(successfully);

        QFETCH(int, expectedIndex);
        QFETCH(bool, expectedPlaying);
        QFETCH(int, expectedOpens);
        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(engine().isPlaying(), expectedPlaying);
        QCOMPARE(m_backend.opened.size() - opensBefore, expectedOpens);
        QVERIFY(engine().hasAudioPlayer());
        QCOMPARE(m_backend.current->m_time, 0.0);
        QCOMPARE(m_backend.current->isPlaying(), expectedPlaying);
        QCOMPARE(engine().currentTime(), 0.0);
    }

    void previous_data() {
        QTest::addColumn<int>("startIndex");
        QTest::addColumn<double>("position");
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<bool>("reopened");

        QTest::addRow("at 3.0 s: previous song") << 1 << 3.0 << 0 << true;
        QTest::addRow("at 3.01 s: restart") << 1 << 3.01 << 1 << false;
        QTest::addRow("first song: goes to the last") << 0 << 1.0 << 2 << true;
    }

    void previous() {
        QFETCH(int, startIndex);
        QFETCH(double, position);
        engine().setQueue(makeQueue(QStringLiteral("ooo")));
        engine().playTrackAt(startIndex);
        m_backend.current->m_time = position;
        const QPointer<FakeAudioPlayer> before = m_backend.current;

        engine().previous();

        QFETCH(int, expectedIndex);
        QFETCH(bool, reopened);
        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(before.isNull(), reopened);
        QCOMPARE(m_backend.current->m_time, 0.0);
        QVERIFY(engine().isPlaying());
    }

    void shuffleOnPutsCurrentSongFirst() {
        engine().setQueue(makeQueue(QStringLiteral("oooooooo")));
        engine().playTrackAt(5);
        const QPointer<FakeAudioPlayer> playing = m_backend.current;

        engine().setShuffling(true);

        const QList<int> order = engine().playOrder();
        QCOMPARE(order.first(), 5);
        QCOMPARE(engine().orderPosition(), 0);
        QList<int> sorted = order;
        std::sort(sorted.begin(), sorted.end());
        QCOMPARE(sorted, QList<int>({0, 1, 2, 3, 4, 5, 6, 7}));
        QVERIFY(playing); // not interrupted
        QVERIFY(engine().isPlaying());

        engine().next();
        QCOMPARE(engine().currentIndex(), order.at(1));

        engine().setShuffling(false);
        QCOMPARE(engine().playOrder(), QList<int>({0, 1, 2, 3, 4, 5, 6, 7}));
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
        QTest::addRow("repeat one keeps the order") << RepeatMode::One << false;
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
        const Track chosen = engine().queue().at(order.at(3));

        engine().playTrack(chosen.id);

        QCOMPARE(engine().playOrder(), order);
        QCOMPARE(engine().orderPosition(), 3);
        engine().next();
        QCOMPARE(engine().currentIndex(), order.at(4));
    }

    void failuresInARow_data() {
        QTest::addColumn<QString>("kinds"); // o plays, m missing, u unreadable; playing starts at song 0
        QTest::addColumn<int>("expectedIndex");
        QTest::addColumn<bool>("expectedPlaying");
        QTest::addColumn<QString>("expectedError");

        QTest::addRow("five in a row stop") << "mmumuo" << 4 << false << stopMessage;
        QTest::addRow("four then a playable song") << "mmmmo" << 4 << true << QString();
        QTest::addRow("missing last song") << "om" << 1 << false << "s1 isn't where the playlist says it is.";
        QTest::addRow("unreadable last song")
            << "ou" << 1 << false << "Can't play s1: The file isn't in a format Orvelle can play.";
    }

    void failuresInARow() {
        QFETCH(QString, kinds);
        engine().setQueue(makeQueue(kinds));
        engine().play();
        if (kinds.startsWith(QLatin1Char('o')))
            m_backend.current->end(true);

        QFETCH(int, expectedIndex);
        QFETCH(bool, expectedPlaying);
        QFETCH(QString, expectedError);
        QCOMPARE(engine().currentIndex(), expectedIndex);
        QCOMPARE(engine().isPlaying(), expectedPlaying);
        QCOMPARE(engine().hasAudioPlayer(), expectedPlaying);
        QCOMPARE(engine().playbackError(), expectedError);
        QCOMPARE(engine().playbackError().isNull(), expectedError.isNull());
    }

    void aStartResetsTheFailureCount() {
        engine().setQueue(makeQueue(QStringLiteral("mmmmommmmo")));
        engine().play();
        QCOMPARE(engine().currentIndex(), 4);
        m_backend.current->end(true);
        QCOMPARE(engine().currentIndex(), 9);
        QVERIFY(engine().isPlaying());
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
        const QList<Track> tracks = makeQueue(QStringLiteral("m"));
        engine().setQueue(tracks);
        engine().play();
        QCOMPARE(engine().currentIndex(), 0);
        QVERIFY(!engine().hasAudioPlayer());

        QFile file(tracks.first().url.toLocalFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        engine().togglePlayPause();
        QVERIFY(engine().isPlaying());
        QVERIFY(engine().playbackError().isNull());
    }

    void playWithAnEmptyQueueDoesNothing() {
        engine().play();
        engine().togglePlayPause();
        QCOMPARE(engine().currentIndex(), -1);
        QVERIFY(!engine().isPlaying());
        QVERIFY(m_backend.opened.isEmpty());
    }

    void setQueueKeepsTheCurrentSong() {
        QList<Track> tracks = makeQueue(QStringLiteral("oooo"));
        engine().setQueue(tracks);
        engine().playTrackAt(1);
        const QPointer<FakeAudioPlayer> playing = m_backend.current;
        QSignalSpy indexChanged(&engine(), &PlayerEngine::currentIndexChanged);

        tracks.move(1, 3);
        tracks[3].title = QStringLiteral("renamed");
        engine().setQueue(tracks);

        QCOMPARE(engine().currentIndex(), 3);
        QCOMPARE(indexChanged.count(), 1);
        QCOMPARE(engine().currentTrack()->title, QStringLiteral("renamed"));
        QVERIFY(playing);
        QVERIFY(engine().isPlaying());
        engine().next();
        QCOMPARE(engine().currentIndex(), 0); // the order follows the new list
    }

    void setQueueWithoutTheCurrentSongStops() {
        RecordingPublisher publisher;
        engine().setNowPlayingPublisher(&publisher);
        QList<Track> tracks = makeQueue(QStringLiteral("ooo"));
        engine().setQueue(tracks);
        engine().playTrackAt(1);
        m_backend.current->m_time = 12;

        tracks.removeAt(1);
        engine().setQueue(tracks);

        QCOMPARE(engine().currentIndex(), -1);
        QVERIFY(!engine().currentTrack());
        QVERIFY(!engine().isPlaying());
        QVERIFY(!engine().hasAudioPlayer());
        QVERIFY(m_backend.current.isNull());
        QCOMPARE(engine().duration(), 0.0);
        QCOMPARE(publisher.clears, 1);
        engine().setNowPlayingPublisher(nullptr);
    }

    void shuffledSetQueuePutsTheCurrentSongFirst() {
        engine().setShuffling(true);
        QList<Track> tracks = makeQueue(QStringLiteral("oooooo"));
        engine().setQueue(tracks);
        engine().playTrackAt(2);

        tracks.move(2, 5);
        engine().setQueue(tracks);

        QList<int> order = engine().playOrder();
        QCOMPARE(order.first(), 5);
        QCOMPARE(engine().orderPosition(), 0);
        std::sort(order.begin(), order.end());
        QCOMPARE(order, QList<int>({0, 1, 2, 3, 4, 5}));
    }

    void seekClampsAndSkips_data() {
        QTest::addColumn<double>("from");
        QTest::addColumn<double>("skipBy");
        QTest::addColumn<double>("expected");
        QTest::addRow("forward") << 30.0 << 10.0 << 40.0;
        QTest::addRow("back") << 30.0 << -10.0 << 20.0;
        QTest::addRow("back past the start") << 5.0 << -10.0 << 0.0;
        QTest::addRow("forward past the end") << 95.0 << 10.0 << 100.0;
    }

    void seekClampsAndSkips() {
        QFETCH(double, from);
        QFETCH(double, skipBy);
        engine().setQueue(makeQueue(QStringLiteral("o")));
        engine().play();
        engine().seek(from);
        QSignalSpy seeked(&engine(), &PlayerEngine::seeked);

        engine().skip(skipBy);

        QFETCH(double, expected);
        QCOMPARE(m_backend.current->m_time, expected);
        QCOMPARE(engine().currentTime(), expected);
        QCOMPARE(seeked.count(), 1);
    }

    void tickerFollowsThePlayerOnlyWhilePlaying() {
        engine().setQueue(makeQueue(QStringLiteral("o")));
        engine().play();
        m_backend.current->m_time = 7.5;
        QTRY_COMPARE(engine().currentTime(), 7.5);

        engine().pause();
        QSignalSpy timeChanged(&engine(), &PlayerEngine::currentTimeChanged);
        m_backend.current->m_time = 9;
        QVERIFY(!timeChanged.wait(500));
    }

    void nowPlayingAtEventsOnly() {
        RecordingPublisher publisher;
        engine().setNowPlayingPublisher(&publisher);
        engine().setQueue(makeQueue(QStringLiteral("oo")));
        engine().play();
        QCOMPARE(publisher.published.size(), 1);
        QCOMPARE(publisher.published.last().second, NowPlayingState::Playing);
        QCOMPARE(publisher.published.last().first.rate, 1.0);
        QCOMPARE(publisher.published.last().first.artist, QStringLiteral("Unknown artist"));

        m_backend.current->m_time = 4;
        QTRY_COMPARE(engine().currentTime(), 4.0);
        QCOMPARE(publisher.published.size(), 1); // ticks publish nothing

        engine().pause();
        QCOMPARE(publisher.published.size(), 2);
        QCOMPARE(publisher.published.last().second, NowPlayingState::Paused);
        QCOMPARE(publisher.published.last().first.rate, 0.0);
        QCOMPARE(publisher.published.last().first.elapsed, 4.0);

        engine().seek(20);
        engine().togglePlayPause();
        engine().next();
        QCOMPARE(publisher.published.size(), 5);
        QCOMPARE(publisher.published.last().first.trackId, engine().queue().at(1).id);
        engine().setNowPlayingPublisher(nullptr);
    }

    void volume_data() {
        QTest::addColumn<float>("start");
        QTest::addColumn<float>("delta");
        QTest::addColumn<float>("expected");
        QTest::addRow("up to the top") << 0.95f << 0.1f << 1.0f;
        QTest::addRow("down to silence") << 0.05f << -0.1f << 0.0f;
        QTest::addRow("within range") << 0.5f << 0.1f << 0.6f;
    }

    void volume() {
        QFETCH(float, start);
        QFETCH(float, delta);
        QFETCH(float, expected);
        engine().setQueue(makeQueue(QStringLiteral("o")));
        engine().play();
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
        QCOMPARE(toString(engine().repeatMode()), toString(RepeatMode::One)); // QTest cannot print RepeatMode
    }

    void storedPreferencesAreRead_data() {
        QTest::addColumn<QVariant>("volume");
        QTest::addColumn<QVariant>("repeat");
        QTest::addColumn<float>("expectedVolume");
        QTest::addColumn<RepeatMode>("expectedRepeat");
        QTest::addRow("absent") << QVariant() << QVariant() << 0.7f << RepeatMode::Off;
        QTest::addRow("loud volume is not clamped")
            << QVariant(1.5) << QVariant("all") << 1.5f << RepeatMode::All;
        QTest::addRow("unknown values")
            << QVariant("loud") << QVariant("sometimes") << 0.7f << RepeatMode::Off;
        QTest::addRow("repeat is case-sensitive")
            << QVariant(0.2) << QVariant("One") << 0.2f << RepeatMode::Off;
    }

    void storedPreferencesAreRead() {
        QFETCH(QVariant, volume);
        QFETCH(QVariant, repeat);
        if (volume.isValid())
            m_settings->setValue(QStringLiteral("player.volume"), volume);
        if (repeat.isValid())
            m_settings->setValue(QStringLiteral("player.repeatMode"), repeat);

        newEngine();

        QFETCH(float, expectedVolume);
        QFETCH(RepeatMode, expectedRepeat);
        QCOMPARE(engine().volume(), expectedVolume);
        QCOMPARE(toString(engine().repeatMode()), toString(expectedRepeat)); // QTest cannot print RepeatMode
    }
};

QTEST_GUILESS_MAIN(PlayerEngineTest)
#include "player_engine_test.moc"

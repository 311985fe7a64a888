// The libmpv player on generated files, alone and under the engine, with the null audio output.
#include "playback/MpvAudioPlayer.h"
#include "playback/PlayerEngine.h"

#include "support/FakeAudioPlayer.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/ScratchHome.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>

class MpvAudioPlayerTest : public QObject {
    Q_OBJECT

private:
    fixtures::ScratchHome m_home;

    QString audio(const QString& name, double seconds) {
        const QString path = m_home.dir.filePath(name);
        return QFile::exists(path) || fixtures::makeAudio(path, seconds) ? path : QString();
    }
    static AudioPlayerCreation open(const QString& path) {
        return MpvAudioPlayer::open(QUrl::fromLocalFile(path));
    }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("ORVELLE_AUDIO_OUTPUT"))
            qputenv("ORVELLE_AUDIO_OUTPUT", "null");
        if (!fixtures::haveTool(QStringLiteral("ffmpeg")))
            QSKIP("ffmpeg is needed to make the test songs");
    }

    void opensEveryKindOfFile_data() {
        QTest::addColumn<QString>("name");
        for (const char* name : {"tone.mp3", "tone.m4a", "tone.flac", "tone.aiff"})
            QTest::addRow("%s", name) << QString::fromLatin1(name);
    }

    void opensEveryKindOfFile() {
        QFETCH(QString, name);
        const AudioPlayerCreation created = open(audio(name, 2.0));
        QVERIFY2(created.player && created.error.isEmpty(), qPrintable(created.error));
        QVERIFY2(qAbs(created.player->duration() - 2.0) < 0.1,
                 qPrintable(QString::number(created.player->duration())));
        QCOMPARE(created.player->currentTime(), 0.0);
        QVERIFY(!created.player->isPlaying()); // opened paused
    }

    void refusesWhatItCannotPlay_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("expected");
        QTest::addRow("FIFO named .mp3") << "fifo"
                                         << "It isn't a regular file.";
        QTest::addRow("sound output that cannot start") << "output"
                                                        << "The sound output couldn't be started.";
        QTest::addRow("opening takes too long") << "slow"
                                                << "The file took too long to open.";
    }

    void refusesWhatItCannotPlay() {
        QFETCH(QString, kind);
        QFETCH(QString, expected);
        const QString path = kind == QLatin1String("fifo") ? m_home.dir.filePath(QStringLiteral("fifo.mp3"))
                                                           : audio(QStringLiteral("tone.mp3"), 2.0);
        AudioPlayerCreation created;
        if (kind == QLatin1String("fifo")) {
            QVERIFY(::mkfifo(QFile::encodeName(path).constData(), 0600) == 0);
            created = open(path);
        } else if (kind == QLatin1String("output")) {
            // mpv's pcm output writes audiodump.wav in the working folder: a folder of that name stops it.
            const QString before = QDir::currentPath();
            const QByteArray output = qgetenv("ORVELLE_AUDIO_OUTPUT");
            QVERIFY(QDir(m_home.dir.path()).mkpath(QStringLiteral("audiodump.wav")));
            QDir::setCurrent(m_home.dir.path());
            qputenv("ORVELLE_AUDIO_OUTPUT", "pcm");
            created = open(path);
            qputenv("ORVELLE_AUDIO_OUTPUT", output);
            QDir::setCurrent(before);
        } else {
            created = MpvAudioPlayer::open(QUrl::fromLocalFile(path), std::chrono::milliseconds(0));
        }
        QVERIFY(!created.player);
        QCOMPARE(created.error, expected);
    }

    void seekClampsToTheDuration() {
        PlayerEngine engine(&m_home.settings, MpvAudioPlayer::factory());
        engine.setQueue({fixtures::trackAt(audio(QStringLiteral("three.mp3"), 3.0))});
        engine.play();
        QVERIFY(engine.isPlaying());
        const double duration = engine.duration();
        QVERIFY(duration > 2.9 && duration < 3.1);

        engine.seek(-5);
        QCOMPARE(engine.currentTime(), 0.0);
        engine.seek(1.5);
        QCOMPARE(engine.currentTime(), 1.5);
        QSignalSpy paused(&engine, &PlayerEngine::isPlayingChanged);
        engine.seek(500);
        QCOMPARE(engine.currentTime(), duration);

        // The end of the only song leaves it loaded, paused and rewound.
        QVERIFY(paused.wait(5000));
        QVERIFY(!engine.isPlaying() && engine.hasAudioPlayer());
        QCOMPARE(engine.currentTime(), 0.0);
        QCOMPARE(engine.currentIndex(), 0);
    }

    // A missing file and a text file named .mp3 give their sentences; the next song plays to its end and
    // the one after it starts.
    void unplayableSongsAreSkippedAndSongsPlayOn() {
        const QString notes = m_home.dir.filePath(QStringLiteral("notes.mp3"));
        QVERIFY(fixtures::writeFile(notes, "Track 1: an overture\nTrack 2: a reprise\n"));
        const QString first = audio(QStringLiteral("first.mp3"), 1.0);
        const QString second = audio(QStringLiteral("second.flac"), 1.0);
        PlayerEngine engine(&m_home.settings, MpvAudioPlayer::factory());
        QStringList shown;
        connect(&engine, &PlayerEngine::playbackErrorChanged, this,
                [&] { shown.append(engine.playbackError()); });
        engine.setQueue({fixtures::trackAt(m_home.dir.filePath(QStringLiteral("gone.mp3"))),
                         fixtures::trackAt(notes), fixtures::trackAt(first), fixtures::trackAt(second)});
        QSignalSpy indexChanged(&engine, &PlayerEngine::currentIndexChanged);

        engine.play();
        QCOMPARE(shown,
                 QStringList({"gone isn't where the playlist says it is.",
                              "Can't play notes: The file isn't in a format Orvelle can play.", QString()}));
        QCOMPARE(engine.currentIndex(), 2);
        QTRY_VERIFY_WITH_TIMEOUT(engine.currentTime() > 0.3, 5000); // the ticker follows real decoding
        QTRY_COMPARE_WITH_TIMEOUT(engine.currentIndex(), 3, 5000);
        QVERIFY(engine.isPlaying());
        QCOMPARE(indexChanged.count(), 4);
    }

    void pausedPlayerStandsStill() {
        AudioPlayerCreation created = open(audio(QStringLiteral("three.mp3"), 3.0));
        QVERIFY(created.player);
        AudioPlayer& player = *created.player;
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.currentTime() > 0.2, 5000);
        player.pause();
        QVERIFY(!player.isPlaying());
        const double at = player.currentTime();
        QSignalSpy finished(&player, &AudioPlayer::finished);
        QVERIFY(!finished.wait(500));
        // What was already decoded may still be counted just after pausing; half a second of play is not.
        QVERIFY2(player.currentTime() - at < 0.05, qPrintable(QString::number(player.currentTime() - at)));
    }

    void aDroppedPlayerReportsNothing() {
        // Players dropped with their end about to be reported; what mpv still sends them must not arrive
        // anywhere while the next player plays to its end (the sanitizers watch the dead ones).
        const QString path = audio(QStringLiteral("short.mp3"), 0.5);
        for (int i = 0; i < 3; ++i) {
            AudioPlayerCreation created = open(path);
            QVERIFY(created.player);
            created.player->setCurrentTime(0.49);
            created.player->play();
        }
        AudioPlayerCreation last = open(path);
        QVERIFY(last.player);
        QSignalSpy finished(last.player.get(), &AudioPlayer::finished);
        last.player->play();
        QVERIFY(finished.wait(5000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.first().first().toBool(), true);
        QVERIFY(!last.player->isPlaying());
    }
};

QTEST_GUILESS_MAIN(MpvAudioPlayerTest)
#include "mpv_audio_player_test.moc"

// The libmpv player on generated files, with the null audio output. (The store's test plays it under the
// engine.)
#include "playback/MpvAudioPlayer.h"

#include "support/Await.h"
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
    static AudioPlayerCreation open(const QString& path, int timeoutMs = 2000) {
        QFuture<AudioPlayerCreation> opening =
            MpvAudioPlayer::open(QUrl::fromLocalFile(path), std::chrono::milliseconds(timeoutMs));
        fixtures::await(opening);
        return opening.takeResult();
    }

private slots:
    void initTestCase() {
        if (!fixtures::haveTool("ffmpeg"))
            QSKIP("ffmpeg is needed to make the test songs");
        // mpv's pcm output writes audiodump.wav in the working folder: a folder of that name stops it.
        QVERIFY(QDir(m_home.dir.path()).mkpath("audiodump.wav") && QDir::setCurrent(m_home.dir.path()));
    }

    void init() { qputenv("ORVELLE_AUDIO_OUTPUT", "null"); }

    void opening_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("timeout");   // ms
        QTest::addColumn<QString>("error"); // empty: opened, 2 s long, paused at its start
        for (const char* name : {"tone.mp3", "tone.m4a", "tone.flac", "tone.aiff"})
            QTest::addRow("%s", name) << name << QByteArray("null") << 2000 << QString();
        QTest::addRow("text named .mp3")
            << "notes.mp3" << QByteArray("null") << 2000 << "The file isn't in a format Orvelle can play.";
        QTest::addRow("FIFO named .mp3")
            << "fifo.mp3" << QByteArray("null") << 2000 << "It isn't a regular file.";
        // mpv loads it and waits at its end for an output that never comes.
        QTest::addRow("not a single sample")
            << "silent.wav" << QByteArray("null") << 2000 << "The file has no sound in it.";
        QTest::addRow("sound output that cannot start")
            << "tone.mp3" << QByteArray("pcm") << 2000 << "The sound output couldn't be started.";
        QTest::addRow("opening takes too long")
            << "tone.mp3" << QByteArray("null") << 0 << "The file took too long to open.";
    }

    void opening() {
        QFETCH(QString, file);
        QFETCH(QByteArray, output);
        QFETCH(int, timeout);
        const QString path = file.startsWith("tone") ? audio(file, 2.0) : m_home.dir.filePath(file);
        QVERIFY(file != "notes.mp3" || fixtures::writeFile(path, "Track 1: an overture\n"));
        QVERIFY(file != "fifo.mp3" || ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0);
        QVERIFY(file != "silent.wav" || fixtures::makeAudio(path, 1.0, {"-t", "0"}));
        qputenv("ORVELLE_AUDIO_OUTPUT", output);
        const AudioPlayerCreation created = open(path, timeout);
        QTEST(created.error, "error");
        QCOMPARE(created.player == nullptr, !created.error.isEmpty());
        if (created.player) {
            QVERIFY2(qAbs(created.player->duration() - 2.0) < 0.1,
                     qPrintable(QString::number(created.player->duration())));
            QCOMPARE(created.player->currentTime(), 0.0);
            QVERIFY(!created.player->isPlaying());
        }
    }

    // Players dropped with their end about to be reported: what mpv still sends them must not arrive anywhere
    // (the sanitizers watch the dead ones) while the next player pauses, stands still and plays to its end.
    void pauseAndEnd() {
        const QString path = audio("short.mp3", 1.0);
        for (int i = 0; i < 3; ++i) {
            AudioPlayerCreation created = open(path);
            QVERIFY(created.player);
            created.player->prepareToPlay();
            created.player->setCurrentTime(0.99);
            created.player->play();
        }
        AudioPlayerCreation created = open(path);
        QVERIFY(created.player);
        AudioPlayer& player = *created.player;
        player.prepareToPlay();
        QSignalSpy finished(&player, &AudioPlayer::finished);
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.currentTime() > 0.2, 5000);
        player.pause();
        // A loaded machine may still count what was already decoded just after pausing: let that settle,
        // then half a second must pass without play.
        QVERIFY(!finished.wait(300));
        const double at = player.currentTime();
        QVERIFY(!finished.wait(500));
        QVERIFY2(!player.isPlaying() && player.currentTime() - at < 0.05,
                 qPrintable(QString::number(player.currentTime() - at)));
        player.setCurrentTime(0.9); // reads back at once, before mpv has moved
        QCOMPARE(player.currentTime(), 0.9);
        player.play();
        QVERIFY(finished.wait(5000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.first().first().toBool(), true);
        QVERIFY(!player.isPlaying());
    }
};

QTEST_GUILESS_MAIN(MpvAudioPlayerTest)
#include "mpv_audio_player_test.moc"

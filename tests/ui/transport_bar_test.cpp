// The transport bar over a real engine and a scripted audio player: what it shows and what its controls do.
#include "playback/PlayerEngine.h"
#include "ui/CoverThumbnails.h"
#include "ui/TransportBar.h"

#include "support/FakeAudioPlayer.h"
#include "support/ScratchHome.h"

#include <QLabel>
#include <QSlider>
#include <QTest>
#include <QToolButton>

class TransportBarTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<fixtures::ScratchHome> m_home;
    fixtures::FakeAudioBackend m_backend;
    std::unique_ptr<PlayerEngine> m_engine;
    std::unique_ptr<CoverThumbnails> m_covers;
    std::unique_ptr<TransportBar> m_bar;

    template <typename T = QWidget> T* part(const char* name) { return m_bar->findChild<T*>(name); }
    QString text(const char* name) { return part<QLabel>(name)->text(); }

    void playSong(const QString& title = "Song", double duration = 100) {
        m_backend.duration = duration;
        Track track = fixtures::trackAt(m_home->dir.filePath("Some File.mp3"), title, true);
        m_engine->setQueue({track});
        m_engine->playTrack(track.id);
    }

private slots:
    void init() {
        m_home = std::make_unique<fixtures::ScratchHome>();
        m_engine = std::make_unique<PlayerEngine>(&m_home->settings, m_backend.factory());
        m_covers = std::make_unique<CoverThumbnails>();
        m_bar = std::make_unique<TransportBar>(*m_engine, *m_covers);
    }
    void cleanup() {
        m_bar.reset();
        m_engine.reset();
    }

    // With nothing to play the controls are off; a song without tags shows its file name and "Unknown
    // artist", and its times.
    void showsTheSong() {
        for (const char* control : {"shuffle", "previous", "playPause", "next", "repeat", "position"})
            QVERIFY2(!part(control)->isEnabled(), control);
        QCOMPARE(text("title") + "|" + text("subtitle") + "|" + text("total"),
                 "Nothing playing|Add music to get started|\u2014");
        playSong({}, 3725);
        QCOMPARE(text("title") + "|" + text("subtitle"), "Some File|Unknown artist");
        QCOMPARE(text("elapsed") + "|" + text("total"), "0:00|1:02:05");
        QVERIFY(part("position")->isEnabled() && part("playPause")->isEnabled());
        QCOMPARE(part<QToolButton>("playPause")->toolTip(), "Pause");
        m_engine->pause();
        QCOMPARE(part<QToolButton>("playPause")->toolTip(), "Play");
    }

    // Dragging moves the slider and the elapsed label only; the engine seeks once, on release.
    void scrubbingSeeksOnRelease() {
        playSong();
        m_backend.current->m_time = 10;
        auto* slider = part<QSlider>("position");
        slider->setSliderDown(true);
        slider->setSliderPosition(42000);
        slider->setSliderPosition(61000);
        QCOMPARE(m_backend.current->m_time, 10.0);
        QCOMPARE(text("elapsed"), "1:01");
        m_engine->seeked(10); // a tick of the engine meanwhile does not move the slider back
        QCOMPARE(slider->sliderPosition(), 61000);
        slider->setSliderDown(false);
        QCOMPARE(m_backend.current->m_time, 61.0);
    }

    // The mute button and the volume slider, both ways.
    void mute() {
        playSong();
        m_engine->setVolume(0.8f);
        auto* mute = part<QToolButton>("mute");
        mute->click();
        QCOMPARE(m_engine->volume(), 0.0f);
        mute->click();
        QCOMPARE(m_engine->volume(), 0.5f); // the earlier 0.8 is not remembered
        QCOMPARE(part<QSlider>("volume")->value(), 50);
        part<QSlider>("volume")->setValue(30); // and the slider sets the engine's
        QCOMPARE(m_engine->volume(), 0.3f);
    }

    // Off → all → one → off, each step kept in the preferences.
    void repeatCycle() {
        playSong();
        auto* repeat = part<QToolButton>("repeat");
        QStringList seen;
        for (int i = 0; i < 3; ++i) {
            repeat->click();
            seen << m_home->settings.value("player.repeatMode").toString() + "/" + repeat->toolTip();
        }
        QCOMPARE(seen, (QStringList{"all/Repeat all", "one/Repeat one", "off/Repeat off"}));
    }

    void shuffle() {
        playSong();
        part<QToolButton>("shuffle")->click();
        QVERIFY(m_engine->isShuffling());
    }
};

QTEST_MAIN(TransportBarTest)
#include "transport_bar_test.moc"

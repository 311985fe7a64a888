#pragma once

#include <QWidget>

class CoverThumbnails;
class CoverView;
class PlayerEngine;
class QLabel;
class QSlider;
class QToolButton;

// The strip of playback controls along the main window: cover and names, transport buttons over the
// position slider, mute and volume. It observes the engine and calls its operations; the only state of
// its own is the position slider's drag, during which the engine is not touched until release.
//
// Its controls carry object names (shuffle, previous, playPause, next, repeat, elapsed, position, total,
// mute, volume, title, subtitle) and accessible names from their help texts.
class TransportBar : public QWidget {
    Q_OBJECT
public:
    TransportBar(PlayerEngine& engine, CoverThumbnails& covers, QWidget* parent = nullptr);

    // Padding before the cover, so that the bar lines up with the song list's titles.
    void setLeadingInset(int inset);

    // The speaker icon's freedesktop name for a volume of 0 ... 1.
    static QString volumeIconName(float volume);

private:
    void showSong();
    void showPlaying();
    void showTime();
    void showDuration();
    void showVolume();
    void showShuffle();
    void showRepeat();
    void updateEnabled();
    double displayedTime() const;

    PlayerEngine& m_engine;
    bool m_isScrubbing = false;
    double m_scrubTime = 0; // seconds

    CoverView* m_cover;
    QLabel* m_title;
    QLabel* m_subtitle;
    QToolButton* m_shuffle;
    QToolButton* m_previous;
    QToolButton* m_playPause;
    QToolButton* m_next;
    QToolButton* m_repeat;
    QLabel* m_elapsed;
    QSlider* m_position;
    QLabel* m_total;
    QToolButton* m_mute;
    QSlider* m_volume;
};

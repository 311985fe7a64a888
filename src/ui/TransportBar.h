#pragma once

#include <QWidget>

class CoverThumbnails;
class PlayerEngine;

// The strip of playback controls along the main window: cover and names, transport buttons over the
// position slider, mute and volume. It observes the engine and calls its operations.
class TransportBar : public QWidget {
    Q_OBJECT
public:
    TransportBar(PlayerEngine& engine, CoverThumbnails& covers, QWidget* parent = nullptr);

    // Padding before the cover, so that the bar lines up with the song list's titles.
    void setLeadingInset(int inset);
};

#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <array>

class QPainter;
class QRectF;

// The three bars on the current song. While animating, bar i runs between 3 and heights[i] and back,
// easing in and out over durations[i]; when the animation stops the bars ease back to 3 within 0.18 s.
// Frames are produced only while the bars move and the song's row can be seen; otherwise it costs nothing.
class PlayingIndicator : public QObject {
    Q_OBJECT
public:
    static constexpr std::array<double, 3> heights{7, 13, 9};           // device-independent pixels
    static constexpr std::array<double, 3> durations{0.52, 0.38, 0.62}; // seconds
    static constexpr double restingHeight = 3;
    static constexpr double settleSeconds = 0.18;

    explicit PlayingIndicator(QObject* parent = nullptr);

    // The bars' heights `seconds` after the animation started.
    static std::array<double, 3> heightsAt(double seconds);

    // Whether the current song plays.
    void setAnimating(bool animating);
    bool isAnimating() const { return m_animating; }
    // Whether its row can be seen (the list shown, the row within the scrolled view).
    void setVisible(bool visible);
    // Frames are being produced.
    bool isRunning() const { return m_frames.isActive(); }

    std::array<double, 3> currentHeights() const;
    // "Now playing" while animating, "Paused" otherwise.
    QString accessibleLabel() const;
    // The bars, centred in `rect`, in `color`.
    void paint(QPainter& painter, const QRectF& rect, const QColor& color) const;

signals:
    // The bars moved: repaint them.
    void frame();

private:
    void updateFrames();
    bool isSettling() const;

    bool m_animating = false;
    bool m_visible = false;
    QElapsedTimer m_clock; // since the animation started, or since it stopped while settling
    std::array<double, 3> m_settleFrom{};
    QTimer m_frames;
};

#include "ui/PlayingIndicator.h"

#include <QEasingCurve>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace {

constexpr double barWidth = 2.5;
constexpr double barGap = 2;
constexpr double frameHeight = 14;
constexpr int frameIntervalMs = 33;

} // namespace

PlayingIndicator::PlayingIndicator(QObject* parent)
    : QObject(parent) {
    m_frames.setInterval(frameIntervalMs);
    connect(&m_frames, &QTimer::timeout, this, [this] {
        emit frame();
        if (!m_animating && !isSettling())
            updateFrames();
    });
}

std::array<double, 3> PlayingIndicator::heightsAt(double seconds) {
    static const QEasingCurve easeInOut(QEasingCurve::InOutQuad);
    std::array<double, 3> result{};
    for (size_t i = 0; i < result.size(); ++i) {
        // Up over one period and back down over the next, repeating.
        const double periods = seconds / durations[i];
        const double within = periods - std::floor(periods);
        const double progress = std::fmod(std::floor(periods), 2.0) == 0 ? within : 1 - within;
        result[i] = restingHeight + (heights[i] - restingHeight) * easeInOut.valueForProgress(progress);
    }
    return result;
}

void PlayingIndicator::setAnimating(bool animating) {
    if (animating == m_animating)
        return;
    if (!animating && m_clock.isValid())
        m_settleFrom = currentHeights();
    m_animating = animating;
    m_clock.start();
    updateFrames();
    emit frame();
}

void PlayingIndicator::setVisible(bool visible) {
    if (visible == m_visible)
        return;
    m_visible = visible;
    updateFrames();
}

bool PlayingIndicator::isSettling() const {
    return !m_animating && m_clock.isValid() && m_clock.elapsed() < settleSeconds * 1000;
}

void PlayingIndicator::updateFrames() {
    if (m_visible && (m_animating || isSettling()))
        m_frames.start();
    else
        m_frames.stop();
}

std::array<double, 3> PlayingIndicator::currentHeights() const {
    if (m_animating)
        return heightsAt(m_clock.elapsed() / 1000.0);
    std::array<double, 3> result{restingHeight, restingHeight, restingHeight};
    if (isSettling()) {
        static const QEasingCurve easeOut(QEasingCurve::OutQuad);
        const double progress = easeOut.valueForProgress(m_clock.elapsed() / 1000.0 / settleSeconds);
        for (size_t i = 0; i < result.size(); ++i)
            result[i] = m_settleFrom[i] + (restingHeight - m_settleFrom[i]) * progress;
    }
    return result;
}

QString PlayingIndicator::accessibleLabel() const {
    return m_animating ? QStringLiteral("Now playing") : QStringLiteral("Paused");
}

void PlayingIndicator::paint(QPainter& painter, const QRectF& rect, const QColor& color) const {
    const std::array<double, 3> bars = currentHeights();
    const double width = bars.size() * barWidth + (bars.size() - 1) * barGap;
    const QRectF frame(rect.center().x() - width / 2, rect.center().y() - frameHeight / 2, width,
                       frameHeight);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    for (size_t i = 0; i < bars.size(); ++i) {
        const QRectF bar(frame.left() + i * (barWidth + barGap), frame.center().y() - bars[i] / 2, barWidth,
                         bars[i]);
        painter.drawRoundedRect(bar, barWidth / 2, barWidth / 2);
    }
    painter.restore();
}

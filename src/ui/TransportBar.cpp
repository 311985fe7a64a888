#include "ui/TransportBar.h"

#include "playback/PlayerEngine.h"
#include "ui/CoverThumbnails.h"
#include "ui/Icons.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QSlider>
#include <QToolButton>

#include <algorithm>

namespace {

constexpr int coverSide = 44;
constexpr int sliderScale = 1000; // the position slider counts milliseconds

QFont scaledFont(const QFont& base, qreal factor, QFont::Weight weight = QFont::Normal) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * factor);
    font.setWeight(weight);
    return font;
}

QToolButton* makeButton(QWidget* parent, const QString& name, const QString& help, int iconSide = 16) {
    auto* button = new QToolButton(parent);
    button->setObjectName(name);
    button->setAutoRaise(true);
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setIconSize(QSize(iconSide, iconSide));
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

QLabel* makeTimeLabel(QWidget* parent, const QString& name, Qt::Alignment alignment, const QFont& font) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setAlignment(alignment | Qt::AlignVCenter);
    label->setFont(font);
    label->setMinimumWidth(40);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

RepeatMode nextRepeatMode(RepeatMode mode) {
    switch (mode) {
    case RepeatMode::Off:
        return RepeatMode::All;
    case RepeatMode::All:
        return RepeatMode::One;
    case RepeatMode::One:
        break;
    }
    return RepeatMode::Off;
}

} // namespace

// The current song's cover in a rounded square with a soft shadow, or the placeholder note.
class CoverView : public QWidget {
public:
    CoverView(CoverThumbnails& covers, QWidget* parent)
        : QWidget(parent)
        , m_covers(covers) {
        setFixedSize(coverSide + 4, coverSide + 4);
        setAttribute(Qt::WA_TransparentForMouseEvents);
        connect(&covers, &CoverThumbnails::ready, this, qOverload<>(&QWidget::update));
    }

    void setTrack(const std::optional<Track>& track) {
        m_track = track;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF square(2, 1, coverSide, coverSide);
        QPainterPath rounded;
        rounded.addRoundedRect(square, 6, 6);
        painter.fillPath(rounded.translated(0, 1), QColor(0, 0, 0, 46)); // black at 18%, a point lower

        const qreal ratio = devicePixelRatioF();
        QPixmap cover;
        if (m_track)
            cover = m_covers.thumbnail(*m_track, (QSizeF(coverSide, coverSide) * ratio).toSize());
        painter.setClipPath(rounded);
        if (!cover.isNull()) {
            cover.setDevicePixelRatio(ratio);
            const QSizeF shown =
                cover.deviceIndependentSize().scaled(square.size(), Qt::KeepAspectRatioByExpanding);
            painter.drawPixmap(QRectF(square.center() - QPointF(shown.width(), shown.height()) / 2, shown),
                               cover, cover.rect());
            return;
        }
        QColor fill = palette().color(QPalette::WindowText);
        fill.setAlphaF(0.2);
        painter.fillRect(square, palette().color(QPalette::Window));
        painter.fillRect(square, fill);
        painter.setOpacity(0.6);
        Icons::named(QStringLiteral("audio-x-generic"))
            .paint(&painter, QRectF(square.center() - QPointF(10, 10), QSizeF(20, 20)).toRect());
    }

private:
    CoverThumbnails& m_covers;
    std::optional<Track> m_track;
};

TransportBar::TransportBar(PlayerEngine& engine, CoverThumbnails& covers, QWidget* parent)
    : QWidget(parent)
    , m_engine(engine) {
    setBackgroundRole(QPalette::Button);
    setAutoFillBackground(true);
    const QFont caption = scaledFont(font(), 0.85);

    auto* row = new QHBoxLayout(this);
    row->setSpacing(16);
    row->setContentsMargins(44, 12, 18, 12);

    // Left block: cover and names.
    auto* left = new QWidget(this);
    left->setMinimumWidth(170);
    left->setMaximumWidth(300);
    left->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    auto* leftRow = new QHBoxLayout(left);
    leftRow->setContentsMargins(0, 0, 0, 0);
    leftRow->setSpacing(10);
    m_cover = new CoverView(covers, left);
    leftRow->addWidget(m_cover);
    auto* names = new QVBoxLayout;
    names->setSpacing(2);
    m_title = new QLabel(left);
    m_title->setObjectName(QStringLiteral("title"));
    m_title->setFont(scaledFont(font(), 1.0, QFont::DemiBold));
    m_subtitle = new QLabel(left);
    m_subtitle->setObjectName(QStringLiteral("subtitle"));
    m_subtitle->setFont(caption);
    m_subtitle->setForegroundRole(QPalette::PlaceholderText);
    for (QLabel* label : {m_title, m_subtitle}) {
        label->setTextFormat(Qt::PlainText);
        label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        names->addWidget(label);
    }
    leftRow->addLayout(names, 1);
    row->addWidget(left, 240);

    // Middle block: the transport buttons over the position row.
    auto* middle = new QVBoxLayout;
    middle->setSpacing(2);
    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(18);
    m_shuffle = makeButton(this, QStringLiteral("shuffle"), QStringLiteral("Shuffle"));
    m_shuffle->setCheckable(true);
    m_shuffle->setIcon(Icons::named(QStringLiteral("media-playlist-shuffle")));
    m_previous = makeButton(this, QStringLiteral("previous"), QStringLiteral("Previous song"));
    m_previous->setIcon(Icons::named(QStringLiteral("media-skip-backward")));
    m_playPause = makeButton(this, QStringLiteral("playPause"), QStringLiteral("Play"), 20);
    m_playPause->setFixedSize(28 + 6, 28 + 6);
    m_next = makeButton(this, QStringLiteral("next"), QStringLiteral("Next song"));
    m_next->setIcon(Icons::named(QStringLiteral("media-skip-forward")));
    m_repeat = makeButton(this, QStringLiteral("repeat"), QStringLiteral("Repeat off"));
    m_repeat->setCheckable(true); // highlighted, in the accent colour, while repeating
    buttons->addStretch();
    for (QToolButton* button : {m_shuffle, m_previous, m_playPause, m_next, m_repeat})
        buttons->addWidget(button);
    buttons->addStretch();
    middle->addLayout(buttons);

    auto* positionRow = new QHBoxLayout;
    positionRow->setSpacing(8);
    m_elapsed = makeTimeLabel(this, QStringLiteral("elapsed"), Qt::AlignRight, caption);
    m_position = new QSlider(Qt::Horizontal, this);
    m_position->setObjectName(QStringLiteral("position"));
    m_position->setAccessibleName(QStringLiteral("Position"));
    m_total = makeTimeLabel(this, QStringLiteral("total"), Qt::AlignLeft, caption);
    positionRow->addWidget(m_elapsed);
    positionRow->addWidget(m_position, 1);
    positionRow->addWidget(m_total);
    middle->addLayout(positionRow);
    row->addLayout(middle, 1);

    // Right block: mute and volume.
    auto* right = new QWidget(this);
    right->setFixedWidth(130);
    right->setToolTip(QStringLiteral("Volume"));
    auto* rightRow = new QHBoxLayout(right);
    rightRow->setContentsMargins(0, 0, 0, 0);
    rightRow->setSpacing(6);
    m_mute = makeButton(right, QStringLiteral("mute"), QStringLiteral("Volume"));
    m_volume = new QSlider(Qt::Horizontal, right);
    m_volume->setObjectName(QStringLiteral("volume"));
    m_volume->setAccessibleName(QStringLiteral("Volume"));
    m_volume->setRange(0, 100);
    rightRow->addWidget(m_mute);
    rightRow->addWidget(m_volume, 1);
    row->addWidget(right);

    connect(m_shuffle, &QToolButton::clicked, this, [this](bool on) { m_engine.setShuffling(on); });
    connect(m_previous, &QToolButton::clicked, &m_engine, &PlayerEngine::previous);
    connect(m_playPause, &QToolButton::clicked, &m_engine, &PlayerEngine::togglePlayPause);
    connect(m_next, &QToolButton::clicked, this, [this] { m_engine.advance(1, true); });
    connect(m_repeat, &QToolButton::clicked, this,
            [this] { m_engine.setRepeatMode(nextRepeatMode(m_engine.repeatMode())); });
    connect(m_mute, &QToolButton::clicked, this,
            [this] { m_engine.setVolume(m_engine.volume() > 0 ? 0.0f : 0.5f); });
    connect(m_volume, &QSlider::valueChanged, this, [this](int value) {
        if (std::lround(m_engine.volume() * 100) != value)
            m_engine.setVolume(value / 100.0f);
    });

    // Scrubbing: the slider follows the drag, and the engine seeks only once it is let go.
    connect(m_position, &QSlider::sliderPressed, this, [this] {
        m_scrubTime = m_engine.currentTime();
        m_isScrubbing = true;
        showTime();
    });
    connect(m_position, &QSlider::sliderMoved, this, [this](int value) {
        m_scrubTime = double(value) / sliderScale;
        showTime();
    });
    connect(m_position, &QSlider::sliderReleased, this, [this] {
        m_engine.seek(m_scrubTime);
        m_isScrubbing = false;
        showTime();
    });
    // A click on the groove or a key press moves the slider in steps: that is a seek of its own.
    connect(m_position, &QSlider::actionTriggered, this, [this](int action) {
        if (action != QAbstractSlider::SliderMove && !m_isScrubbing)
            m_engine.seek(double(m_position->sliderPosition()) / sliderScale);
    });

    connect(&engine, &PlayerEngine::currentTrackChanged, this, &TransportBar::showSong);
    connect(&engine, &PlayerEngine::queueChanged, this, &TransportBar::updateEnabled);
    connect(&engine, &PlayerEngine::isPlayingChanged, this, &TransportBar::showPlaying);
    connect(&engine, &PlayerEngine::currentTimeChanged, this, &TransportBar::showTime);
    connect(&engine, &PlayerEngine::durationChanged, this, &TransportBar::showDuration);
    connect(&engine, &PlayerEngine::volumeChanged, this, &TransportBar::showVolume);
    connect(&engine, &PlayerEngine::isShufflingChanged, this, &TransportBar::showShuffle);
    connect(&engine, &PlayerEngine::repeatModeChanged, this, &TransportBar::showRepeat);
    showSong();
    showPlaying();
    showDuration();
    showVolume();
    showShuffle();
    showRepeat();
}

void TransportBar::setLeadingInset(int inset) {
    QMargins margins = layout()->contentsMargins();
    margins.setLeft(inset);
    layout()->setContentsMargins(margins);
}

QString TransportBar::volumeIconName(float volume) {
    if (volume < 0.01f)
        return QStringLiteral("audio-volume-muted");
    if (volume < 0.34f)
        return QStringLiteral("audio-volume-low");
    if (volume < 0.67f)
        return QStringLiteral("audio-volume-medium");
    return QStringLiteral("audio-volume-high");
}

void TransportBar::showSong() {
    const std::optional<Track> track = m_engine.currentTrack();
    m_cover->setTrack(track);
    m_title->setText(track ? displayTitle(*track) : QStringLiteral("Nothing playing"));
    m_title->setForegroundRole(track ? QPalette::WindowText : QPalette::PlaceholderText);
    m_subtitle->setText(track ? displayArtist(*track) : QStringLiteral("Add music to get started"));
    updateEnabled();
    showDuration();
}

void TransportBar::showPlaying() {
    const bool playing = m_engine.isPlaying();
    m_playPause->setIcon(Icons::named(playing ? QStringLiteral("media-playback-pause")
                                              : QStringLiteral("media-playback-start")));
    const QString help = playing ? QStringLiteral("Pause") : QStringLiteral("Play");
    m_playPause->setToolTip(help);
    m_playPause->setAccessibleName(help);
}

double TransportBar::displayedTime() const {
    return m_isScrubbing ? m_scrubTime : m_engine.currentTime();
}

void TransportBar::showTime() {
    const double time = displayedTime();
    m_elapsed->setText(formatTime(time));
    if (!m_isScrubbing) {
        const QSignalBlocker quiet(m_position);
        m_position->setValue(std::min<int>(std::lround(time * sliderScale), m_position->maximum()));
    }
}

void TransportBar::showDuration() {
    const double duration = m_engine.duration();
    {
        const QSignalBlocker quiet(m_position);
        m_position->setRange(0, std::lround(std::max(duration, 0.01) * sliderScale));
        m_position->setPageStep(std::max(1, m_position->maximum() / 10));
    }
    m_total->setText(duration > 0 ? formatTime(duration) : QStringLiteral("\u2014"));
    showTime();
}

void TransportBar::showVolume() {
    const float volume = m_engine.volume();
    m_mute->setIcon(Icons::named(volumeIconName(volume)));
    const QSignalBlocker quiet(m_volume);
    m_volume->setValue(std::lround(volume * 100));
}

void TransportBar::showShuffle() {
    m_shuffle->setChecked(m_engine.isShuffling());
}

void TransportBar::showRepeat() {
    const RepeatMode mode = m_engine.repeatMode();
    m_repeat->setIcon(Icons::named(mode == RepeatMode::One ? QStringLiteral("media-playlist-repeat-song")
                                                           : QStringLiteral("media-playlist-repeat")));
    m_repeat->setChecked(mode != RepeatMode::Off);
    const QString help = mode == RepeatMode::Off   ? QStringLiteral("Repeat off")
                         : mode == RepeatMode::All ? QStringLiteral("Repeat all")
                                                   : QStringLiteral("Repeat one");
    m_repeat->setToolTip(help);
    m_repeat->setAccessibleName(help);
}

void TransportBar::updateEnabled() {
    const bool hasQueue = !m_engine.queue().isEmpty();
    for (QToolButton* button : {m_shuffle, m_previous, m_playPause, m_next, m_repeat})
        button->setEnabled(hasQueue);
    const bool hasSong = m_engine.currentTrack().has_value();
    for (QWidget* widget : std::initializer_list<QWidget*>{m_elapsed, m_position, m_total})
        widget->setEnabled(hasSong);
}

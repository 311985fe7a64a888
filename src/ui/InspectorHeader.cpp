#include "ui/InspectorHeader.h"

#include "library/TrackArtwork.h"
#include "ui/InspectorModel.h"
#include "ui/TextStyles.h"
#include "ui/WhenReady.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>
#include <QtConcurrent>

using TextStyles::Font;
using TextStyles::Tone;

namespace {

constexpr int coverSize = 76;
constexpr int coverRadius = 6;

// A path keeps its end (the file and its folder) visible: it is cut at the head when too long.
class HeadElidedLabel : public QLabel {
public:
    HeadElidedLabel(const QString& text, QWidget* parent)
        : QLabel(parent)
        , m_full(text) {
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        setToolTip(text);
        setTextInteractionFlags(Qt::TextSelectableByMouse);
    }

protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        setText(fontMetrics().elidedText(m_full, Qt::ElideLeft, width()));
    }

private:
    QString m_full;
};

// The picture cropped to fill the square, at the screen's resolution; null when there is none or it does
// not decode.
QImage decodeCover(const Track& track, int devicePixels) {
    const std::optional<QByteArray> bytes = loadArtwork(track);
    QImage image;
    if (!bytes || !image.loadFromData(*bytes))
        return {};
    image =
        image.scaled(devicePixels, devicePixels, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    return image.copy((image.width() - devicePixels) / 2, (image.height() - devicePixels) / 2, devicePixels,
                      devicePixels);
}

// The cover with rounded corners, or the faint placeholder with a note when `image` is null.
QPixmap roundedCover(const QImage& image, const QWidget* widget) {
    QPixmap pixmap = TextStyles::canvas(widget, coverSize);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(0, 0, coverSize, coverSize), coverRadius, coverRadius);
    painter.setClipPath(clip);
    if (!image.isNull()) {
        painter.drawImage(QRectF(0, 0, coverSize, coverSize), image);
        return pixmap;
    }
    painter.fillRect(QRectF(0, 0, coverSize, coverSize), TextStyles::colour(widget, Tone::Quaternary));
    constexpr int note = 28;
    painter.drawPixmap((coverSize - note) / 2, (coverSize - note) / 2,
                       TextStyles::symbol(QStringLiteral("audio-x-generic"), note,
                                          TextStyles::colour(widget, Tone::Secondary),
                                          widget->devicePixelRatioF()));
    return pixmap;
}

QLabel* styledLabel(const QString& text, Font font, Tone tone, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    TextStyles::apply(label, font, tone);
    return label;
}

} // namespace

InspectorHeader::InspectorHeader(InspectorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    const Track& track = model.track();
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(18, 18, 18, 18);
    row->setSpacing(14);
    m_cover = new QLabel(this);
    m_cover->setFixedSize(coverSize, coverSize);
    m_cover->setPixmap(roundedCover({}, this));
    row->addWidget(m_cover, 0, Qt::AlignTop);

    auto* column = new QVBoxLayout;
    column->setSpacing(3);
    row->addLayout(column, 1);
    auto* name = styledLabel(track.url().fileName(), Font::Headline, Tone::Primary, this);
    name->setObjectName(QStringLiteral("fileName"));
    name->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(name);
    auto* facts = styledLabel({}, Font::Caption, Tone::Secondary, this);
    facts->setObjectName(QStringLiteral("facts"));
    facts->hide();
    column->addWidget(facts);
    connect(&model, &InspectorModel::factsChanged, facts, [facts, &model] {
        facts->setText(factsLine(*model.facts()));
        facts->show();
    });
    auto* path = new HeadElidedLabel(track.url().toLocalFile(), this);
    TextStyles::apply(path, Font::Caption2, Tone::Tertiary);
    column->addWidget(path);

    auto* artwork = new QHBoxLayout;
    artwork->setSpacing(4);
    const bool fromFolder = track.artworkSource().kind() == ArtworkSource::Kind::Folder;
    auto* source = styledLabel(track.artworkSource().label(), Font::Caption2, Tone::Secondary, this);
    auto* symbol = new QLabel(this);
    symbol->setPixmap(TextStyles::symbol(
        fromFolder ? QStringLiteral("folder") : QStringLiteral("image-x-generic"),
        source->fontMetrics().height(), TextStyles::colour(this, Tone::Secondary), devicePixelRatioF()));
    artwork->addWidget(symbol);
    artwork->addWidget(source, 1);
    column->addLayout(artwork);

    if (offersArtworkEmbedding(track)) {
        auto* embed = new QCheckBox(QStringLiteral("Copy this image into the file when saving"), this);
        embed->setObjectName(QStringLiteral("embedFolderArtwork"));
        TextStyles::apply(embed, Font::Caption);
        connect(embed, &QCheckBox::toggled, &model, &InspectorModel::setEmbedFolderArtwork);
        column->addWidget(embed);
    }
    column->addStretch();
    loadCover();
}

void InspectorHeader::loadCover() {
    const int devicePixels = qCeil(coverSize * devicePixelRatioF());
    whenReady(this, QtConcurrent::run(decodeCover, m_model.track(), devicePixels),
              [this](const QImage& image) {
                  if (!image.isNull())
                      m_cover->setPixmap(roundedCover(image, this));
              });
}

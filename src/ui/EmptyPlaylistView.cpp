#include "ui/EmptyPlaylistView.h"

#include "store/LibraryStore.h"
#include "ui/DropHighlight.h"
#include "ui/FileDialogs.h"
#include "ui/Icons.h"

#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr int illustrationSide = 64;

// The text colour at the secondary style's opacity.
void makeSecondary(QLabel& label) {
    QPalette palette = label.palette();
    QColor text = palette.color(QPalette::WindowText);
    text.setAlphaF(0.6);
    palette.setColor(QPalette::WindowText, text);
    label.setPalette(palette);
}

QLabel* centredLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText); // a search text is shown as typed, never as markup
    return label;
}

} // namespace

EmptyPlaylistView::EmptyPlaylistView(LibraryStore& store, const FileDialogs& dialogs, QWidget* parent)
    : QWidget(parent) {
    auto* illustration = new QLabel(this);
    illustration->setAlignment(Qt::AlignCenter);
    illustration->setPixmap(Icons::named(QStringLiteral("audio-x-generic")).pixmap(illustrationSide));
    illustration->setAccessibleName(QStringLiteral("Music"));

    auto* headline = centredLabel(QStringLiteral("Drop music here"), this);
    QFont headlineFont = headline->font();
    headlineFont.setPointSizeF(headlineFont.pointSizeF() * 1.2);
    headlineFont.setWeight(QFont::Medium);
    headline->setFont(headlineFont);

    auto* kinds = centredLabel(
        QStringLiteral("MP3, M4A, AAC, WAV, AIFF, and FLAC files \u2014 or a folder of them."), this);
    QFont callout = kinds->font();
    callout.setPointSizeF(callout.pointSizeF() * 0.92);
    kinds->setFont(callout);
    makeSecondary(*kinds);

    auto* addMusic = new QPushButton(QStringLiteral("Add Music\u2026"), this);
    auto* openPlaylist = new QPushButton(QStringLiteral("Open Playlist\u2026"), this);
    connect(addMusic, &QPushButton::clicked, this, [this, &store, &dialogs] {
        const QList<QUrl> urls =
            dialogs.chooseMusicFiles ? dialogs.chooseMusicFiles(window()) : QList<QUrl>();
        if (!urls.isEmpty())
            store.addURLs(urls);
    });
    connect(openPlaylist, &QPushButton::clicked, this, [this, &store, &dialogs] {
        if (const auto url = dialogs.choosePlaylistFile ? dialogs.choosePlaylistFile(window()) : std::nullopt)
            store.openPlaylist(*url, true);
    });

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(addMusic);
    buttons->addWidget(openPlaylist);
    buttons->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->addStretch();
    layout->addWidget(illustration);
    layout->addWidget(headline);
    layout->addWidget(kinds);
    layout->addSpacing(8);
    layout->addLayout(buttons);
    layout->addStretch();
}

void EmptyPlaylistView::setDropTargeted(bool targeted) {
    if (targeted == m_dropTargeted)
        return;
    m_dropTargeted = targeted;
    update();
}

void EmptyPlaylistView::paintEvent(QPaintEvent*) {
    if (!m_dropTargeted)
        return;
    QPainter painter(this);
    DropHighlight::paint(painter, rect(), palette().color(QPalette::Highlight));
}

ContentUnavailableMessage::ContentUnavailableMessage(QWidget* parent)
    : QWidget(parent)
    , m_title(centredLabel({}, this))
    , m_message(centredLabel({}, this)) {
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    makeSecondary(*m_message);
    auto* layout = new QVBoxLayout(this);
    layout->addStretch();
    layout->addWidget(m_title);
    layout->addWidget(m_message);
    layout->addStretch();
}

void ContentUnavailableMessage::setMessage(const QString& title, const QString& message) {
    m_title->setText(title);
    m_message->setText(message);
}

QString ContentUnavailableMessage::title() const {
    return m_title->text();
}

QString ContentUnavailableMessage::message() const {
    return m_message->text();
}

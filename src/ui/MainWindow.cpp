#include "ui/MainWindow.h"

#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "ui/AboutBox.h"
#include "ui/CoverThumbnails.h"
#include "ui/Divider.h"
#include "ui/FloppyDiskIcon.h"
#include "ui/Icons.h"
#include "ui/IncomingUrls.h"
#include "ui/SongListArea.h"
#include "ui/TrackInspector.h"
#include "ui/TransportBar.h"
#include "ui/WindowActions.h"
#include "ui/WindowAlerts.h"

#include <QAction>
#include <QBoxLayout>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QEvent>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QProgressBar>
#include <QScreen>
#include <QSettings>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>

#include <algorithm>
#include <numeric>

namespace {

constexpr int minimumContentWidth = 620;
constexpr int minimumContentHeight = 440;

} // namespace

QString subtitleText(const LibraryStore& store) {
    const QList<Track>& tracks = store.tracks();
    QStringList parts{songCount(tracks.size())};
    const double total = std::accumulate(tracks.begin(), tracks.end(), 0.0,
                                         [](double sum, const Track& track) { return sum + track.duration; });
    if (total > 0)
        parts << formatTime(total);
    if (store.hasUnsavedChanges() && !store.playlistURL().isEmpty())
        parts << QStringLiteral("Edited");
    if (!store.status().isEmpty())
        parts << store.status();
    return parts.join(QStringLiteral(" · "));
}

MainWindow::MainWindow(LibraryStore& store, UpdateChecker& updater, MetadataService& metadata,
                       FileDialogs dialogs, QSettings& settings, QWidget* parent)
    : QMainWindow(parent)
    , m_store(store)
    , m_metadata(metadata)
    , m_dialogs(std::move(dialogs))
    , m_settings(settings)
    , m_covers(new CoverThumbnails(this))
    , m_actions(new WindowActions(store, updater, m_dialogs, this,
                                  {[this] { showAbout(); }, [this] { setListVisible(!isListVisible()); }}))
    , m_alerts(new WindowAlerts(store, updater, this)) {
    setObjectName(QStringLiteral("main"));
    setAcceptDrops(true);
    m_actions->fillMenuBar(menuBar());
    buildToolbar();
    setCentralWidget(buildContent());
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("subtitle"));
    m_status->setTextFormat(Qt::PlainText);
    statusBar()->addWidget(m_status, 1);
    statusBar()->setSizeGripEnabled(false);

    connect(&store, &LibraryStore::playlistURLChanged, this, &MainWindow::showTitle);
    connect(&store, &LibraryStore::hasUnsavedChangesChanged, this, &MainWindow::showTitle);
    for (auto signal : {&LibraryStore::tracksChanged, &LibraryStore::hasUnsavedChangesChanged,
                        &LibraryStore::playlistURLChanged, &LibraryStore::statusChanged})
        connect(&store, signal, this, &MainWindow::showSubtitle);
    connect(&store, &LibraryStore::tracksChanged, this, &MainWindow::showListState);
    connect(&store, &LibraryStore::isImportingChanged, this,
            [this] { m_importIndicator->setVisible(m_store.isImporting()); });

    m_isListVisible = m_settings.value(songListVisibleKey, true).toBool();
    showTitle();
    showSubtitle();
    showListState();
    m_importIndicator->setVisible(store.isImporting());
    resize(900, 560 + menuBar()->sizeHint().height() + statusBar()->sizeHint().height() +
                    findChild<QToolBar*>()->sizeHint().height());
}

MainWindow::~MainWindow() = default;

void MainWindow::buildToolbar() {
    QToolBar* toolbar = addToolBar(QStringLiteral("Playlist"));
    toolbar->setObjectName(QStringLiteral("toolbar"));
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->toggleViewAction()->setEnabled(false);
    setContextMenuPolicy(Qt::NoContextMenu);

    auto* add = new QToolButton(toolbar);
    add->setObjectName(QStringLiteral("add"));
    add->setIcon(Icons::named(QStringLiteral("list-add")));
    add->setText(QStringLiteral("Add"));
    add->setToolTip(QStringLiteral("Add songs, a folder, or a playlist"));
    add->setAccessibleName(add->toolTip());
    add->setPopupMode(QToolButton::InstantPopup);
    add->setStyleSheet(QStringLiteral("QToolButton::menu-indicator { image: none; width: 0; }"));
    auto* addMenu = new QMenu(add);
    addMenu->addAction(QStringLiteral("Add Songs…"), m_actions->addMusic, &QAction::trigger);
    addMenu->addAction(QStringLiteral("Add Folder…"), m_actions->addFolder, &QAction::trigger);
    addMenu->addSeparator();
    addMenu->addAction(QStringLiteral("Add Songs from Playlist…"), m_actions->addSongsFromPlaylist,
                       &QAction::trigger);
    addMenu->addAction(m_actions->openPlaylistReplacing);
    add->setMenu(addMenu);
    toolbar->addWidget(add);

    QAction* save = m_actions->savePlaylist;
    showSaveIcon();
    save->setToolTip(QStringLiteral("Save this playlist as M3U"));
    toolbar->addAction(save);
    QAction* close = m_actions->closePlaylist;
    close->setIcon(Icons::named(QStringLiteral("window-close")));
    close->setToolTip(QStringLiteral("Clear every song from this playlist"));
    toolbar->addAction(close);

    auto* indicator = new QWidget(toolbar);
    indicator->setObjectName(QStringLiteral("importIndicator"));
    auto* indicatorRow = new QHBoxLayout(indicator);
    indicatorRow->setContentsMargins(4, 0, 0, 0);
    auto* busy = new QProgressBar(indicator);
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    busy->setFixedSize(48, 10);
    busy->setAccessibleName(QStringLiteral("Importing"));
    indicatorRow->addWidget(busy);
    // A toolbar shows and hides its widgets through their actions.
    m_importIndicator = toolbar->addWidget(indicator);

    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);

    m_search = new QLineEdit(toolbar);
    m_search->setObjectName(QStringLiteral("search"));
    m_search->setPlaceholderText(QStringLiteral("Search this playlist"));
    m_search->setAccessibleName(m_search->placeholderText());
    m_search->setClearButtonEnabled(true);
    m_search->addAction(Icons::named(QStringLiteral("edit-find")), QLineEdit::LeadingPosition);
    m_search->setMaximumWidth(260);
    m_search->setMinimumWidth(160);
    toolbar->addWidget(m_search);
    connect(m_search, &QLineEdit::textChanged, this, &MainWindow::searchTextChanged);

    auto* find = new QAction(QStringLiteral("Find"), this);
    find->setShortcut(QKeySequence::Find);
    connect(find, &QAction::triggered, this, [this] {
        m_search->setFocus(Qt::ShortcutFocusReason);
        m_search->selectAll();
    });
    addAction(find);
    auto* clearSearch = new QAction(QStringLiteral("Clear Search"), m_search);
    clearSearch->setShortcut(Qt::Key_Escape);
    clearSearch->setShortcutContext(Qt::WidgetShortcut);
    connect(clearSearch, &QAction::triggered, m_search, &QLineEdit::clear);
    m_search->addAction(clearSearch);
}

QWidget* MainWindow::buildContent() {
    m_content = new QWidget(this);
    m_content->setObjectName(QStringLiteral("content"));
    m_content->setMinimumWidth(minimumContentWidth);
    m_content->installEventFilter(this);
    auto* column = new QVBoxLayout(m_content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    PlayerEngine& engine = *m_store.engine();
    m_transport = new TransportBar(engine, *m_covers, m_content);
    column->addWidget(divider(m_content));
    column->addWidget(m_transport);

    m_handleRow = new QWidget(m_content);
    auto* handle = new QHBoxLayout(m_handleRow);
    handle->setContentsMargins(0, 0, 0, 4);
    handle->setSpacing(4);
    m_listToggle = new QToolButton(m_handleRow);
    m_listToggle->setObjectName(QStringLiteral("listToggle"));
    m_listToggle->setAutoRaise(true);
    m_listToggle->setFixedSize(26, 15);
    m_listToggle->setIconSize(QSize(10, 10));
    m_listToggle->setFocusPolicy(Qt::TabFocus);
    connect(m_listToggle, &QToolButton::clicked, this, [this] {
        m_autoExpandedForSearch = false;
        setListVisible(!m_isListVisible);
    });
    m_hiddenCaption = new QLabel(m_handleRow);
    m_hiddenCaption->setObjectName(QStringLiteral("hiddenCaption"));
    m_hiddenCaption->setForegroundRole(QPalette::PlaceholderText);
    QFont caption = font();
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_hiddenCaption->setFont(caption);
    handle->addStretch();
    handle->addWidget(m_listToggle);
    handle->addWidget(m_hiddenCaption);
    handle->addStretch();
    column->addWidget(m_handleRow);

    m_listDivider = divider(m_content);
    column->addWidget(m_listDivider);
    m_songList = new SongListArea(m_store, engine, *m_covers, m_dialogs, m_content);
    column->addWidget(m_songList, 1);
    connect(m_songList, &SongListArea::artworkLeadingChanged, m_transport, &TransportBar::setLeadingInset);
    connect(m_songList, &SongListArea::inspectRequested, this, [this](const Track& track) {
        auto* inspector = new TrackInspector(track, m_store, m_metadata, this);
        inspector->setAttribute(Qt::WA_DeleteOnClose);
        inspector->setWindowModality(Qt::WindowModal);
        inspector->open();
    });
    return m_content;
}

void MainWindow::openUrls(const QList<QUrl>& urls) {
    handleIncomingURLs(m_store, urls);
}

QString MainWindow::subtitle() const {
    return m_status->text();
}

void MainWindow::showTitle() {
    // The desktop's way of marking unsaved changes: an asterisk where "[*]" stands.
    setWindowTitle(m_store.suggestedPlaylistName() + QStringLiteral("[*]"));
    setWindowModified(m_store.hasUnsavedChanges());
}

void MainWindow::showSubtitle() {
    const QString text = subtitleText(m_store);
    if (text == m_status->text())
        return;
    m_status->setText(text);
    emit subtitleChanged();
}

void MainWindow::setListVisible(bool visible) {
    m_settings.setValue(songListVisibleKey, visible);
    if (visible == m_isListVisible)
        return;
    m_isListVisible = visible;
    showListState();
    emit listVisibleChanged();
    // After the layout has taken the change, so the heights are the new ones.
    QTimer::singleShot(0, this, [this, visible] { resizeWindowForList(!visible); });
}

void MainWindow::showListState() {
    const bool visible = m_isListVisible;
    m_songList->setVisible(visible);
    m_listDivider->setVisible(visible);
    m_listToggle->setIcon(Icons::named(visible ? QStringLiteral("go-up") : QStringLiteral("go-down")));
    const QString help =
        visible ? QStringLiteral("Hide the song list") : QStringLiteral("Show the song list");
    m_listToggle->setToolTip(help);
    m_listToggle->setAccessibleName(help);
    const qsizetype count = m_store.tracks().size();
    m_hiddenCaption->setText(songCount(count) + QStringLiteral(" hidden"));
    m_hiddenCaption->setVisible(!visible && count > 0);
    if (visible) {
        m_content->setMinimumHeight(minimumContentHeight);
        m_content->setMaximumHeight(QWIDGETSIZE_MAX);
        setMaximumHeight(QWIDGETSIZE_MAX);
    } else {
        m_content->setFixedHeight(std::max(chromeHeight(), 120) + 8);
    }
}

void MainWindow::searchTextChanged(const QString& text) {
    m_songList->setSearchText(text);
    if (!text.isEmpty() && !m_isListVisible) {
        m_autoExpandedForSearch = true;
        setListVisible(true);
    } else if (text.isEmpty() && m_autoExpandedForSearch) {
        m_autoExpandedForSearch = false;
        setListVisible(false);
    }
}

int MainWindow::chromeHeight() const {
    // The fixed part: the divider above the bar, the bar and the row of the show/hide button.
    return m_content->layout()->itemAt(0)->sizeHint().height() + m_transport->sizeHint().height() +
           m_handleRow->sizeHint().height();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_content && event->type() == QEvent::Resize && m_isListVisible && m_content->height() > 0)
        m_expandedRootHeight = m_content->height();
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (m_wasShown)
        return;
    m_wasShown = true;
    if (!m_isListVisible) {
        // Laid out as if shown first, so that showing the list later returns to the usual height.
        m_expandedRootHeight = height() - (menuBar()->height() + statusBar()->height());
        QTimer::singleShot(0, this, [this] { resizeWindowForList(true); });
    }
    emit firstShown();
}

void MainWindow::resizeWindowForList(bool collapsing) {
    const int h = height();
    int target = 0;
    if (collapsing) {
        const int excess = m_expandedRootHeight - (std::max(chromeHeight(), 120) + 8);
        if (excess <= 1)
            return;
        m_restoreFrameHeight = h;
        target = h - excess;
    } else {
        if (!m_restoreFrameHeight)
            return;
        target = *m_restoreFrameHeight;
        m_restoreFrameHeight.reset();
    }
    target = std::max(target, minimumSizeHint().height());
    if (const QScreen* screen = this->screen())
        target = std::min(target, screen->availableGeometry().height());
    if (std::abs(target - h) <= 1)
        return;
    // resize() keeps the top-left corner where the window system lets a program place its window.
    resize(width(), target);
    if (collapsing)
        setMaximumHeight(target);
}

void MainWindow::showSaveIcon() {
    m_actions->savePlaylist->setIcon(FloppyDiskIcon::icon(15, palette().color(QPalette::ButtonText)));
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        showSaveIcon(); // light and dark themes swap while running
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    if (!event->mimeData()->hasUrls())
        return;
    event->acceptProposedAction();
    openUrls(event->mimeData()->urls());
}

void MainWindow::showAbout() {
    showAboutBox(this);
}

#include "ui/SongListArea.h"

#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"
#include "ui/CoverThumbnails.h"
#include "ui/DropHighlight.h"
#include "ui/EmptyPlaylistView.h"
#include "ui/IncomingUrls.h"
#include "ui/PlayingIndicator.h"
#include "ui/SongListView.h"
#include "ui/TrackFilterModel.h"
#include "ui/TrackListModel.h"
#include "ui/TrackRowDelegate.h"

#include <QDragEnterEvent>
#include <QMenu>
#include <QMimeData>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>

SongListArea::SongListArea(LibraryStore& store, PlayerEngine& engine, CoverThumbnails& covers,
                           const FileDialogs& dialogs, QWidget* parent)
    : QWidget(parent)
    , m_store(store)
    , m_engine(engine)
    , m_model(new TrackListModel(store, engine, this))
    , m_filter(new TrackFilterModel(*m_model, this))
    , m_indicator(new PlayingIndicator(this))
    , m_delegate(new TrackRowDelegate(covers, *m_indicator, this))
    , m_view(new SongListView(*m_model, *m_delegate))
    , m_empty(new EmptyPlaylistView(store, dialogs))
    , m_noMatches(new ContentUnavailableMessage)
    , m_pages(new QStackedWidget(this))
    , m_overlay(new DropHighlightOverlay(this)) {
    setAcceptDrops(true); // files dropped anywhere on the area; the list itself takes reorder drags
    m_view->setModel(m_filter);
    m_view->setAccessibleName(QStringLiteral("Songs"));
    m_pages->addWidget(m_empty);
    m_pages->addWidget(m_noMatches);
    m_pages->addWidget(m_view);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pages);

    connect(m_view, &SongListView::playRequested, this,
            [this](const QModelIndex& index) { m_engine.playTrack(trackAt(index).id); });
    connect(m_view, &SongListView::infoClicked, this,
            [this](const QModelIndex& index) { emit inspectRequested(trackAt(index)); });
    connect(m_view, &SongListView::removeClicked, this, &SongListArea::removeRow);
    connect(m_view, &SongListView::deleteRequested, this, &SongListArea::removeSelection);
    connect(m_view, &SongListView::reorderDropped, this,
            [this](const QUuid& dragged, const QModelIndex& onto) {
                m_store.moveTrack(dragged, trackAt(onto).id);
            });
    connect(m_view, &SongListView::menuRequested, this, [this](const QModelIndex& index, const QPoint& at) {
        if (QMenu* menu = rowMenu(index.row()))
            menu->popup(at);
    });

    for (const auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(m_filter, signal, this, &SongListArea::showPage);
    connect(m_filter, &QAbstractItemModel::modelReset, this, &SongListArea::showPage);
    connect(m_filter, &QAbstractItemModel::layoutChanged, this, &SongListArea::showPage);
    for (const auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(m_model, signal, this, &SongListArea::followListSize);
    connect(m_model, &QAbstractItemModel::modelReset, this, &SongListArea::followListSize);

    connect(m_model, &TrackListModel::playingStateChanged, this, &SongListArea::followIndicator);
    connect(m_view->verticalScrollBar(), &QScrollBar::valueChanged, this, &SongListArea::followIndicator);
    connect(m_indicator, &PlayingIndicator::frame, this, &SongListArea::repaintIndicator);
    connect(&covers, &CoverThumbnails::ready, m_view->viewport(), qOverload<>(&QWidget::update));

    followListSize();
    showPage();
}

// The list refers to the models and the delegate, which are children created before it: it goes first.
SongListArea::~SongListArea() {
    delete m_pages;
}

void SongListArea::setSearchText(const QString& text) {
    m_filter->setSearchText(text);
    m_delegate->setCanReorder(!m_filter->isSearching());
    m_view->viewport()->update();
    showPage();
}

SongListArea::Page SongListArea::page() const {
    if (m_pages->currentWidget() == m_empty)
        return Page::Empty;
    return m_pages->currentWidget() == m_noMatches ? Page::NoMatches : Page::List;
}

QListView* SongListArea::listView() const {
    return m_view;
}

Track SongListArea::trackAt(const QModelIndex& index) const {
    return index.data(TrackListModel::TrackRole).value<Track>();
}

QSet<QUuid> SongListArea::selectedIds() const {
    QSet<QUuid> ids;
    for (const QModelIndex& index : m_view->selectionModel()->selectedRows())
        ids.insert(trackAt(index).id);
    return ids;
}

void SongListArea::removeRow(const QModelIndex& index) {
    const QUuid id = trackAt(index).id;
    const QSet<QUuid> selected = selectedIds();
    m_store.remove(selected.contains(id) ? selected : QSet<QUuid>{id});
    m_view->clearSelection();
}

void SongListArea::removeSelection() {
    m_store.remove(selectedIds());
    m_view->clearSelection();
}

QMenu* SongListArea::rowMenu(int row) {
    const QModelIndex index = m_filter->index(row, 0);
    if (!index.isValid())
        return nullptr;
    const Track track = trackAt(index);
    const int playlistRow = index.data(TrackListModel::NumberRole).toInt() - 1;
    const bool canReorder = !m_filter->isSearching();
    const QPersistentModelIndex persistent(index);

    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction(QStringLiteral("Play"), this, [this, id = track.id] { m_engine.playTrack(id); });
    menu->addAction(QStringLiteral("Get Info\u2026"), this, [this, track] { emit inspectRequested(track); });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Move Up"), this, [this, id = track.id] { m_store.moveTrack(id, -1); })
        ->setEnabled(canReorder && playlistRow > 0);
    menu->addAction(QStringLiteral("Move Down"), this, [this, id = track.id] { m_store.moveTrack(id, 1); })
        ->setEnabled(canReorder && playlistRow < m_store.tracks().size() - 1);
    menu->addSeparator();
    menu->addAction(QStringLiteral("Show in File Manager"), this,
                    [this, id = track.id] { m_store.revealInFileBrowser({id}); })
        ->setEnabled(!track.isMissing);
    menu->addSeparator();
    menu->addAction(QStringLiteral("Remove from Playlist"), this, [this, persistent] {
        if (persistent.isValid())
            removeRow(persistent);
    });
    return menu;
}

void SongListArea::showPage() {
    QWidget* shown = m_view;
    if (m_model->rowCount() == 0) {
        shown = m_empty;
    } else if (m_filter->isSearching() && m_filter->rowCount() == 0) {
        shown = m_noMatches;
        m_noMatches->setMessage(QStringLiteral("No matches"),
                                QStringLiteral("Nothing in this playlist matches \u201C") +
                                    m_filter->searchText() + QStringLiteral("\u201D."));
    }
    m_pages->setCurrentWidget(shown);
    setDropTargeted(m_dropTargeted); // the highlight belongs to whichever page shows
    followIndicator();
}

// Numbers take as many digits as the longest one, so every row's text starts at the same place.
void SongListArea::followListSize() {
    const int digits = int(QString::number(m_model->rowCount()).size());
    if (digits != m_numberDigits) {
        m_numberDigits = digits;
        m_delegate->setNumberDigits(digits);
        m_view->viewport()->update();
        reportArtworkLeading();
    }
}

void SongListArea::reportArtworkLeading() {
    const QRect row(m_view->viewport()->mapTo(this, QPoint(0, 0)), QSize(m_view->viewport()->width(), 1));
    const int leading = TrackRowGeometry::layout(row, m_view->font(), m_numberDigits, false).title.left();
    if (leading > 0 && leading != m_artworkLeading) {
        m_artworkLeading = leading;
        emit artworkLeadingChanged(leading);
    }
}

void SongListArea::followIndicator() {
    m_indicator->setAnimating(m_model->isPlaying());
    const QModelIndex current = m_model->currentRow() < 0
                                    ? QModelIndex()
                                    : m_filter->mapFromSource(m_model->index(m_model->currentRow()));
    const bool onScreen =
        current.isValid() && m_view->visualRect(current).intersects(m_view->viewport()->rect());
    m_indicator->setVisible(isVisible() && page() == Page::List && onScreen);
}

void SongListArea::repaintIndicator() {
    if (m_model->currentRow() < 0)
        return;
    const QModelIndex current = m_filter->mapFromSource(m_model->index(m_model->currentRow()));
    if (!current.isValid())
        return;
    QStyleOptionViewItem option;
    option.rect = m_view->visualRect(current);
    option.font = m_view->font();
    m_view->viewport()->update(m_delegate->layout(option, current).number);
}

void SongListArea::setDropTargeted(bool targeted) {
    m_dropTargeted = targeted;
    m_empty->setDropTargeted(targeted && page() == Page::Empty);
    m_overlay->setShown(targeted && page() != Page::Empty);
}

void SongListArea::dragEnterEvent(QDragEnterEvent* event) {
    if (!event->mimeData()->hasUrls()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    setDropTargeted(true);
}

void SongListArea::dragLeaveEvent(QDragLeaveEvent*) {
    setDropTargeted(false);
}

void SongListArea::dropEvent(QDropEvent* event) {
    setDropTargeted(false);
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    handleIncomingURLs(m_store, urls);
}

void SongListArea::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    m_overlay->setGeometry(m_pages->geometry());
    reportArtworkLeading();
    followIndicator();
}

void SongListArea::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    reportArtworkLeading();
    followIndicator();
}

void SongListArea::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    followIndicator();
}

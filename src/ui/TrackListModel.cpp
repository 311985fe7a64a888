#include "ui/TrackListModel.h"

#include "playback/PlayerEngine.h"
#include "store/LibraryStore.h"

#include <algorithm>

namespace {

const QChar searchSeparator(u'\0');

bool sameIds(const QList<Track>& a, const QList<Track>& b) {
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend(),
                      [](const Track& x, const Track& y) { return x.id == y.id; });
}

// Runs of consecutive rows, as (first, count), from the last run to the first.
QList<std::pair<int, int>> runsFromLast(const QList<int>& ascendingRows) {
    QList<std::pair<int, int>> runs;
    for (auto row = ascendingRows.crbegin(); row != ascendingRows.crend(); ++row) {
        if (!runs.isEmpty() && runs.last().first == *row + 1) {
            runs.last().first = *row;
            ++runs.last().second;
        } else {
            runs.append({*row, 1});
        }
    }
    return runs;
}

} // namespace

TrackListModel::TrackListModel(LibraryStore& store, PlayerEngine& engine, QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
    , m_engine(engine)
    , m_tracks(store.tracks())
    , m_searchTexts(m_tracks.size()) {
    connect(&store, &LibraryStore::tracksEdited, this, &TrackListModel::follow);
    connect(&engine, &PlayerEngine::currentTrackChanged, this, &TrackListModel::followCurrentTrack);
    connect(&engine, &PlayerEngine::isPlayingChanged, this, &TrackListModel::followCurrentTrack);
    followCurrentTrack();
}

int TrackListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_tracks.size());
}

bool TrackListModel::isPlaying() const {
    return m_currentRow >= 0 && m_engine.isPlaying();
}

QVariant TrackListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_tracks.size())
        return {};
    const Track& track = m_tracks[index.row()];
    const bool current = index.row() == m_currentRow;
    switch (role) {
    case Qt::DisplayRole:
        return displayTitle(track);
    case Qt::AccessibleTextRole: {
        const QString position = !current      ? QString::number(index.row() + 1)
                                 : isPlaying() ? QStringLiteral("Now playing")
                                               : QStringLiteral("Paused");
        return QStringList{position, displayTitle(track), displayArtist(track), displayAlbum(track)}.join(
            QStringLiteral(", "));
    }
    case Qt::AccessibleDescriptionRole: // the warning a sighted user sees on the row
        return track.isMissing ? QStringLiteral("This file isn't at the path saved in the playlist.")
                               : QString();
    case TrackRole:
        return QVariant::fromValue(track);
    case NumberRole:
        return index.row() + 1;
    case IsCurrentRole:
        return current;
    case IsPlayingRole:
        return current && isPlaying();
    default:
        return {};
    }
}

int TrackListModel::rowOf(const QUuid& id) const {
    const auto it =
        std::find_if(m_tracks.cbegin(), m_tracks.cend(), [&](const Track& t) { return t.id == id; });
    return it == m_tracks.cend() ? -1 : int(it - m_tracks.cbegin());
}

bool TrackListModel::matches(int row, const QString& query) const {
    const Track& track = m_tracks[row];
    if (query.contains(searchSeparator)) { // never typed; kept exact all the same
        const QString texts[] = {displayTitle(track), track.artist(), track.album()};
        return std::any_of(std::begin(texts), std::end(texts),
                           [&](const QString& text) { return text.toLower().contains(query); });
    }
    QString& joined = m_searchTexts[row];
    if (joined.isNull()) {
        const QString title = displayTitle(track);
        joined.reserve(title.size() + track.artist().size() + track.album().size() + 2);
        joined.append(title)
            .append(searchSeparator)
            .append(track.artist())
            .append(searchSeparator)
            .append(track.album());
        joined = std::move(joined).toLower(); // in place: one allocation a row
    }
    return joined.contains(query);
}

void TrackListModel::follow(const TrackListChange& change) {
    const QList<Track>& now = m_store.tracks();
    switch (change.kind) {
    case TrackListChange::Kind::Reset:
        if (sameIds(m_tracks, now)) {
            // The same songs with new values (a tag save): repaint, keep everything else.
            m_tracks = now;
            std::fill(m_searchTexts.begin(), m_searchTexts.end(), QString());
            if (!m_tracks.isEmpty())
                emit dataChanged(index(0), index(int(m_tracks.size()) - 1));
        } else {
            beginResetModel();
            m_tracks = now;
            m_searchTexts = QList<QString>(m_tracks.size());
            endResetModel();
        }
        break;
    case TrackListChange::Kind::Inserted:
        if (change.count == 0)
            break;
        beginInsertRows({}, change.first, change.first + change.count - 1);
        m_tracks = now;
        m_searchTexts.insert(change.first, change.count, QString());
        endInsertRows();
        break;
    case TrackListChange::Kind::Removed: {
        // Each run of rows leaves in its own step, so the rows stay right between the steps.
        const auto runs = runsFromLast(change.rows);
        for (const auto& [first, count] : runs) {
            beginRemoveRows({}, first, first + count - 1);
            if (runs.size() == 1)
                m_tracks = now;
            else
                m_tracks.remove(first, count);
            m_searchTexts.remove(first, count);
            endRemoveRows();
        }
        m_tracks = now; // the same values; share the store's list again
        break;
    }
    case TrackListChange::Kind::Moved:
        if (change.first != change.to) {
            beginMoveRows({}, change.first, change.first, {},
                          change.to > change.first ? change.to + 1 : change.to);
            m_tracks = now;
            m_searchTexts.move(change.first, change.to);
            endMoveRows();
        }
        break;
    }
    followCurrentTrack();
}

void TrackListModel::followCurrentTrack() {
    const std::optional<Track> current = m_engine.currentTrack();
    int row = -1;
    if (current) {
        // The engine's index is right whenever its queue is the list the rows show; search otherwise.
        const int hint = m_engine.currentIndex();
        row = hint >= 0 && hint < m_tracks.size() && m_tracks[hint].id == current->id ? hint
                                                                                      : rowOf(current->id);
    }
    const int previous = m_currentRow;
    m_currentRow = row;
    for (const int changed : {previous, row}) {
        if (changed >= 0 && changed < m_tracks.size())
            emit dataChanged(index(changed), index(changed));
    }
    emit playingStateChanged(row);
}

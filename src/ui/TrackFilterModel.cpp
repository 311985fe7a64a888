#include "ui/TrackFilterModel.h"

#include "ui/TrackListModel.h"

TrackFilterModel::TrackFilterModel(TrackListModel& tracks, QObject* parent)
    : QSortFilterProxyModel(parent)
    , m_tracks(tracks) {
    setSourceModel(&tracks);
}

void TrackFilterModel::setSearchText(const QString& text) {
    if (text == m_searchText)
        return;
    m_searchText = text;
    m_query = text.toLower();
    // One layout change rather than a removal per hidden run: selection survives it and it costs one pass.
    invalidate();
}

bool TrackFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex&) const {
    return m_query.isEmpty() || m_tracks.matches(sourceRow, m_query);
}

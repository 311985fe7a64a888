#pragma once

#include <QSortFilterProxyModel>

class TrackListModel;

// The rows the list shows (`filteredTracks`): every song while the search text is empty, otherwise the
// songs whose display title, artist or album holds the lower-cased search text (not trimmed: a query of
// spaces is a real query), in playlist order. Rows keep their whole-playlist numbers.
class TrackFilterModel : public QSortFilterProxyModel {
    Q_OBJECT
public:
    explicit TrackFilterModel(TrackListModel& tracks, QObject* parent = nullptr);

    void setSearchText(const QString& text);
    QString searchText() const { return m_searchText; }
    bool isSearching() const { return !m_searchText.isEmpty(); }

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    TrackListModel& m_tracks;
    QString m_searchText;
    QString m_query; // lower-cased
};

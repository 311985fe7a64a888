#pragma once

#include <QList>
#include <QMetaType>

// What one change of the store's list did, so a view can follow it row by row (keeping its selection and
// scroll position) instead of starting over.
struct TrackListChange {
    enum class Kind {
        Reset,    // anything else: take the list anew
        Inserted, // `count` rows now stand at `first`
        Removed,  // the rows `rows` (ascending, in the list before the change) are gone
        Moved,    // the row at `first` (before the change) now stands at `to` (after it)
    };

    Kind kind = Kind::Reset;
    int first = 0;
    int count = 0;
    int to = 0;
    QList<int> rows;

    static TrackListChange reset() { return {}; }
    static TrackListChange inserted(int first, int count) { return {Kind::Inserted, first, count, 0, {}}; }
    static TrackListChange removed(QList<int> rows) { return {Kind::Removed, 0, 0, 0, std::move(rows)}; }
    static TrackListChange moved(int from, int to) { return {Kind::Moved, from, 1, to, {}}; }
};

Q_DECLARE_METATYPE(TrackListChange)

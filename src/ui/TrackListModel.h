#pragma once

#include "library/Track.h"
#include "store/TrackListChange.h"

#include <QAbstractListModel>
#include <QList>
#include <QUuid>

#include <optional>

class LibraryStore;
class PlayerEngine;

// The playlist as rows, one per track of the store's list, in its order. Follows the store's changes row
// by row (inserts, removals, moves), so views keep their selection and scroll position; only a new list
// resets it. Also knows which row is the engine's current song and whether it plays. Main thread.
class TrackListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        TrackRole = Qt::UserRole + 1, // Track
        NumberRole,                   // int: position in the whole playlist, from 1
        IsCurrentRole,                // bool: the engine's current song
        IsPlayingRole,                // bool: current and playing
    };

    TrackListModel(LibraryStore& store, PlayerEngine& engine, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    // DisplayRole: the display title; AccessibleTextRole: number (or playing state), title, artist, album;
    // AccessibleDescriptionRole: the missing-file warning.
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    const QList<Track>& tracks() const { return m_tracks; }
    // The row of the track with `id`, or -1.
    int rowOf(const QUuid& id) const;
    // The row of the engine's current song, or -1.
    int currentRow() const { return m_currentRow; }
    bool isPlaying() const;

    // The search rule: `query` (already lower-cased) occurs in the row's display title, artist or album,
    // each lower-cased. The lower-cased texts are kept per row, so a keystroke costs no allocation.
    bool matches(int row, const QString& query) const;

signals:
    // The current song or its playing state changed; `row` is the current row now (or -1).
    void playingStateChanged(int row);

private:
    void follow(const TrackListChange& change);
    void followCurrentTrack();

    LibraryStore& m_store;
    PlayerEngine& m_engine;
    QList<Track> m_tracks; // shares the store's list between changes
    // Parallel to m_tracks: each row's three texts lower-cased and joined by a separator no query holds
    // (one allocation a row); null until the first search needs it.
    mutable QList<QString> m_searchTexts;
    int m_currentRow = -1;
};

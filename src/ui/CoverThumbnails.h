#pragma once

#include "library/Track.h"

#include <QObject>
#include <QPixmap>
#include <QSize>

// Covers at the size a view shows them: each distinct picture is decoded once per size, off the main
// thread, and kept in a cache of bounded cost. Lives on the main thread.
class CoverThumbnails : public QObject {
    Q_OBJECT
public:
    explicit CoverThumbnails(QObject* parent = nullptr);

    // The track's cover scaled to fill `devicePixels`, or a null pixmap while it is being made or when
    // the track has none. `ready` is emitted once a requested thumbnail can be had.
    QPixmap thumbnail(const Track& track, QSize devicePixels);

signals:
    void ready();
};

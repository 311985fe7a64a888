#pragma once

#include "library/Track.h"

#include <QDialog>

class LibraryStore;
class MetadataService;

// The sheet that edits one song's tags beside the online service's suggestions; nothing reaches the
// file until Save.
class TrackInspector : public QDialog {
    Q_OBJECT
public:
    TrackInspector(const Track& track, LibraryStore& store, MetadataService& service,
                   QWidget* parent = nullptr);
};

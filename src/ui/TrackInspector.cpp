#include "ui/TrackInspector.h"

TrackInspector::TrackInspector(const Track&, LibraryStore&, MetadataService&, QWidget* parent)
    : QDialog(parent) {}

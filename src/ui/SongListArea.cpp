#include "ui/SongListArea.h"

SongListArea::SongListArea(LibraryStore&, PlayerEngine&, CoverThumbnails&, const FileDialogs&,
                           QWidget* parent)
    : QWidget(parent) {}

void SongListArea::setSearchText(const QString&) {}

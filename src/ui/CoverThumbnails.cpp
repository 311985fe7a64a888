#include "ui/CoverThumbnails.h"

CoverThumbnails::CoverThumbnails(QObject* parent)
    : QObject(parent) {}

QPixmap CoverThumbnails::thumbnail(const Track&, QSize) {
    return {};
}

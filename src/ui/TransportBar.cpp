#include "ui/TransportBar.h"

TransportBar::TransportBar(PlayerEngine&, CoverThumbnails&, QWidget* parent)
    : QWidget(parent) {}

void TransportBar::setLeadingInset(int) {}

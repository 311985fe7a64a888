#pragma once

#include <QFrame>

// The thin sunken line between the sections of a window or dialog.
inline QFrame* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

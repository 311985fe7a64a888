#pragma once

#include <QApplication>
#include <QDropEvent>
#include <QImage>
#include <QMimeData>
#include <QWidget>

namespace fixtures {

// A drag that enters `target` at `pos`, moves and drops `mime`, as the window system delivers it: a refused
// entry ends the drag. True when the drop was accepted. `over`, when given, receives a picture of the target
// taken while the drag is over it.
inline bool dragAndDrop(QWidget& target, QPoint pos, const QMimeData& mime, QImage* over = nullptr) {
    const auto actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(pos, actions, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(&target, &enter);
    if (!enter.isAccepted())
        return false;
    QDragMoveEvent move(pos, actions, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(&target, &move);
    if (over)
        *over = target.grab().toImage();
    QDropEvent drop(pos, actions, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(&target, &drop);
    return drop.isAccepted();
}

} // namespace fixtures

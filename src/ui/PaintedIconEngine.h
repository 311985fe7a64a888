#pragma once

#include <QIconEngine>
#include <QPainter>
#include <QPixmap>

// An icon drawn by code at whatever size is asked: subclasses paint, pixmaps come from painting.
class PaintedIconEngine : public QIconEngine {
public:
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }
};

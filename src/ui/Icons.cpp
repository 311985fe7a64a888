#include "ui/Icons.h"

#include "ui/PaintedIconEngine.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>

#include <functional>

namespace {

// A drawing on a 16 × 16 grid: outlines to stroke and shapes to fill.
struct Drawing {
    QPainterPath stroked;
    QPainterPath filled;
};

QPainterPath polygon(std::initializer_list<QPointF> points) {
    QPainterPath path;
    path.addPolygon(QPolygonF(points));
    path.closeSubpath();
    return path;
}

QPainterPath line(QPointF from, QPointF to) {
    QPainterPath path(from);
    path.lineTo(to);
    return path;
}

QPainterPath speaker() {
    return polygon({{2, 6}, {5, 6}, {9, 2.5}, {9, 13.5}, {5, 10}, {2, 10}});
}

// Arcs of sound beside the speaker: 0 to 3 of them.
QPainterPath waves(int count) {
    QPainterPath path;
    for (int i = 0; i < count; ++i) {
        const qreal r = 2 + 2 * i;
        const QRectF box(9 - r, 8 - r, 2 * r, 2 * r);
        path.arcMoveTo(box, 50);
        path.arcTo(box, 50, -100);
    }
    return path;
}

QPainterPath loop() {
    QPainterPath path;
    path.moveTo(4, 11);
    path.lineTo(3, 11);
    path.arcTo(QRectF(1, 4, 4, 7), 270, -180);
    path.lineTo(12, 4);
    path.moveTo(12, 4);
    path.lineTo(10, 2);
    path.moveTo(12, 4);
    path.lineTo(10, 6);
    path.moveTo(12, 5);
    path.arcTo(QRectF(11, 5, 4, 7), 90, -180);
    path.lineTo(4, 12);
    return path;
}

const QHash<QString, std::function<Drawing()>>& drawings() {
    static const QHash<QString, std::function<Drawing()>> table{
        {"media-playback-start",
         [] {
             return Drawing{{}, polygon({{4, 2}, {14, 8}, {4, 14}})};
         }},
        {"media-playback-pause",
         [] {
             QPainterPath bars;
             bars.addRect(3.5, 2, 3, 12);
             bars.addRect(9.5, 2, 3, 12);
             return Drawing{{}, bars};
         }},
        {"media-skip-forward",
         [] {
             QPainterPath shapes = polygon({{2, 3}, {8, 8}, {2, 13}});
             shapes.addPath(polygon({{8, 3}, {14, 8}, {8, 13}}));
             return Drawing{{}, shapes};
         }},
        {"media-skip-backward",
         [] {
             QPainterPath shapes = polygon({{14, 3}, {8, 8}, {14, 13}});
             shapes.addPath(polygon({{8, 3}, {2, 8}, {8, 13}}));
             return Drawing{{}, shapes};
         }},
        {"media-playlist-shuffle",
         [] {
             QPainterPath path = line({1, 4}, {5, 4});
             path.cubicTo(9, 4, 8, 12, 13, 12);
             path.addPath(line({1, 12}, {5, 12}));
             path.cubicTo(9, 12, 8, 4, 13, 4);
             path.addPath(line({11, 2}, {13.5, 4}));
             path.addPath(line({11, 6}, {13.5, 4}));
             path.addPath(line({11, 10}, {13.5, 12}));
             path.addPath(line({11, 14}, {13.5, 12}));
             return Drawing{path, {}};
         }},
        {"media-playlist-repeat",
         [] {
             return Drawing{loop(), {}};
         }},
        {"media-playlist-repeat-song",
         [] {
             QPainterPath path = loop();
             path.addPath(line({7, 7}, {8.5, 6}));
             path.addPath(line({8.5, 6}, {8.5, 10}));
             return Drawing{path, {}};
         }},
        {"audio-volume-muted",
         [] {
             QPainterPath cross = line({11, 6}, {15, 10});
             cross.addPath(line({15, 6}, {11, 10}));
             return Drawing{cross, speaker()};
         }},
        {"audio-volume-low",
         [] {
             return Drawing{waves(1), speaker()};
         }},
        {"audio-volume-medium",
         [] {
             return Drawing{waves(2), speaker()};
         }},
        {"audio-volume-high",
         [] {
             return Drawing{waves(3), speaker()};
         }},
        {"audio-x-generic",
         [] {
             QPainterPath heads;
             heads.addEllipse(QRectF(2, 10.5, 4.5, 3.5));
             heads.addEllipse(QRectF(9, 9, 4.5, 3.5));
             heads.addPath(polygon({{5.5, 3.5}, {13.5, 1.5}, {13.5, 4}, {5.5, 6}}));
             QPainterPath stems = line({6, 12}, {6, 4});
             stems.addPath(line({13, 10.5}, {13, 2}));
             return Drawing{stems, heads};
         }},
        {"list-add",
         [] {
             QPainterPath plus = line({8, 2}, {8, 14});
             plus.addPath(line({2, 8}, {14, 8}));
             return Drawing{plus, {}};
         }},
        {"edit-find",
         [] {
             QPainterPath lens;
             lens.addEllipse(QRectF(2, 2, 8, 8));
             lens.addPath(line({9, 9}, {14, 14}));
             return Drawing{lens, {}};
         }},
        {"window-close",
         [] {
             QPainterPath path;
             path.addEllipse(QRectF(1.5, 1.5, 13, 13));
             path.addPath(line({5.5, 5.5}, {10.5, 10.5}));
             path.addPath(line({10.5, 5.5}, {5.5, 10.5}));
             return Drawing{path, {}};
         }},
        {"go-up",
         [] {
             QPainterPath chevron = line({3, 10.5}, {8, 5.5});
             chevron.lineTo(13, 10.5);
             return Drawing{chevron, {}};
         }},
        {"go-down",
         [] {
             QPainterPath chevron = line({3, 5.5}, {8, 10.5});
             chevron.lineTo(13, 5.5);
             return Drawing{chevron, {}};
         }},
        {"dialog-warning",
         [] {
             QPainterPath mark = polygon({{8, 1.5}, {15, 14}, {1, 14}});
             mark.addPath(line({8, 6}, {8, 9.5}));
             mark.addPath(line({8, 11.5}, {8, 12}));
             return Drawing{mark, {}};
         }},
        {"dialog-information",
         [] {
             QPainterPath mark;
             mark.addEllipse(QRectF(1.5, 1.5, 13, 13));
             mark.addPath(line({8, 7}, {8, 11.5}));
             mark.addPath(line({8, 4.5}, {8, 5}));
             return Drawing{mark, {}};
         }},
        {"folder",
         [] {
             return Drawing{polygon({{1.5, 3}, {6, 3}, {7.5, 5}, {14.5, 5}, {14.5, 13}, {1.5, 13}}), {}};
         }},
        {"user-trash",
         [] {
             QPainterPath can = polygon({{3.5, 4.5}, {12.5, 4.5}, {11.5, 14.5}, {4.5, 14.5}});
             can.addPath(line({2, 4.5}, {14, 4.5}));
             can.addPath(line({6, 2}, {10, 2}));
             return Drawing{can, {}};
         }},
        {"network-offline",
         [] {
             QPainterPath path;
             path.addEllipse(QRectF(1.5, 1.5, 13, 13));
             path.addPath(line({3.5, 12.5}, {12.5, 3.5}));
             return Drawing{path, {}};
         }},
        {"web-browser",
         [] {
             QPainterPath globe;
             globe.addEllipse(QRectF(1.5, 1.5, 13, 13));
             globe.addEllipse(QRectF(5, 1.5, 6, 13));
             globe.addPath(line({1.5, 8}, {14.5, 8}));
             return Drawing{globe, {}};
         }},
        {"image-x-generic",
         [] {
             QPainterPath frame;
             frame.addRect(1.5, 2.5, 13, 11);
             QPainterPath hill = polygon({{2, 13}, {6.5, 7.5}, {10, 11}, {11.5, 9.5}, {14, 13}});
             return Drawing{frame, hill};
         }},
    };
    return table;
}

// Paints a drawing at any size in the palette's text colour of the moment, so a dark theme reads well.
class DrawnIconEngine : public PaintedIconEngine {
public:
    explicit DrawnIconEngine(QString name)
        : m_name(std::move(name)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        const Drawing drawing = drawings().value(m_name)();
        const QPalette palette = QGuiApplication::palette();
        const QColor color =
            palette.color(mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active,
                          mode == QIcon::Selected ? QPalette::HighlightedText : QPalette::WindowText);
        const qreal side = std::min(rect.width(), rect.height());
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->translate(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2);
        painter->scale(side / 16, side / 16);
        painter->setPen(QPen(color, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(drawing.stroked);
        painter->setPen(Qt::NoPen);
        painter->setBrush(color);
        painter->drawPath(drawing.filled);
        painter->restore();
    }

    QIconEngine* clone() const override { return new DrawnIconEngine(m_name); }
    QString iconName() override { return m_name; }

private:
    QString m_name;
};

} // namespace

QIcon Icons::named(const QString& freedesktopName) {
    if (QIcon::hasThemeIcon(freedesktopName))
        return QIcon::fromTheme(freedesktopName);
    return drawn(freedesktopName);
}

QIcon Icons::drawn(const QString& freedesktopName) {
    if (!drawings().contains(freedesktopName))
        return {};
    return QIcon(new DrawnIconEngine(freedesktopName));
}

// The save button's floppy drawing: its outline's corners and its line width at several sizes.
#include "ui/FloppyDiskIcon.h"

#include <QImage>
#include <QPainter>
#include <QTest>

class FloppyDiskIconTest : public QObject {
    Q_OBJECT

private slots:
    void path_data() {
        QTest::addColumn<QRectF>("rect");
        QTest::addColumn<qreal>("lineWidth");
        QTest::addRow("10") << QRectF(0, 0, 10, 10) << 1.0;
        QTest::addRow("15") << QRectF(0, 0, 15, 15) << 1.275;
        QTest::addRow("64") << QRectF(0, 0, 64, 64) << 5.44;
        QTest::addRow("wide, offset") << QRectF(10, 20, 100, 50) << 8.5;
    }

    // Every corner of body, shutter and label at its fraction of width and height.
    void path() {
        QFETCH(QRectF, rect);
        QFETCH(qreal, lineWidth);
        const auto at = [&](qreal fx, qreal fy) {
            return QPointF(rect.x() + fx * rect.width(), rect.y() + fy * rect.height());
        };
        const QList<QPointF> expected{
            at(0.10, 0.12), at(0.78, 0.12), at(0.90, 0.24), at(0.90, 0.88), at(0.10, 0.88),
            at(0.10, 0.12),                                                                 // body
            at(0.34, 0.12), at(0.58, 0.12), at(0.58, 0.36), at(0.34, 0.36), at(0.34, 0.12), // shutter
            at(0.26, 0.54), at(0.74, 0.54), at(0.74, 0.88), at(0.26, 0.88), at(0.26, 0.54), // label
        };
        const QPainterPath path = FloppyDiskShape::path(rect);
        QList<QPointF> points;
        for (int i = 0; i < path.elementCount(); ++i)
            points << QPointF(path.elementAt(i));
        QCOMPARE(points.size(), expected.size());
        for (int i = 0; i < points.size(); ++i)
            QVERIFY2(QLineF(points[i], expected[i]).length() < 1e-9, qPrintable(QString::number(i)));
        QCOMPARE(FloppyDiskIcon::lineWidth(rect.width()), lineWidth);
    }

    // The icon strokes the outline in the colour given and leaves the inside of the label empty.
    void icon() {
        const QImage image = FloppyDiskIcon::icon(64, Qt::red).pixmap(64, 64).toImage();
        QCOMPARE(image.pixelColor(32, 45).alpha(), 0);      // inside the label
        QCOMPARE(image.pixelColor(6, 40), QColor(Qt::red)); // on the body's left edge
    }
};

QTEST_MAIN(FloppyDiskIconTest)
#include "floppy_disk_icon_test.moc"

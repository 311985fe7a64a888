// The save button's floppy drawing, checked where it shows: on the pixels of the icon.
#include "ui/FloppyDiskIcon.h"

#include <QImage>
#include <QTest>

class FloppyDiskIconTest : public QObject {
    Q_OBJECT

private slots:
    // The outline in the colour given, the label's inside empty, the shape following a wide rectangle; the
    // line never thinner than a pixel.
    void icon() {
        const QImage image = FloppyDiskIcon::icon(64, Qt::red).pixmap(64, 64).toImage();
        QCOMPARE(image.pixelColor(32, 45).alpha(), 0);      // inside the label
        QCOMPARE(image.pixelColor(6, 40), QColor(Qt::red)); // on the body's left edge
        const QRectF wide(10, 20, 100, 50);
        QCOMPARE(FloppyDiskShape::path(wide).boundingRect(), QRectF(20, 26, 80, 38));
        QCOMPARE(FloppyDiskIcon::lineWidth(10), 1.0);
    }
};

QTEST_MAIN(FloppyDiskIconTest)
#include "floppy_disk_icon_test.moc"

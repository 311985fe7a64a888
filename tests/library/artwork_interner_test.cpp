#include "library/ArtworkInterner.h"

#include <QTest>
#include <QtConcurrent/QtConcurrentMap>

#include <numeric>

class ArtworkInternerTest : public QObject {
    Q_OBJECT

private slots:
    // Equal bytes in separate buffers come back as the first buffer, on both sides of the size from which
    // only the head and tail are hashed; images alike but for their middle stay apart.
    void sharesEqualBytesOnly_data() {
        QTest::addColumn<QByteArray>("image");
        QTest::addRow("small") << QByteArray("tiny image");
        QTest::addRow("large") << QByteArray(500 * 1024, 'b');
    }
    void sharesEqualBytesOnly() {
        QFETCH(QByteArray, image);
        ArtworkInterner interner;
        const QByteArray first = interner.intern(image);
        QCOMPARE(interner.intern(QByteArray(image.constData(), image.size())).constData(), first.constData());
        QByteArray other = image;
        other[image.size() / 2] = 'y';
        QCOMPARE(interner.intern(other).constData(), other.constData());
        QCOMPARE(interner.imageCount(), 2);
        QCOMPARE(interner.byteCount(), 2 * image.size());
    }

    void releasesImagesNoOneHolds() {
        ArtworkInterner interner;
        const QByteArray kept = interner.intern(QByteArray(1000, 'k'));
        interner.intern(QByteArray(1000, 'd'));
        interner.releaseUnused();
        QCOMPARE(interner.imageCount(), 1);
        QCOMPARE(interner.byteCount(), 1000);
        QCOMPARE(interner.intern(QByteArray(1000, 'k')).constData(), kept.constData());
        // Without a sweep now and then, a long session would keep every cover it ever saw.
        for (int i = 0; i < 10000; ++i)
            interner.intern(QByteArray::number(i).repeated(10));
        QVERIFY2(interner.imageCount() < 1000, qPrintable(QString::number(interner.imageCount())));
    }

    void isSafeFromManyThreads() {
        ArtworkInterner interner;
        QList<int> work(4000);
        std::iota(work.begin(), work.end(), 0);
        const QList<QByteArray> results = QtConcurrent::blockingMapped(
            work, [&interner](int i) { return interner.intern(QByteArray(20 * 1024, char('a' + i % 4))); });
        for (int i = 0; i < results.size(); ++i)
            QCOMPARE(results[i].constData(), results[i % 4].constData());
        QCOMPARE(interner.imageCount(), 4);
    }
};

QTEST_GUILESS_MAIN(ArtworkInternerTest)
#include "artwork_interner_test.moc"

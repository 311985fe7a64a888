#include "library/ArtworkInterner.h"

#include <QTest>
#include <QtConcurrent/QtConcurrentMap>

#include <numeric>

class ArtworkInternerTest : public QObject {
    Q_OBJECT

private slots:
    void sharesEqualBytes_data() {
        QTest::addColumn<QByteArray>("image");
        QTest::addRow("small") << QByteArray("tiny image");
        QTest::addRow("exactly two samples") << QByteArray(8192, 'a');
        QTest::addRow("large") << QByteArray(500 * 1024, 'b');
    }
    void sharesEqualBytes() {
        QFETCH(QByteArray, image);
        ArtworkInterner interner;
        const QByteArray first = interner.intern(image);
        const QByteArray copy(image.constData(), image.size()); // equal bytes, separate buffer
        QVERIFY(copy.constData() != first.constData());
        QCOMPARE(interner.intern(copy).constData(), first.constData());
        QCOMPARE(interner.imageCount(), 1);
        QCOMPARE(interner.byteCount(), image.size());
    }

    // Same size, head and tail: only the middle tells them apart.
    void keepsImagesThatDifferInTheMiddle() {
        ArtworkInterner interner;
        QByteArray two(100 * 1024, 'x');
        interner.intern(two);
        two[50 * 1024] = 'y';
        QCOMPARE(interner.intern(two), two);
        QCOMPARE(interner.imageCount(), 2);
    }

    void releasesImagesNoOneHolds() {
        ArtworkInterner interner;
        const QByteArray kept = interner.intern(QByteArray(1000, 'k'));
        interner.intern(QByteArray(1000, 'd'));
        interner.releaseUnused();
        QCOMPARE(interner.imageCount(), 1);
        QCOMPARE(interner.byteCount(), 1000);
        QCOMPARE(interner.intern(QByteArray(1000, 'k')).constData(), kept.constData());
    }

    // Without a sweep now and then, a long session would keep every cover it ever saw.
    void sweepsOnItsOwnAsImagesComeIn() {
        ArtworkInterner interner;
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

#include "library/Track.h"

#include <QTest>

#include <limits>

class TrackTest : public QObject {
    Q_OBJECT

private slots:
    void formatsTime_data() {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("expected");
        const QString dash(QChar(0x2014));
        QTest::addRow("zero") << 0.0 << "0:00";
        QTest::addRow("3:07") << 187.0 << "3:07";
        QTest::addRow("half rounds up") << 59.5 << "1:00";
        QTest::addRow("just below an hour") << 3599.4 << "59:59";
        QTest::addRow("an hour") << 3600.0 << "1:00:00";
        QTest::addRow("hours minutes seconds") << 3725.0 << "1:02:05";
        QTest::addRow("ten hours") << 36000.0 << "10:00:00";
        QTest::addRow("negative") << -1.0 << dash;
        QTest::addRow("tiny negative") << -0.1 << dash;
        QTest::addRow("nan") << std::numeric_limits<double>::quiet_NaN() << dash;
        QTest::addRow("infinity") << std::numeric_limits<double>::infinity() << dash;
    }
    void formatsTime() {
        QFETCH(double, seconds);
        QFETCH(QString, expected);
        QCOMPARE(formatTime(seconds), expected);
    }

    void labelsArtworkSources() {
        QCOMPARE(ArtworkSource::folder(QUrl::fromLocalFile("/music/a/cover.jpg")).label(),
                 "Folder: cover.jpg");
        QCOMPARE(ArtworkSource::embedded().label(), "Embedded in file");
        QCOMPARE(ArtworkSource::none().label(), "No artwork");
        QCOMPARE(ArtworkSource().kind(), ArtworkSource::Kind::None);
    }
};

QTEST_GUILESS_MAIN(TrackTest)
#include "track_test.moc"

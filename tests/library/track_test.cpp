#include "library/Track.h"

#include <QTest>

class TrackTest : public QObject {
    Q_OBJECT

private slots:
    void formatsTime_data() {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("expected");
        const QString dash(QChar(0x2014));
        const std::pair<double, QString> rows[] = {{0, "0:00"},       {59.5, "1:00"}, {3600, "1:00:00"},
                                                   {3725, "1:02:05"}, {-0.1, dash},   {qQNaN(), dash}};
        for (const auto& [seconds, expected] : rows)
            QTest::addRow("%g", seconds) << seconds << expected;
    }
    void formatsTime() {
        QFETCH(double, seconds);
        QTEST(formatTime(seconds), "expected");
    }
};

QTEST_GUILESS_MAIN(TrackTest)
#include "track_test.moc"

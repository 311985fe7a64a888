// The save dialog's extension rule.
#include "ui/FileDialogs.h"

#include <QTest>

class FileDialogsTest : public QObject {
    Q_OBJECT

private slots:
    void saveExtension_data() {
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("saved");
        QTest::addRow("other extension") << "/music/Mix.txt" << QString("/music/Mix.txt.m3u8");
        QTest::addRow("no extension") << "/music/Mix" << QString("/music/Mix.m3u8");
        QTest::addRow("upper-case pls kept") << "/music/Mix.PLS" << QString("/music/Mix.PLS");
        QTest::addRow("dot in folder only") << "/music.d/Mix" << QString("/music.d/Mix.m3u8");
    }

    void saveExtension() {
        QFETCH(QString, chosen);
        QFETCH(QString, saved);
        QCOMPARE(playlistSaveUrl(QUrl::fromLocalFile(chosen)), QUrl::fromLocalFile(saved));
    }
};

QTEST_MAIN(FileDialogsTest)
#include "file_dialogs_test.moc"

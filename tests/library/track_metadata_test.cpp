#include "library/TrackMetadata.h"

#include <QTest>

class TrackMetadataTest : public QObject {
    Q_OBJECT

private slots:
    // Each field lands in its own place, untrimmed, so that comparing the draft with the original shows no
    // edit the user did not make.
    void copiesTheEightTagsAsTheyStand() {
        const Track track{{},      {},           " Title\n", "Artist",  "Album", 0, false, "Album Artist",
                          "03/12", "1997-05-01", "\tjazz",   "Comment", {},      {}};
        QVERIFY(musicMetadata(track) == (MusicMetadata{" Title\n", "Artist", "Album", "Album Artist", "03/12",
                                                       "1997-05-01", "\tjazz", "Comment"}));
    }
};

QTEST_GUILESS_MAIN(TrackMetadataTest)
#include "track_metadata_test.moc"

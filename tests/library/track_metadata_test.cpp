#include "library/TrackMetadata.h"

#include <QTest>

class TrackMetadataTest : public QObject {
    Q_OBJECT

private slots:
    void copiesTheEightTagsAsTheyStand();
};

// Each field lands in its own place, untrimmed and not normalised, so that comparing the draft with the
// original shows no edit the user did not make.
void TrackMetadataTest::copiesTheEightTagsAsTheyStand() {
    Track track;
    track.title = " Title\n";
    track.artist = "Cafe\u0301";
    track.album = "Album";
    track.albumArtist = "Album Artist";
    track.trackNumber = "03/12";
    track.year = "1997-05-01";
    track.genre = "\tjazz";
    track.comment = "line\u2028";
    track.duration = 61;

    const MusicMetadata metadata = musicMetadata(track);

    QCOMPARE(metadata.title, " Title\n");
    QCOMPARE(metadata.artist, "Cafe\u0301");
    QVERIFY(metadata.artist.size() == 5); // still decomposed
    QCOMPARE(metadata.album, "Album");
    QCOMPARE(metadata.albumArtist, "Album Artist");
    QCOMPARE(metadata.trackNumber, "03/12");
    QCOMPARE(metadata.year, "1997-05-01");
    QCOMPARE(metadata.genre, "\tjazz");
    QCOMPARE(metadata.comment, "line\u2028");
}

QTEST_GUILESS_MAIN(TrackMetadataTest)
#include "track_metadata_test.moc"

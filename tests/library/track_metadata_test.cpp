#include "library/TrackMetadata.h"

#include <QTest>

class TrackMetadataTest : public QObject {
    Q_OBJECT

private slots:
    // Each field lands in its own place, untrimmed and not normalised, so that comparing the draft with the
    // original shows no edit the user did not make.
    void copiesTheEightTagsAsTheyStand() {
        Track track;
        track.title = " Title\n";
        track.artist = "Cafe\u0301";
        track.album = "Album";
        track.albumArtist = "Album Artist";
        track.trackNumber = "03/12";
        track.year = "1997-05-01";
        track.genre = "\tjazz";
        track.comment = "line\u2028";

        const MusicMetadata metadata = musicMetadata(track);

        QVERIFY(metadata == (MusicMetadata{" Title\n", "Cafe\u0301", "Album", "Album Artist", "03/12",
                                           "1997-05-01", "\tjazz", "line\u2028"}));
        QCOMPARE(metadata.artist.size(), 5); // still decomposed, which equality would not show
    }
};

QTEST_GUILESS_MAIN(TrackMetadataTest)
#include "track_metadata_test.moc"

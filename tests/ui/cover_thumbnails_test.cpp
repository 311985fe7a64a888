#include "library/MetadataLoader.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "ui/CoverThumbnails.h"

#include <QTest>

// Covers at a view's size: one decode per distinct picture and size, within the cache's bound.
class CoverThumbnailsTest : public QObject {
    Q_OBJECT

    fixtures::MusicFolder m_music;
    Track m_red1, m_red2, m_blue, m_bare;

    Track song(const QString& path) {
        return MetadataLoader::loadTrackNow(QUrl::fromLocalFile(m_music.addSong(path)));
    }

    // Asks for every track's thumbnail until all are there.
    static bool allReady(CoverThumbnails& covers, const QList<Track>& tracks, QSize size) {
        return std::all_of(tracks.begin(), tracks.end(),
                           [&](const Track& track) { return !covers.thumbnail(track, size).isNull(); });
    }

private slots:
    void initTestCase() {
        m_music.addFile("red/cover.jpg", fixtures::pictureBytes("JPEG", Qt::red, 300));
        m_music.addFile("blue/cover.jpg", fixtures::pictureBytes("JPEG", Qt::blue, 300));
        m_red1 = song("red/1.mp3");
        m_red2 = song("red/2.mp3");
        m_blue = song("blue/3.mp3");
        m_bare = song("bare/4.mp3");
    }

    void decodesEachPictureOncePerSize() {
        CoverThumbnails covers;
        const QList<Track> tracks{m_red1, m_red2, m_blue};
        QTRY_VERIFY(allReady(covers, tracks, {32, 32}));
        QCOMPARE(covers.decodeCount(), 2);
        QTRY_VERIFY(allReady(covers, tracks, {64, 64}));
        QCOMPARE(covers.decodeCount(), 4);
        const QImage red = covers.thumbnail(m_red2, {64, 64}).toImage();
        QCOMPARE(red.size(), QSize(64, 64));
        QVERIFY(qRed(red.pixel(32, 32)) > 200 && qBlue(red.pixel(32, 32)) < 60);
        QVERIFY(covers.thumbnail(m_bare, {64, 64}).isNull());
        QCOMPARE(covers.decodeCount(), 4);
    }

    void staysWithinItsBound() {
        const qsizetype oneThumbnail = 32 * 32 * 4;
        CoverThumbnails covers(nullptr, oneThumbnail * 3 / 2);
        QTRY_VERIFY(allReady(covers, {m_red1}, {32, 32}));
        QTRY_VERIFY(allReady(covers, {m_blue}, {32, 32}));
        QCOMPARE(covers.cachedBytes(), oneThumbnail);
    }
};

QTEST_MAIN(CoverThumbnailsTest)
#include "cover_thumbnails_test.moc"

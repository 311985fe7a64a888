// The metadata cache is only a cache: whatever happens to it or to the files, a load ends with the files'
// own tags and pictures and with every song.
#include "library/MetadataCache.h"
#include "library/TrackArtwork.h"
#include "library/TrackBatchLoader.h"
#include "support/FileContents.h"
#include "support/MusicFolder.h"
#include "support/Pictures.h"
#include "tags/ID3TagWriter.h"

#include <QFile>
#include <QProcess>
#include <QTest>
#include <QtEndian>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

namespace {

const char* const childVariable = "ORVELLE_METADATA_CACHE_CHILD";

// The modification time to the nanosecond, as the cache compares it.
timespec modified(const QString& path) {
    struct stat status {};
    ::stat(QFile::encodeName(path).constData(), &status);
    return status.st_mtim;
}

// Replaces `from` by `to` (as long) inside the file, appends `appended`, then sets its modification time.
bool editInPlace(const QString& path, const QByteArray& from, const QByteArray& to, timespec time,
                 const QByteArray& appended = {}) {
    QByteArray bytes = fixtures::readFile(path);
    const qsizetype at = bytes.indexOf(from);
    if (at < 0 || from.size() != to.size())
        return false;
    bytes.replace(at, to.size(), to);
    const timespec times[2] = {{0, UTIME_OMIT}, time};
    return fixtures::writeFile(path, bytes + appended) &&
           ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

} // namespace

class MetadataCacheTest : public QObject {
    Q_OBJECT

private:
    fixtures::MusicFolder m_music;
    QString m_cache;
    QList<QUrl> m_songs;

    // "title [artwork label]" per track. With `trusted`, also checks that every track is what reading its
    // file without the cache gives.
    QString load(bool trusted = true) {
        const QList<Track> tracks =
            TrackBatchLoader::loadTracksNow(TrackBatchLoader::requestsFor(m_songs), m_cache);
        QStringList shown;
        for (const Track& track : tracks) {
            Track read = MetadataLoader::loadTrackNow(track.url());
            read.id = track.id;
            if (trusted && read != track)
                return "stale entry for " + track.url().fileName();
            shown.append(QStringLiteral("%1 [%2]%3")
                             .arg(displayTitle(track), track.artworkSource().label(),
                                  track.isMissing ? " missing" : ""));
        }
        return shown.join(u'|');
    }

private slots:
    void init() {
        if (qEnvironmentVariableIsSet(childVariable))
            return;
        m_songs.clear();
        for (const QString name : {"album/1.mp3", "album/2.mp3"}) {
            QVERIFY(!m_music.addSong(name).isEmpty());
            m_songs.append(m_music.url(name));
        }
        m_cache = m_music.filePath(QStringLiteral("cache/%1.sqlite").arg(QTest::currentDataTag()));
        m_music.addFile("album/cover.jpg", fixtures::pictureBytes("JPG", Qt::green, 64));
        QVERIFY(!ID3TagWriter::write({"Alpha", "Artist", "Album", "", "1", "", "", ""},
                                     fixtures::pictureBytes("PNG", Qt::red), m_songs[0]));
        QVERIFY(!ID3TagWriter::write({"Bravo", "Artist", "Album", "", "2", "", "", ""}, std::nullopt,
                                     m_songs[1]));
        QCOMPARE(load(), "Alpha [Embedded in file]|Bravo [Folder: cover.jpg]");
    }

    void faults_data() {
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("trusted"); // the load must match the files
        const QString fresh = "Omega [Embedded in file]|Bravo [Folder: cover.jpg]";
        const QString original = "Alpha [Embedded in file]|Bravo [Folder: cover.jpg]";
        QTest::addRow("unchanged file: the cache answers") << original << false;
        QTest::addRow("same size, a nanosecond later") << fresh << true;
        QTest::addRow("same time, new size") << fresh << true;
        QTest::addRow("deleted file") << "Alpha [Embedded in file]|2 [No artwork] missing" << true;
        QTest::addRow("folder cover replaced") << original << true;
        QTest::addRow("truncated cache") << original << true;
        QTest::addRow("garbage cache") << fresh << true;
        QTest::addRow("cache of a newer version") << fresh << true;
        QTest::addRow("saved through the program")
            << "Zulu [Embedded in file]|Bravo [Folder: cover.jpg]" << false;
        QTest::addRow("two processes at once") << original << true;
    }

    // Each row damages something, then loads. Rows marked `fresh` also change the song's title without
    // changing its size or time wherever the cache should no longer be trusted, so reading a stale entry
    // would show.
    void faults() {
        QFETCH(QString, expected);
        QFETCH(bool, trusted);
        const QString fault = QTest::currentDataTag();
        const QString song = m_songs[0].toLocalFile();
        const timespec time = modified(song);
        const auto sneakyEdit = [&] { return editInPlace(song, "Alpha", "Omega", time); };
        if (fault.startsWith("unchanged")) {
            QVERIFY(sneakyEdit());
        } else if (fault.startsWith("same size")) {
            QVERIFY(editInPlace(song, "Alpha", "Omega", {time.tv_sec, (time.tv_nsec + 1) % 1'000'000'000}));
        } else if (fault == "same time, new size") {
            QVERIFY(editInPlace(song, "Alpha", "Omega", time, QByteArray(100, '\0')));
        } else if (fault == "deleted file") {
            QVERIFY(QFile::remove(m_songs[1].toLocalFile()));
        } else if (fault == "folder cover replaced") {
            m_music.addFile("album/cover.jpg", fixtures::pictureBytes("JPG", Qt::blue, 80));
        } else if (fault == "truncated cache") {
            QVERIFY(QFile::resize(m_cache, QFileInfo(m_cache).size() / 2));
        } else if (fault == "garbage cache") {
            QVERIFY(fixtures::writeFile(m_cache, QByteArray(20000, '\x5a')) && sneakyEdit());
        } else if (fault.startsWith("cache of a newer")) {
            // SQLite keeps the schema version ("user_version") as a big-endian number at byte 60 of the file.
            // No connection is open between loads, so the file holds every change.
            QByteArray bytes = fixtures::readFile(m_cache);
            QVERIFY(bytes.size() > 64);
            qToBigEndian<qint32>(MetadataCache::version + 1, bytes.data() + 60);
            QVERIFY(fixtures::writeFile(m_cache, bytes) && sneakyEdit());
        } else if (fault.startsWith("saved")) {
            Track saved =
                TrackBatchLoader::loadTracksNow(TrackBatchLoader::requestsFor({m_songs[0]}), m_cache)[0];
            saved.setTitle("Zulu");
            QVERIFY(!ID3TagWriter::write({"Zulu", "Artist", "Album", "", "1", "", "", ""}, loadArtwork(saved),
                                         saved.url()));
            MetadataCache::rememberSaved(saved, m_cache).waitForFinished();
            // The entry now answers for the saved file: a same-size, same-time edit stays unseen.
            QVERIFY(editInPlace(song, "Zulu", "Yank", modified(song)));
        } else if (fault.startsWith("two processes")) {
            QVERIFY(QFile::remove(m_cache));
            qputenv(childVariable,
                    QFile::encodeName(m_cache + '\n' + song + '\n' + m_songs[1].toLocalFile()));
            QProcess children[3];
            for (QProcess& child : children)
                child.start(QCoreApplication::applicationFilePath(), {"loadsInAChild"});
            qunsetenv(childVariable);
            QCOMPARE(load(), expected);
            for (QProcess& child : children) {
                QVERIFY(child.waitForFinished(60000));
                const QByteArray output = child.readAllStandardOutput() + child.readAllStandardError();
                QVERIFY2(child.exitCode() == 0 && output.contains(expected.toUtf8()), output.constData());
            }
        }
        QCOMPARE(load(trusted), expected);
        if (fault.startsWith("cache of a newer"))
            QCOMPARE(qFromBigEndian<qint32>(fixtures::readFile(m_cache).constData() + 60),
                     MetadataCache::version + 1); // left as it was
        if (fault.endsWith("cache"))
            QCOMPARE(load(trusted), expected); // and the cache works again
    }

    // A file renamed since the last load leaves no entry behind once its folder is loaded again.
    void forgetsFilesThatAreGone() {
        const QString renamed = m_music.filePath("album/3.mp3");
        QVERIFY(QFile::rename(m_songs[1].toLocalFile(), renamed));
        m_songs[1] = QUrl::fromLocalFile(renamed);
        QCOMPARE(load(), "Alpha [Embedded in file]|Bravo [Folder: cover.jpg]");
        QList<QByteArray> names =
            MetadataCache(m_cache).filesIn(QFile::encodeName(m_music.filePath("album"))).keys();
        std::sort(names.begin(), names.end());
        QCOMPARE(names, (QList<QByteArray>{"1.mp3", "3.mp3"}));
    }

    // Run by "two processes at once" in other processes: loads the songs it is given and prints them.
    void loadsInAChild() {
        const QStringList given = qEnvironmentVariable(childVariable).split('\n');
        if (given.size() < 3)
            QSKIP("run by the faults test");
        m_cache = given[0];
        m_songs = {QUrl::fromLocalFile(given[1]), QUrl::fromLocalFile(given[2])};
        std::printf("%s\n", qPrintable(load()));
    }
};

QTEST_GUILESS_MAIN(MetadataCacheTest)
#include "metadata_cache_test.moc"

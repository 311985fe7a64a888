#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QString>
#include <QUrl>

#include <functional>
#include <future>
#include <optional>

// Finds cover art kept as an image file beside a song (cover.jpg, folder.jpg, …) rather than in its tags.
// The song's folder is searched first, then the folder above it (never the file-system root). Every image
// file is scored by its name; the best one that decodes is returned as a JPEG of at most 600 pixels on its
// longer side, with the image's orientation applied.
//
// Results are remembered per folder for the life of the object, "nothing found" included, so each folder is
// listed and decoded at most once however many songs ask. All members are safe to call from any thread:
// concurrent requests for one folder wait for the one scan in progress, while different folders scan in
// parallel. Every caller asking about the same folder receives the same implicitly shared bytes.
class FolderArtworkCache {
public:
    struct Found {
        QByteArray data; // a JPEG image
        QUrl sourceUrl;  // the image file it was made from
    };
    struct Candidate {
        QUrl url;
        qint64 rank = 0; // rank(fileName), higher is better
        qint64 size = 0; // bytes, 0 when unknown
    };
    // Called with the folder's path each time a folder is actually scanned, on the scanning thread.
    using ScanObserver = std::function<void(const QString& folderPath)>;

    static constexpr int maxPixelSize = 600;
    static constexpr int jpegQuality = 85;

    FolderArtworkCache() = default;
    explicit FolderArtworkCache(ScanObserver onScan);
    FolderArtworkCache(const FolderArtworkCache&) = delete;
    FolderArtworkCache& operator=(const FolderArtworkCache&) = delete;

    // Cover art for the song at songUrl (a local file URL). Blocks while a folder is being scanned.
    std::optional<Found> artwork(const QUrl& songUrl);
    // Cached search of one folder (a local file URL).
    std::optional<Found> lookup(const QUrl& folderUrl);

    // The image file artwork() would most likely make its picture from, found without decoding any image:
    // the best candidate whose header reads as an image, in the song's folder, then in the one above. For
    // loaders that keep only where a picture is and make it when it is shown.
    static std::optional<QUrl> imageFor(const QUrl& songUrl);

    // Uncached search of one folder: the first candidate that makes a thumbnail.
    static std::optional<Found> scan(const QUrl& folderUrl);
    // The folder's visible regular image files, best first: by rank, then larger file, then by name.
    static QList<Candidate> candidates(const QUrl& folderUrl);
    // Score of an image file's name: "cover.jpg" 90, "AlbumArt_{x}_Large.jpg" 100, "cd.jpg" -10, …
    static qint64 rank(const QString& fileName);
    // The image decoded with its orientation applied, scaled to at most maxPixels on its longer side and
    // encoded as JPEG; nothing when it cannot be decoded or encoded, or decoding it would take more memory
    // than QImageReader::allocationLimit() allows.
    static std::optional<QByteArray> thumbnail(const QUrl& imageUrl, int maxPixels = maxPixelSize);
    // Lower-case extensions of the files considered: jpg, jpeg, png, gif, bmp, tiff, tif, heic.
    static const QList<QString>& imageExtensions();

private:
    using Result = std::shared_future<std::optional<Found>>;

    ScanObserver m_onScan;
    QMutex m_mutex;                   // guards m_results only; never held during a scan
    QHash<QString, Result> m_results; // folder path -> finished or in-flight scan
};

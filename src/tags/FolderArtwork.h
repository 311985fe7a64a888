#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// Finds cover art kept as an image file beside a song (cover.jpg, folder.jpg, …) rather than in its tags.
// The song's folder is searched first, then the folder above it (never the file-system root). Every image
// file is scored by its name; the best one whose header reads as an image is the song's cover, shown as a
// JPEG of at most 600 pixels on its longer side, with the image's orientation applied. Nothing is kept
// between calls, and every member is safe to call from any thread.
class FolderArtwork {
public:
    struct Candidate {
        QUrl url;
        qint64 rank = 0; // rank(fileName), higher is better
        qint64 size = 0; // bytes, 0 when unknown
    };

    static constexpr int maxPixelSize = 600;
    static constexpr int jpegQuality = 85;

    FolderArtwork() = delete;

    // The image file to make the song's picture from, found without decoding any image: the best candidate
    // whose header reads as an image (its first bytes are those of a format this build decodes), in the
    // song's folder (a local file URL), then in the one above. For loaders that keep only where a picture
    // is and make it when it is shown.
    static std::optional<QUrl> imageFor(const QUrl& songUrl);
    // The folder's visible regular image files, best first: by rank, then larger file, then by name.
    static QList<Candidate> candidates(const QUrl& folderUrl);
    // Score of an image file's name: "cover.jpg" 90, "AlbumArt_{x}_Large.jpg" 100, "cd.jpg" -10, …
    static qint64 rank(const QString& fileName);
    // The image decoded with its orientation applied, scaled to at most maxPixels on its longer side and
    // encoded as JPEG; nothing when it cannot be decoded or encoded, or decoding it would take more memory
    // than QImageReader::allocationLimit() allows.
    static std::optional<QByteArray> thumbnail(const QUrl& imageUrl, int maxPixels = maxPixelSize);
};

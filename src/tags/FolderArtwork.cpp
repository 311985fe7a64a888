#include "FolderArtwork.h"

#include "FileNames.h"
#include "JpegLayout.h"
#include "TagsLog.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>

#include <dirent.h>

#include <algorithm>
#include <memory>

namespace {

// The folder's path: absolute, without "." or ".." or a trailing slash.
QString folderPath(const QUrl& folderUrl) {
    return QDir::cleanPath(QFileInfo(folderUrl.toLocalFile()).absoluteFilePath());
}

bool hasWord(const QString& text, std::initializer_list<QLatin1StringView> words) {
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text.at(i).isLetterOrNumber())
            continue;
        const QStringView word = QStringView(text).sliced(start, i - start);
        if (!word.isEmpty() && std::any_of(words.begin(), words.end(), [&](auto w) { return word == w; }))
            return true;
        start = i + 1;
    }
    return false;
}

bool containsAny(const QString& text, std::initializer_list<QLatin1StringView> parts) {
    return std::any_of(parts.begin(), parts.end(), [&](auto part) { return text.contains(part); });
}

// JPEG has no alpha: flatten transparent covers onto white rather than letting them turn black.
QImage withoutAlpha(const QImage& image) {
    if (!image.hasAlphaChannel())
        return image;
    QImage flat(image.size(), QImage::Format_RGB32);
    flat.fill(Qt::white);
    QPainter painter(&flat);
    painter.drawImage(0, 0, image);
    return flat;
}

// A progressive JPEG is decoded from a buffer of every coefficient of the full image whatever the output
// size (a 2 MB file can ask for gigabytes): hold that buffer to the limit the reader puts on pixels.
bool withinDecodeLimit(QIODevice& file) {
    const auto layout = readJpegLayout(file);
    const qint64 limit = qint64(QImageReader::allocationLimit()) * 1024 * 1024;
    return !layout || !layout->buffered || limit <= 0 || layout->coefficientBytes <= limit;
}

// The folders searched for a song's cover, in order: its own, then the one above (never the root).
QList<QUrl> searchedFolders(const QUrl& songUrl) {
    if (!songUrl.isLocalFile())
        return {};
    const QString folder = QFileInfo(QDir::cleanPath(songUrl.toLocalFile())).path();
    const QString parent = QFileInfo(folder).path();
    if (parent == folder || parent == u"/")
        return {QUrl::fromLocalFile(folder)};
    return {QUrl::fromLocalFile(folder), QUrl::fromLocalFile(parent)};
}

// Lower-case extensions of the files considered.
const QList<QString>& imageExtensions() {
    static const QList<QString> extensions{u"jpg"_qs, u"jpeg"_qs, u"png"_qs, u"gif"_qs,
                                           u"bmp"_qs, u"tiff"_qs, u"tif"_qs, u"heic"_qs};
    return extensions;
}

// The names in the folder, as the file system lists them. Read straight from the directory so that only
// the image files among them are looked at further: a folder of songs costs one listing, not a stat per song.
QStringList namesIn(const QString& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(QFile::encodeName(folder).constData()), closedir);
    QStringList names;
    if (!dir)
        return names;
    while (const dirent* entry = readdir(dir.get()))
        names.append(QFile::decodeName(entry->d_name));
    return names;
}

// The image format the file's first bytes announce ("jpeg", "png", …); empty when none does.
QByteArray formatOfHeader(const QByteArray& head) {
    struct Signature {
        qsizetype offset;
        QByteArrayView bytes;
        const char* format;
    };
    static constexpr Signature signatures[] = {
        {0, "\xFF\xD8\xFF", "jpeg"},
        {0, "\x89PNG\r\n\x1A\n", "png"},
        {0, "GIF87a", "gif"},
        {0, "GIF89a", "gif"},
        {0, "BM", "bmp"},
        {0, {"II*\0", 4}, "tiff"},
        {0, {"MM\0*", 4}, "tiff"},
        {4, "ftypheic", "heic"},
        {4, "ftypheix", "heic"},
        {4, "ftypmif1", "heic"},
        {4, "ftypmsf1", "heic"},
    };
    for (const Signature& signature : signatures) {
        if (QByteArrayView(head).sliced(std::min(signature.offset, head.size())).startsWith(signature.bytes))
            return signature.format;
    }
    return {};
}

// Whether the file's header is that of an image this build can decode. A few bytes decide it: opening an
// image reader for every folder of a large library costs more than reading the songs' tags. Qt always
// decodes JPEG, PNG, GIF and BMP; TIFF and HEIC need plugins that may be missing, and asking which are
// there loads every plugin, so it is asked only once such a file turns up.
bool readsAsImage(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(16);
    const QByteArray format = formatOfHeader(head);
    if (format.isEmpty())
        return false;
    // A file that only begins like a JPEG or PNG is passed over: its header must go on to give the
    // picture's size, as the decoder will ask first.
    if (format == "jpeg") {
        const auto layout = file.seek(0) ? readJpegLayout(file) : std::nullopt;
        return layout && !layout->size.isEmpty();
    }
    if (format == "png")
        return head.mid(12, 4) == "IHDR";
    if (format != "tiff" && format != "heic")
        return true;
    static const QList<QByteArray> decodable = QImageReader::supportedImageFormats();
    return decodable.contains(format);
}

} // namespace

std::optional<QUrl> FolderArtwork::imageFor(const QUrl& songUrl) {
    for (const QUrl& folder : searchedFolders(songUrl)) {
        for (const Candidate& candidate : candidates(folder)) {
            if (readsAsImage(candidate.url.toLocalFile()))
                return candidate.url;
        }
    }
    return std::nullopt;
}

QList<FolderArtwork::Candidate> FolderArtwork::candidates(const QUrl& folderUrl) {
    // Only regular files (or links to them): reading a FIFO or a device named cover.jpg would block or
    // never end. Hidden files are listed here and skipped by name below, the same on every file system.
    const QString folder = folderPath(folderUrl);
    QList<Candidate> result;
    for (const QString& name : namesIn(folder)) {
        if (!imageExtensions().contains(FileNames::extension(name)))
            continue;
        const QFileInfo entry(folder + u'/' + name);
        if (name.startsWith(u'.') || !entry.isFile())
            continue;
        result.append(
            {QUrl::fromLocalFile(entry.absoluteFilePath()), rank(name), std::max<qint64>(entry.size(), 0)});
    }
    std::sort(result.begin(), result.end(), [](const Candidate& a, const Candidate& b) {
        if (a.rank == b.rank && a.size == b.size)
            return a.url.fileName() < b.url.fileName();
        return a.rank != b.rank ? a.rank > b.rank : a.size > b.size;
    });
    return result;
}

qint64 FolderArtwork::rank(const QString& fileName) {
    const QString stem = FileNames::withoutExtension(fileName).toString().toLower();

    qint64 score = 20;
    if (stem.startsWith(u"albumart_"))
        score = 85;
    else if (stem == u"cover" || stem == u"folder" || stem == u"front" || stem == u"album" ||
             stem == u"albumart" || stem == u"artwork")
        score = 90;
    else if (stem.startsWith(u"albumart"))
        score = 80;
    else if (containsAny(
                 stem, {QLatin1StringView("cover"), QLatin1StringView("front"), QLatin1StringView("folder")}))
        score = 70;

    if (stem.contains(u"large"))
        score += 15;
    if (containsAny(stem, {QLatin1StringView("small"), QLatin1StringView("thumb")}))
        score -= 50;
    if (hasWord(stem, {QLatin1StringView("back"), QLatin1StringView("disc"), QLatin1StringView("cd"),
                       QLatin1StringView("backcover")}))
        score -= 30;
    return score;
}

std::optional<QByteArray> FolderArtwork::thumbnail(const QUrl& imageUrl, int maxPixels) {
    QFile file(imageUrl.toLocalFile());
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    if (!withinDecodeLimit(file) || !file.seek(0)) {
        qCDebug(lcTags) << "too large to decode" << file.fileName();
        return std::nullopt;
    }
    QImageReader reader(&file);
    reader.setAutoTransform(true);
    // Asking the reader for the reduced size lets JPEGs (at 1/2, 1/4 or 1/8 scale) and plain RGB PNGs (row
    // by row) decode straight to it, so a huge image never exists in memory at full size. Other images
    // decode whole within the reader's allocation limit, or fail instead of exhausting memory.
    const QSize size = reader.size();
    const QSize limit(maxPixels, maxPixels);
    if (size.isValid() && (size.width() > maxPixels || size.height() > maxPixels))
        reader.setScaledSize(size.scaled(limit, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
    QImage image = reader.read();
    if (image.isNull()) {
        qCDebug(lcTags) << "cannot decode" << file.fileName() << reader.errorString();
        return std::nullopt;
    }
    if (image.width() > maxPixels || image.height() > maxPixels)
        image = image.scaled(limit, Qt::KeepAspectRatio, Qt::SmoothTransformation);

    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(jpegQuality);
    if (!writer.write(withoutAlpha(image))) {
        qCDebug(lcTags) << "cannot encode" << file.fileName() << writer.errorString();
        return std::nullopt;
    }
    return bytes;
}

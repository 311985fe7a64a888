#include "tags/ID3TagWriter.h"

#include "tags/AtomicFile.h"
#include "tags/FileNames.h"
#include "tags/Id3Genres.h"
#include "tags/TextRules.h"

#include <QFile>
#include <QFileInfo>
#include <QList>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

namespace {

constexpr char textEncodingUtf8 = 0x03;
constexpr char frontCover = 0x03;
constexpr qint64 headerSize = 10;
constexpr qint64 id3v1Size = 128;
constexpr quint8 noGenre = 255;

qint64 readSyncsafe(QByteArrayView data, qsizetype offset) {
    qint64 n = 0;
    for (qsizetype i = 0; i < 4; ++i)
        n = (n << 7) | (quint8(data[offset + i]) & 0x7F);
    return n;
}

// A decimal integer: an optional sign, then ASCII digits only. Values beyond the track byte's range only
// need to stay beyond it, so long digit strings saturate instead of overflowing.
std::optional<qint64> parseInteger(QStringView text) {
    bool negative = false;
    if (text.startsWith(u'+') || text.startsWith(u'-')) {
        negative = text.front() == u'-';
        text = text.mid(1);
    }
    if (text.isEmpty())
        return std::nullopt;
    qint64 value = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = std::min<qint64>(value * 10 + (c.unicode() - u'0'), std::numeric_limits<int>::max());
    }
    return negative ? -value : value;
}

// Why the file may not be rewritten (an errno value), if it may not. Replacing it needs only the folder's
// permission, so its own is checked first: a file without any write permission is refused as other taggers
// refuse it, the superuser included, whom the system would let write anything.
std::optional<int> writeProtection(const QString& path) {
    const QByteArray local = QFile::encodeName(path);
    struct stat info {};
    if (::stat(local.constData(), &info) == 0 && (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0)
        return EACCES;
    if (::access(local.constData(), W_OK) != 0)
        return errno;
    return std::nullopt;
}

// The audio's place in a file of `size` bytes, from its first 10 and last 128 bytes (fewer in a shorter
// file).
ID3TagWriter::Range audioRangeOf(QByteArrayView head, QByteArrayView tail, qint64 size) {
    qint64 start = 0;
    if (head.size() >= headerSize && head.startsWith("ID3")) {
        start = headerSize + readSyncsafe(head, 6);
        if (quint8(head[5]) & 0x10) // a footer follows the tag
            start += headerSize;
    }
    const qint64 end = tail.size() >= id3v1Size && tail.first(3) == "TAG" ? size - id3v1Size : size;
    if (start < end && end <= size)
        return ID3TagWriter::Range{start, end - start};
    return {};
}

// Reads exactly `length` bytes at `offset` (fewer only at the end of the file); nothing on a read error.
std::optional<QByteArray> readAt(int fd, qint64 offset, qint64 length) {
    QByteArray bytes(length, Qt::Uninitialized);
    qint64 done = 0;
    while (done < length) {
        const ssize_t got = ::pread(fd, bytes.data() + done, size_t(length - done), offset + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break;
        done += got;
    }
    bytes.truncate(done);
    return bytes;
}

// Closes the file it holds when it goes.
struct FileDescriptor {
    int fd;
    ~FileDescriptor() {
        if (fd >= 0)
            ::close(fd);
    }
};

} // namespace

QString ID3TagWriter::WriteError::extension() const {
    return FileNames::extension(url.fileName());
}

QString ID3TagWriter::WriteError::description() const {
    const QString name = url.fileName();
    switch (kind) {
    case Kind::NotMP3:
        return QStringLiteral("Tag editing currently supports MP3 files only. This is a .%1 file \u2014 its "
                              "metadata can be viewed but not saved.")
            .arg(extension());
    case Kind::Unreadable:
        return QStringLiteral("Couldn't read %1.").arg(name);
    case Kind::NoAudioFound:
        return QStringLiteral(
                   "%1 doesn't contain any audio data after its tag. It may be damaged; nothing was "
                   "changed.")
            .arg(name);
    case Kind::TooLarge:
        return QStringLiteral(
                   "The tags for %1 would be larger than an MP3 tag can hold (256 MB); nothing was "
                   "changed.")
            .arg(name);
    case Kind::Unwritable:
        return QStringLiteral("Couldn't save %1: %2.").arg(name, reason);
    }
    return {};
}

std::optional<ID3TagWriter::WriteError> ID3TagWriter::write(const MusicMetadata& metadata,
                                                            const std::optional<QByteArray>& artwork,
                                                            const QUrl& url) {
    if (FileNames::extension(url.fileName()) != u"mp3")
        return WriteError{WriteError::Kind::NotMP3, url, {}};

    const QString path = url.toLocalFile();
    // Only a regular file: O_NONBLOCK keeps a FIFO named like a song from waiting for a writer, and fstat
    // turns it away.
    const FileDescriptor file{
        path.isEmpty() ? -1 : ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat status {};
    if (file.fd < 0 || ::fstat(file.fd, &status) != 0 || !S_ISREG(status.st_mode))
        return WriteError{WriteError::Kind::Unreadable, url, {}};
    // Only the tags' edges are read; the audio between them is copied file to file.
    const qint64 size = status.st_size;
    const std::optional<QByteArray> head = readAt(file.fd, 0, std::min(headerSize, size));
    const std::optional<QByteArray> tail =
        readAt(file.fd, std::max<qint64>(size - id3v1Size, 0), std::min(id3v1Size, size));
    if (!head || !tail)
        return WriteError{WriteError::Kind::Unreadable, url, {}};
    if (const std::optional<int> denied = writeProtection(path))
        return WriteError{WriteError::Kind::Unwritable, url, qt_error_string(*denied)};

    const Range audio = audioRangeOf(*head, *tail, size);
    if (audio.length == 0)
        return WriteError{WriteError::Kind::NoAudioFound, url, {}};

    const std::optional<QByteArray> tag = buildTag(metadata, artwork);
    if (!tag)
        return WriteError{WriteError::Kind::TooLarge, url, {}};

    const SplicedContents output{*tag, file.fd, audio.start, audio.length, buildID3v1Tag(metadata)};
    if (const std::optional<QString> error =
            replaceFileAtomically(output, path, ReplaceMode::ReplaceExisting))
        return WriteError{WriteError::Kind::Unwritable, url, *error};
    return std::nullopt;
}

std::optional<QByteArray> ID3TagWriter::buildTag(const MusicMetadata& metadata,
                                                 const std::optional<QByteArray>& artwork) {
    // Refuse an image that alone cannot fit before copying it around.
    if (artwork && artwork->size() >= syncsafeLimit)
        return std::nullopt;
    const QByteArray frames = textFrame("TIT2", metadata.title) + textFrame("TPE1", metadata.artist) +
                              textFrame("TALB", metadata.album) + textFrame("TPE2", metadata.albumArtist) +
                              textFrame("TRCK", metadata.trackNumber) + textFrame("TDRC", metadata.year) +
                              textFrame("TCON", metadata.genre) + commentFrame(metadata.comment) +
                              pictureFrame(artwork);
    // Every frame is smaller than all of them together, so this one check keeps every size in range.
    if (frames.size() >= syncsafeLimit)
        return std::nullopt;
    return QByteArrayLiteral("ID3\x04\x00\x00") + syncsafe(quint32(frames.size())) + frames;
}

QByteArray ID3TagWriter::textFrame(const char* id, const QString& value) {
    const QString text = TextRules::trimmed(value);
    if (text.isEmpty())
        return {};
    return frame(id, textEncodingUtf8 + text.toUtf8());
}

QByteArray ID3TagWriter::commentFrame(const QString& comment) {
    const QString text = TextRules::trimmed(comment);
    if (text.isEmpty())
        return {};
    return frame("COMM", QByteArrayLiteral("\x03"
                                           "eng\x00") +
                             text.toUtf8());
}

QByteArray ID3TagWriter::pictureFrame(const std::optional<QByteArray>& image) {
    if (!image || image->isEmpty())
        return {};
    QByteArray body;
    body.reserve(image->size() + 16);
    body += textEncodingUtf8;
    body += imageMimeType(*image);
    body += '\0';
    body += frontCover;
    body += '\0'; // empty description
    body += *image;
    return frame("APIC", body);
}

QByteArray ID3TagWriter::frame(const char* id, const QByteArray& body) {
    return QByteArray(id, 4) + syncsafe(quint32(body.size())) + QByteArrayLiteral("\x00\x00") + body;
}

QByteArray ID3TagWriter::syncsafe(quint32 n) {
    const char bytes[4] = {char((n >> 21) & 0x7F), char((n >> 14) & 0x7F), char((n >> 7) & 0x7F),
                           char(n & 0x7F)};
    return QByteArray(bytes, 4);
}

QByteArray ID3TagWriter::imageMimeType(const QByteArray& image) {
    if (image.startsWith("\xFF\xD8\xFF"))
        return "image/jpeg";
    if (image.size() >= 4 && quint8(image[0]) == 0x89 && image[1] == 'P')
        return "image/png";
    return "image/jpeg";
}

ID3TagWriter::Range ID3TagWriter::audioRange(const QByteArray& data) {
    const QByteArrayView bytes(data);
    return audioRangeOf(bytes.first(std::min(headerSize, bytes.size())),
                        bytes.last(std::min(id3v1Size, bytes.size())), bytes.size());
}

QByteArray ID3TagWriter::buildID3v1Tag(const MusicMetadata& metadata) {
    QByteArray tag = "TAG";
    tag.reserve(id3v1Size);
    tag += latin1Field(metadata.title, 30);
    tag += latin1Field(metadata.artist, 30);
    tag += latin1Field(metadata.album, 30);
    tag += latin1Field(metadata.year, 4);
    tag += latin1Field(metadata.comment, 28);
    tag += '\0'; // marks the next byte as a track number (ID3v1.1)
    tag += char(trackByte(metadata.trackNumber));
    tag += char(genreIndex(metadata.genre));
    return tag;
}

QByteArray ID3TagWriter::latin1Field(const QString& value, int size) {
    // Composed first, so that "e" + U+0301 becomes the one Latin-1 byte 0xE9, and one '?' stands for each
    // character Latin-1 lacks, even outside the Basic Multilingual Plane.
    const QString text = TextRules::trimmed(value).normalized(QString::NormalizationForm_C);
    QByteArray field;
    field.reserve(size);
    for (const char32_t codePoint : text.toUcs4()) {
        if (field.size() == size)
            break;
        field += codePoint <= 0xFF ? char(codePoint) : '?';
    }
    field.append(size - field.size(), '\0');
    return field;
}

quint8 ID3TagWriter::trackByte(const QString& trackNumber) {
    const QStringList pieces = trackNumber.split(u'/', Qt::SkipEmptyParts);
    if (pieces.isEmpty())
        return 0;
    const std::optional<qint64> number = parseInteger(pieces.first());
    if (!number || *number < 0)
        return 0;
    return quint8(std::min<qint64>(*number, 255));
}

quint8 ID3TagWriter::genreIndex(const QString& genre) {
    const QString name = TextRules::trimmed(genre);
    if (name.isEmpty())
        return noGenre;
    const QStringList& names = Id3Genres::names();
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (TextRules::equalIgnoringCase(name, names[i]))
            return quint8(i);
    }
    return noGenre;
}

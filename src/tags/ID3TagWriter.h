#pragma once

#include "tags/MusicMetadata.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

// Rewrites the tags of an MP3 file: a fresh ID3v2.4 tag, the file's audio bytes untouched, and a fresh
// 128-byte ID3v1.1 trailer. Nothing of the old tags is kept; every value comes from the arguments. Stateless;
// every function but write() is a pure function of its arguments.
class ID3TagWriter {
public:
    class WriteError {
    public:
        enum class Kind {
            NotMP3,       // the extension is not "mp3" (any case); nothing was read
            Unreadable,   // the file could not be read
            NoAudioFound, // nothing lies between the old tag and the old trailer
            TooLarge,     // the new tag would need 2^28 bytes or more, which ID3v2 cannot state
            Unwritable,   // the file is write-protected, or the new one could not be written or put in
                          // place; `reason` says why
        };

        Kind kind = Kind::Unreadable;
        QUrl url;
        QString reason; // the system's explanation, for Kind::Unwritable

        // The file's extension, lower-cased ("m4a"), as the NotMP3 sentence names it.
        QString extension() const;
        // The sentence shown to the user.
        QString description() const;

        friend bool operator==(const WriteError&, const WriteError&) = default;
    };

    // Rewrites the file at `url` (a local file URL) with `metadata` and, when present and not empty,
    // `artwork` as its front cover. Reads only the edges of the old tags: the kernel copies the audio from
    // file to file, so a large file never sits in memory. Blocking. On any error the file is untouched.
    static std::optional<WriteError> write(const MusicMetadata& metadata,
                                           const std::optional<QByteArray>& artwork, const QUrl& url);

    // The steps of write(), exposed so that each can be checked byte for byte on its own.

    // Largest size an ID3v2 syncsafe integer can hold, plus one.
    static constexpr qint64 syncsafeLimit = qint64(1) << 28;

    // The complete ID3v2.4 tag (header and frames, no padding), or nothing when it would reach syncsafeLimit.
    static std::optional<QByteArray> buildTag(const MusicMetadata& metadata,
                                              const std::optional<QByteArray>& artwork);
    // A UTF-8 text frame of the trimmed value; empty when the trimmed value is empty.
    static QByteArray textFrame(const char* id, const QString& value);
    // A COMM frame in language "eng" with an empty description; empty when the trimmed comment is empty.
    static QByteArray commentFrame(const QString& comment);
    // An APIC front cover with an empty description; empty when there is no image or it has no bytes.
    static QByteArray pictureFrame(const std::optional<QByteArray>& image);
    // A frame header (identifier, syncsafe body size, no flags) followed by the body; body below
    // syncsafeLimit.
    static QByteArray frame(const char* id, const QByteArray& body);
    // `n` as four bytes of seven bits each, most significant first; only the low 28 bits are kept.
    static QByteArray syncsafe(quint32 n);
    // "image/png" for PNG bytes, "image/jpeg" for everything else.
    static QByteArray imageMimeType(const QByteArray& image);

    // Where the audio lies in an MP3 file's bytes: after a leading ID3v2 tag (and its footer) and before a
    // trailing ID3v1 tag. `length` 0 means no audio.
    struct Range {
        qint64 start = 0;
        qint64 length = 0;
        friend bool operator==(const Range&, const Range&) = default;
    };
    static Range audioRange(const QByteArray& data);

    // The 128-byte ID3v1.1 trailer.
    static QByteArray buildID3v1Tag(const MusicMetadata& metadata);
    // The trimmed value in ISO-8859-1 ('?' for what it cannot hold), cut or zero-filled to `size` bytes.
    static QByteArray latin1Field(const QString& value, int size);
    // The ID3v1 track byte for a track-number text ("3/12" gives 3).
    static quint8 trackByte(const QString& trackNumber);
    // The ID3v1 genre code of a genre name (case ignored), 255 when it has none.
    static quint8 genreIndex(const QString& genre);
};

#pragma once

#include <QList>
#include <QString>

#include <optional>

// The eight editable text tags of one song. An empty string means "no value"; trackNumber and year are
// free text ("3/12", "1997").
struct MusicMetadata {
    QString title;
    QString artist;
    QString album;
    QString albumArtist;
    QString trackNumber;
    QString year;
    QString genre;
    QString comment;

    // All eight fields equal up to Unicode canonical equivalence; case-sensitive, untrimmed. This is the
    // "has the user edited anything" test.
    friend bool operator==(const MusicMetadata& a, const MusicMetadata& b);
};

// What an online service proposes for one song. An absent field means the service has nothing for it.
struct RemoteMetadata {
    std::optional<QString> title;
    std::optional<QString> artist;
    std::optional<QString> album;
    std::optional<QString> albumArtist;
    std::optional<QString> trackNumber;
    std::optional<QString> year;
    std::optional<QString> genre;
    std::optional<QString> comment;
    QString sourceName;    // shown to the user, e.g. "MusicBrainz"
    qint64 confidence = 0; // the service's match score (0 to 100 from MusicBrainz); 0 when it gave none

    // All ten fields equal; text compared up to canonical equivalence.
    friend bool operator==(const RemoteMetadata& a, const RemoteMetadata& b);
};

// One row of the inspector's field table. The accessors are member pointers, so a row is a cheap value:
// read a draft's text with `draft.*row.local`, a proposal with `remote.*row.remote`.
struct MetadataField {
    QString id;    // stable identity of the row
    QString label; // shown above the row's editor
    QString MusicMetadata::*local = nullptr;
    std::optional<QString> RemoteMetadata::*remote = nullptr;
    bool isNarrow = false;    // a short one-line box, laid out beside the other narrow row
    bool isMultiline = false; // a multi-line text box

    // The eight rows in display order: title, artist, album, albumArtist, track, year, genre, comment.
    // Built once, never changed; safe to call from any thread.
    static const QList<MetadataField>& all();
};

// The value to propose for `field`, or nothing when the remote record is absent, has no usable value for
// the field, or agrees with `local` once both are trimmed (case and diacritics ignored). The proposal is
// always the trimmed remote text.
std::optional<QString> suggestion(const MetadataField& field, const QString& local,
                                  const std::optional<RemoteMetadata>& remote);

// How many rows of MetadataField::all() have a suggestion against `draft`; 0 without a remote record.
int differingFieldCount(const MusicMetadata& draft, const std::optional<RemoteMetadata>& remote);

// Writes `value` (a text suggestion() returned for `field`) into the draft's field.
void applySuggestion(const MetadataField& field, const QString& value, MusicMetadata& draft);

// Writes every row's suggestion into the draft, row by row in table order; rows without one keep their text.
void applyAllSuggestions(MusicMetadata& draft, const std::optional<RemoteMetadata>& remote);

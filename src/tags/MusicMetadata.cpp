#include "tags/MusicMetadata.h"

#include "tags/TextRules.h"

namespace {

bool equalOptional(const std::optional<QString>& a, const std::optional<QString>& b) {
    if (a.has_value() != b.has_value())
        return false;
    return !a || TextRules::canonicallyEqual(*a, *b);
}

} // namespace

bool operator==(const MusicMetadata& a, const MusicMetadata& b) {
    for (const MetadataField& field : MetadataField::all()) {
        if (!TextRules::canonicallyEqual(a.*field.local, b.*field.local))
            return false;
    }
    return true;
}

bool operator==(const RemoteMetadata& a, const RemoteMetadata& b) {
    for (const MetadataField& field : MetadataField::all()) {
        if (!equalOptional(a.*field.remote, b.*field.remote))
            return false;
    }
    return TextRules::canonicallyEqual(a.sourceName, b.sourceName) && a.confidence == b.confidence;
}

const QList<MetadataField>& MetadataField::all() {
    static const QList<MetadataField> table = {
        {"title", "Title", &MusicMetadata::title, &RemoteMetadata::title, false, false},
        {"artist", "Artist", &MusicMetadata::artist, &RemoteMetadata::artist, false, false},
        {"album", "Album", &MusicMetadata::album, &RemoteMetadata::album, false, false},
        {"albumArtist", "Album Artist", &MusicMetadata::albumArtist, &RemoteMetadata::albumArtist, false,
         false},
        {"track", "Track", &MusicMetadata::trackNumber, &RemoteMetadata::trackNumber, true, false},
        {"year", "Year", &MusicMetadata::year, &RemoteMetadata::year, true, false},
        {"genre", "Genre", &MusicMetadata::genre, &RemoteMetadata::genre, false, false},
        {"comment", "Comment", &MusicMetadata::comment, &RemoteMetadata::comment, false, true},
    };
    return table;
}

std::optional<QString> suggestion(const MetadataField& field, const QString& local,
                                  const std::optional<RemoteMetadata>& remote) {
    if (!remote)
        return std::nullopt;
    const std::optional<QString>& proposed = (*remote).*field.remote;
    if (!proposed)
        return std::nullopt;
    const QString value = TextRules::trimmed(*proposed);
    if (value.isEmpty())
        return std::nullopt;
    if (TextRules::equalIgnoringCaseAndDiacritics(value, TextRules::trimmed(local)))
        return std::nullopt;
    return value;
}

int differingFieldCount(const MusicMetadata& draft, const std::optional<RemoteMetadata>& remote) {
    int count = 0;
    for (const MetadataField& field : MetadataField::all()) {
        if (suggestion(field, draft.*field.local, remote))
            ++count;
    }
    return count;
}

void applySuggestion(const MetadataField& field, const QString& value, MusicMetadata& draft) {
    draft.*field.local = value;
}

void applyAllSuggestions(MusicMetadata& draft, const std::optional<RemoteMetadata>& remote) {
    for (const MetadataField& field : MetadataField::all()) {
        if (const std::optional<QString> value = suggestion(field, draft.*field.local, remote))
            applySuggestion(field, *value, draft);
    }
}

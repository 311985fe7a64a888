#pragma once

#include "library/MetadataReader.h"

#include <QStringView>

// The items one tag of a file yields, before the tags of a file are merged into one AssetMetadata.
struct TagItems {
    QList<CommonItem> commonItems;
    QList<MetadataItem> items;

    void addText(CommonKey key, const QString& text);
    void addPicture(const QByteArray& image);
    void addText(const QString& identifier, const QString& text);

    // A field of a tag format whose fields are named rather than coded (Vorbis comments, APE, RIFF INFO,
    // ID3v1 through TagLib's names; FFmpeg's metadata), mapped onto the same common keys and identifiers as
    // ID3 frames of the same meaning. `upperName` is the field's name in upper case; others are ignored.
    // Such formats have no order between different fields, so an author is listed before any artist and
    // a file's own artist wins over it.
    void addNamedField(QStringView upperName, const QString& text);
};

// Merges a file's tags, the most trusted first: its common items come last so they replace the others',
// its identified items first so they are found first.
void mergeTags(const QList<TagItems>& mostTrustedFirst, AssetMetadata& into);

// Whether one of `tags` gives a value under the key or identifier: a less trusted tag's never shows.
bool given(const QList<TagItems>& tags, CommonKey key);
bool given(const QList<TagItems>& tags, const QString& identifier);

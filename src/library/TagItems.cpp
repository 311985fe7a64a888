#include "library/TagItems.h"

#include <algorithm>

void TagItems::addText(CommonKey key, const QString& text) {
    if (!text.isEmpty())
        commonItems.append(CommonItem{key, text, std::nullopt});
}

void TagItems::addPicture(const QByteArray& image) {
    if (!image.isEmpty())
        commonItems.append(CommonItem{CommonKey::Artwork, std::nullopt, image});
}

void TagItems::addText(const QString& identifier, const QString& text) {
    if (!text.isEmpty())
        items.append(MetadataItem{identifier, text, std::nullopt});
}

void TagItems::addNamedField(QStringView upperName, const QString& text) {
    namespace id = MetadataIdentifier;
    if (text.isEmpty())
        return;
    if (upperName == u"TITLE") {
        addText(CommonKey::Title, text);
    } else if (upperName == u"ARTIST") {
        addText(CommonKey::Artist, text);
    } else if (upperName == u"AUTHOR") {
        const auto firstArtist =
            std::find_if(commonItems.begin(), commonItems.end(),
                         [](const CommonItem& item) { return item.key == CommonKey::Artist; });
        commonItems.insert(firstArtist, CommonItem{CommonKey::Author, text, std::nullopt});
    } else if (upperName == u"ALBUM") {
        addText(CommonKey::AlbumName, text);
    } else if (upperName == u"ALBUMARTIST" || upperName == u"ALBUM ARTIST" || upperName == u"ALBUM_ARTIST") {
        addText(id::id3Band, text);
    } else if (upperName == u"TRACKNUMBER" || upperName == u"TRACK") {
        addText(id::id3TrackNumber, text);
    } else if (upperName == u"DATE") {
        addText(id::id3RecordingTime, text);
    } else if (upperName == u"YEAR") {
        addText(id::id3Year, text);
    } else if (upperName == u"GENRE") {
        addText(id::id3ContentType, text);
    } else if (upperName == u"COMMENT" || upperName == u"DESCRIPTION") {
        addText(id::id3Comments, text);
    }
}

void mergeTags(const QList<TagItems>& mostTrustedFirst, AssetMetadata& into) {
    for (auto tag = mostTrustedFirst.crbegin(); tag != mostTrustedFirst.crend(); ++tag)
        into.commonItems += tag->commonItems;
    for (const TagItems& tag : mostTrustedFirst)
        into.items += tag.items;
}

bool given(const QList<TagItems>& tags, CommonKey key) {
    return std::any_of(tags.cbegin(), tags.cend(), [key](const TagItems& tag) {
        return std::any_of(tag.commonItems.cbegin(), tag.commonItems.cend(),
                           [key](const CommonItem& item) { return item.key == key; });
    });
}

bool given(const QList<TagItems>& tags, const QString& identifier) {
    return std::any_of(tags.cbegin(), tags.cend(), [&identifier](const TagItems& tag) {
        return std::any_of(tag.items.cbegin(), tag.items.cend(),
                           [&identifier](const MetadataItem& item) { return item.identifier == identifier; });
    });
}

#include "library/TagLibMetadataReader.h"

#include "library/ReadOnlyFileStream.h"
#include "library/TagItems.h"
#include "library/TrackArtwork.h"
#include "tags/Id3Genres.h"

#include <taglib/aifffile.h>
#include <taglib/apetag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/commentsframe.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v1genres.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4atom.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/tpropertymap.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>

namespace TagLibMetadataReader {

namespace {

namespace id = MetadataIdentifier;
using TagLib::AudioProperties;

// From TagLib's own wide characters, not from a copy of them.
QString qString(const TagLib::String& text) {
    return text.isEmpty() ? QString() : QString::fromWCharArray(text.toCWString(), qsizetype(text.size()));
}

// Several values of one frame or atom (ID3v2.4 and MP4 allow lists) read as one text.
QString joined(const TagLib::StringList& values) {
    return values.size() == 1 ? qString(values.front()) : qString(values.toString(" / "));
}

// What an Artwork item holds of these picture bytes: with only the fingerprint wanted, the bytes are hashed
// where TagLib keeps them rather than copied.
QByteArray pictureItem(const char* data, qsizetype size, PictureData wanted) {
    const QByteArrayView image(data, size);
    return wanted == PictureData::Fingerprint ? artworkFingerprint(image) : image.toByteArray();
}

// The picture a tag shows: its front cover, else its first picture.
class PictureChoice {
public:
    void offer(const TagLib::ByteVector& image, bool isFrontCover) {
        if (image.isEmpty() || (m_found && (m_isFrontCover || !isFrontCover)))
            return;
        m_image = image;
        m_found = true;
        m_isFrontCover = isFrontCover;
    }
    void addTo(TagItems& items, PictureData wanted) const {
        if (m_found)
            items.addPicture(pictureItem(m_image.data(), m_image.size(), wanted));
    }

private:
    TagLib::ByteVector m_image;
    bool m_found = false;
    bool m_isFrontCover = false;
};

QString frameText(const TagLib::ID3v2::Frame& frame) {
    if (const auto* text = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame*>(&frame))
        return joined(text->fieldList());
    return qString(frame.toString());
}

// TagLib splits a content type into its parts, genre codes as bare numbers ("(9)Heavy" arrives as "9" and
// "Heavy"); put the codes back in parentheses so the text reads as it was written.
QString contentType(const TagLib::ID3v2::Frame& frame) {
    const auto* text = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame*>(&frame);
    if (!text)
        return qString(frame.toString());
    QString genre;
    bool afterText = false;
    for (const TagLib::String& field : text->fieldList()) {
        bool isCode = false;
        field.toInt(&isCode);
        if (isCode) {
            genre += QLatin1Char('(') + qString(field) + QLatin1Char(')');
            afterText = false;
        } else if (!field.isEmpty()) {
            genre += (afterText ? QStringLiteral(" / ") : QString()) + qString(field);
            afterText = true;
        }
    }
    return genre;
}

// The text frames read, as a common key or under their identifier.
struct TextFrame {
    const char* name;
    CommonKey key;
    const QString* identifier; // null: a common item
};
const TextFrame textFrames[] = {
    {"TIT2", CommonKey::Title, nullptr},
    {"TPE1", CommonKey::Artist, nullptr},
    {"TALB", CommonKey::AlbumName, nullptr},
    {"TPE2", {}, &id::id3Band},
    {"TRCK", {}, &id::id3TrackNumber},
    {"TDRC", {}, &id::id3RecordingTime},
    {"TYER", {}, &id::id3Year},
};

TagItems fromId3v2(const TagLib::ID3v2::Tag& tag, PictureData pictures) {
    using namespace TagLib::ID3v2;
    TagItems out;
    PictureChoice picture;
    for (const Frame* frame : tag.frameList()) {
        // Version 2.2 and 2.3 frames arrive under their version 2.4 names (PIC as APIC, TT2 as TIT2).
        const TagLib::ByteVector id = frame->frameID();
        const std::string_view name(id.data(), id.size()); // compared inline, not through TagLib
        if (name == "APIC") {
            if (const auto* apic = dynamic_cast<const AttachedPictureFrame*>(frame))
                picture.offer(apic->picture(), apic->type() == AttachedPictureFrame::FrontCover);
        } else if (name == "COMM") {
            // iTunes keeps loudness and CD lookup data in comments described "iTunNORM", "iTunes_CDDB_1" …
            const auto* comment = dynamic_cast<const CommentsFrame*>(frame);
            if (comment && !comment->description().startsWith("iTun"))
                out.addText(id::id3Comments, qString(comment->text()));
        } else if (name == "TCON") {
            out.addText(id::id3ContentType, contentType(*frame));
        } else {
            const auto text = std::find_if(std::begin(textFrames), std::end(textFrames),
                                           [&name](const TextFrame& known) { return name == known.name; });
            if (text == std::end(textFrames))
                continue;
            if (text->identifier)
                out.addText(*text->identifier, frameText(*frame));
            else
                out.addText(text->key, frameText(*frame));
        }
    }
    picture.addTo(out, pictures);
    return out;
}

TagItems fromNamedFields(const TagLib::PropertyMap& fields) {
    TagItems out;
    for (const auto& [name, values] : fields) {
        const QString upperName = qString(name).toUpper();
        for (const TagLib::String& value : values)
            out.addNamedField(upperName, qString(value));
    }
    return out;
}

// Only the fields the more trusted tags leave out: the others would never show.
TagItems fromId3v1(const TagLib::ID3v1::Tag& tag, const QList<TagItems>& moreTrusted) {
    const auto missing = [&moreTrusted](const auto& key) { return !given(moreTrusted, key); };
    TagItems out;
    if (missing(CommonKey::Title))
        out.addText(CommonKey::Title, qString(tag.title()));
    if (missing(CommonKey::Artist))
        out.addText(CommonKey::Artist, qString(tag.artist()));
    if (missing(CommonKey::AlbumName))
        out.addText(CommonKey::AlbumName, qString(tag.album()));
    if (tag.track() > 0 && missing(id::id3TrackNumber))
        out.addText(id::id3TrackNumber, QString::number(tag.track()));
    // A year, not a recording time: a version 2 tag's TYER beside it is the better source.
    if (tag.year() > 0 && missing(id::id3Year))
        out.addText(id::id3Year, QString::number(tag.year()));
    // The code in parentheses, so that genre normalisation names it from the program's table (TagLib's own
    // spells some differently: "Alternative Rock" for "Alt. Rock"); codes past the table keep TagLib's name.
    const unsigned int genre = tag.genreNumber();
    if (missing(id::id3ContentType))
        out.addText(id::id3ContentType, genre < unsigned(Id3Genres::names().size())
                                            ? QStringLiteral("(%1)").arg(genre)
                                            : qString(tag.genre()));
    if (missing(id::id3Comments))
        out.addText(id::id3Comments, qString(tag.comment()));
    return out;
}

TagItems fromApe(const TagLib::APE::Tag& tag, PictureData pictures) {
    TagItems out = fromNamedFields(tag.properties());
    const TagLib::APE::ItemListMap& items = tag.itemListMap();
    const auto cover = items.find("COVER ART (FRONT)");
    if (cover != items.end()) {
        // A description ended by a zero byte, then the image.
        const TagLib::ByteVector& data = cover->second.binaryData();
        const int end = data.find('\0');
        if (end >= 0)
            out.addPicture(pictureItem(data.data() + end + 1, qsizetype(data.size()) - end - 1, pictures));
    }
    return out;
}

// The payload of the first data atom inside the item atom `name` of the file's item list, if there is one.
std::optional<TagLib::ByteVector> itemData(TagLib::MP4::File& file, TagLib::MP4::Atoms& atoms,
                                           const char* name) {
    TagLib::MP4::Atom* item = atoms.find("moov", "udta", "meta", "ilst");
    item = item ? item->find(name) : nullptr;
    // Genres are a few bytes; a larger atom is damaged.
    if (!item || item->length < 24 || item->length > 4096)
        return std::nullopt;
    file.seek(item->offset + 8);
    const TagLib::ByteVector data = file.readBlock(item->length - 8);
    // size, "data", type, locale, then the value
    const unsigned int size = data.size() >= 16 ? data.toUInt(0U) : 0;
    if (size < 16 || size > data.size() || data.mid(4, 4) != "data")
        return std::nullopt;
    return data.mid(16, size - 16);
}

struct Mp4Genres {
    QString user;
    QString predefined;
};

// TagLib hands a predefined genre on as a user genre named from its own table, which spells some genres
// differently ("Alternative Rock" for "Alt. Rock"), and keeps only the first of the two atoms. When the user
// genre could have come from that table, the atoms are read here.
Mp4Genres genres(TagLib::MP4::File& file, const QString& userGenre) {
    if (userGenre.isEmpty() || TagLib::ID3v1::genreIndex(TagLib::String(userGenre.toStdWString())) == 255)
        return {userGenre, {}};
    TagLib::MP4::Atoms atoms(&file);
    Mp4Genres read;
    if (const auto text = itemData(file, atoms, "\251gen"))
        read.user = QString::fromUtf8(text->data(), int(text->size()));
    if (const auto code = itemData(file, atoms, "gnre"); code && code->size() >= 2) {
        // The ID3v1 code plus one; codes past the program's table keep TagLib's name, as in ID3v1 tags.
        const int index = code->toShort(0U) - 1;
        if (index >= 0)
            read.predefined = index < Id3Genres::names().size() ? Id3Genres::names().at(index)
                                                                : qString(TagLib::ID3v1::genre(index));
    }
    return read;
}

TagItems fromMp4(TagLib::MP4::File& file, PictureData pictures) {
    const TagLib::MP4::ItemMap& atoms = file.tag()->itemMap();
    const auto atom = [&atoms](const char* name) -> const TagLib::MP4::Item* {
        const auto found = atoms.find(name);
        return found == atoms.end() ? nullptr : &found->second;
    };
    const auto text = [&atom](const char* name) {
        const TagLib::MP4::Item* item = atom(name);
        return item ? joined(item->toStringList()) : QString();
    };
    TagItems out;
    // An atom map has no file order; the author goes first so that a file's own artist wins over it.
    out.addText(CommonKey::Author, text("\251aut"));
    out.addText(CommonKey::Title, text("\251nam"));
    out.addText(CommonKey::Artist, text("\251ART"));
    out.addText(CommonKey::AlbumName, text("\251alb"));
    if (const TagLib::MP4::Item* covers = atom("covr")) {
        const TagLib::MP4::CoverArtList list = covers->toCoverArtList();
        if (!list.isEmpty())
            out.addPicture(pictureItem(list.front().data().data(), list.front().data().size(), pictures));
    }
    out.addText(id::iTunesAlbumArtist, text("aART"));
    if (const TagLib::MP4::Item* track = atom("trkn")) {
        const auto [number, total] = track->toIntPair();
        if (number > 0)
            out.addText(id::iTunesTrackNumber,
                        total > 0 ? QStringLiteral("%1/%2").arg(number).arg(total) : QString::number(number));
    }
    out.addText(id::iTunesReleaseDate, text("\251day"));
    const Mp4Genres genre = genres(file, text("\251gen"));
    out.addText(id::iTunesUserGenre, genre.user);
    out.addText(id::iTunesPredefinedGenre, genre.predefined);
    out.addText(id::iTunesUserComment, text("\251cmt"));
    return out;
}

template <typename File>
AssetMetadata finish(File& file, const QList<TagItems>& mostTrustedFirst, PictureData pictures) {
    AssetMetadata metadata;
    metadata.pictureData = pictures;
    metadata.readable = file.isValid();
    if (!metadata.readable)
        return metadata;
    mergeTags(mostTrustedFirst, metadata);
    if (const AudioProperties* properties = file.audioProperties())
        metadata.duration = properties->lengthInMilliseconds() / 1000.0;
    return metadata;
}

AssetMetadata readMpeg(TagLib::IOStream* stream, PictureData pictures) {
    TagLib::MPEG::File file(stream, TagLib::ID3v2::FrameFactory::instance(), true, AudioProperties::Fast);
    QList<TagItems> tags;
    if (file.isValid()) {
        if (file.hasID3v2Tag())
            tags.append(fromId3v2(*file.ID3v2Tag(), pictures));
        if (file.hasAPETag())
            tags.append(fromApe(*file.APETag(), pictures));
        if (file.hasID3v1Tag())
            tags.append(fromId3v1(*file.ID3v1Tag(), tags));
    }
    return finish(file, tags, pictures);
}

AssetMetadata readMp4(TagLib::IOStream* stream, PictureData pictures) {
    TagLib::MP4::File file(stream, true, AudioProperties::Fast);
    QList<TagItems> tags;
    if (file.isValid() && file.hasMP4Tag())
        tags.append(fromMp4(file, pictures));
    return finish(file, tags, pictures);
}

AssetMetadata readFlac(TagLib::IOStream* stream, PictureData pictures) {
    TagLib::FLAC::File file(stream, TagLib::ID3v2::FrameFactory::instance(), true, AudioProperties::Fast);
    QList<TagItems> tags;
    if (file.isValid()) {
        // PICTURE blocks and METADATA_BLOCK_PICTURE comments alike.
        PictureChoice picture;
        const auto offer = [&picture](const TagLib::List<TagLib::FLAC::Picture*>& pictures) {
            for (const TagLib::FLAC::Picture* p : pictures)
                picture.offer(p->data(), p->type() == TagLib::FLAC::Picture::FrontCover);
        };
        offer(file.pictureList());
        TagItems comments;
        if (file.hasXiphComment()) {
            comments = fromNamedFields(file.xiphComment()->properties());
            offer(file.xiphComment()->pictureList());
        }
        picture.addTo(comments, pictures);
        tags.append(comments);
        if (file.hasID3v2Tag())
            tags.append(fromId3v2(*file.ID3v2Tag(), pictures));
        if (file.hasID3v1Tag())
            tags.append(fromId3v1(*file.ID3v1Tag(), tags));
    }
    return finish(file, tags, pictures);
}

AssetMetadata readWav(TagLib::IOStream* stream, PictureData pictures) {
    TagLib::RIFF::WAV::File file(stream, true, AudioProperties::Fast);
    QList<TagItems> tags;
    if (file.isValid()) {
        if (file.hasID3v2Tag())
            tags.append(fromId3v2(*file.ID3v2Tag(), pictures));
        if (file.hasInfoTag())
            tags.append(fromNamedFields(file.InfoTag()->properties()));
    }
    return finish(file, tags, pictures);
}

AssetMetadata readAiff(TagLib::IOStream* stream, PictureData pictures) {
    TagLib::RIFF::AIFF::File file(stream, true, AudioProperties::Fast);
    QList<TagItems> tags;
    if (file.isValid() && file.hasID3v2Tag())
        tags.append(fromId3v2(*file.tag(), pictures));
    return finish(file, tags, pictures);
}

} // namespace

bool reads(QStringView lowerExtension) {
    static const QStringList known = {"mp3", "m4a", "m4b", "mp4", "flac", "wav", "aif", "aiff", "aifc"};
    return known.contains(lowerExtension);
}

AssetMetadata read(int fd, long long size, QStringView lowerExtension, PictureData pictures) {
    ReadOnlyFileStream stream(fd, size);
    if (lowerExtension == u"mp3")
        return readMpeg(&stream, pictures);
    if (lowerExtension == u"flac")
        return readFlac(&stream, pictures);
    if (lowerExtension == u"wav")
        return readWav(&stream, pictures);
    if (lowerExtension.startsWith(u"aif"))
        return readAiff(&stream, pictures);
    return readMp4(&stream, pictures);
}

} // namespace TagLibMetadataReader

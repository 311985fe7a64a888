#pragma once

#include "library/MetadataReader.h"

#include <QStringView>

// TagLib's part of reading a file: MP3 (ID3v2.2 to 2.4, APE, ID3v1), MP4/M4A/M4B, FLAC, WAV and AIFF.
namespace TagLibMetadataReader {

// True for the lower-case extensions TagLib reads here.
bool reads(QStringView lowerExtension);

// Reads the open regular file `fd` of `size` bytes (taking ownership of it) as the format its extension
// names. The duration is TagLib's fast estimate. `readable` is false when TagLib does not recognise the
// content.
AssetMetadata read(int fd, long long size, QStringView lowerExtension,
                   PictureData pictures = PictureData::Bytes);

} // namespace TagLibMetadataReader

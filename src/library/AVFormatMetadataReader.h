#pragma once

#include "library/MetadataReader.h"

// FFmpeg's part of reading a file: the containers TagLib does not know (CAF, AU/SND, raw ADTS AAC) and any
// file TagLib could not make sense of. Gives up after a few seconds on input that makes the demuxer work
// hard, so a hostile file cannot hold a loader thread for long.
namespace AVFormatMetadataReader {

// `localPath` must name a regular file (checked by the caller: opening a FIFO would block).
AssetMetadata read(const QByteArray& localPath);

} // namespace AVFormatMetadataReader

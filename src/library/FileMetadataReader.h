#pragma once

#include "library/FileStamp.h"
#include "library/MetadataReader.h"

// The program's metadata reader: TagLib for the formats it knows, FFmpeg's libavformat for the rest, for
// files TagLib rejects and for AIFF files without an ID3 chunk. Anything but a regular file (a folder, a
// FIFO, a device) is unreadable without being read. Stateless; safe from any number of threads.
class FileMetadataReader final : public MetadataReader {
public:
    explicit FileMetadataReader(PictureData pictures = PictureData::Bytes)
        : m_pictures(pictures) {}
    AssetMetadata read(const QByteArray& localPath) const override;
    // read(), also telling what the file was as it was opened: its stamp, taken before anything was read
    // (one that does not exist when it could not be opened).
    AssetMetadata read(const QByteArray& localPath, FileStamp& opened) const;

private:
    PictureData m_pictures;
};

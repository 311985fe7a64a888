#include "library/FileMetadataReader.h"

#include "library/AVFormatMetadataReader.h"
#include "library/TagLibMetadataReader.h"
#include "tags/FileNames.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

AssetMetadata FileMetadataReader::read(const QByteArray& localPath) const {
    FileStamp opened;
    return read(localPath, opened);
}

AssetMetadata FileMetadataReader::read(const QByteArray& localPath, FileStamp& opened) const {
    opened = {};
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer; fstat then rejects it.
    const int fd = ::open(localPath.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    struct stat status {};
    if (::fstat(fd, &status) == 0)
        opened = FileStamp::of(status);
    if (!opened.regular) {
        ::close(fd);
        return {};
    }
    const QString extension =
        FileNames::extension(QFile::decodeName(localPath.sliced(localPath.lastIndexOf('/') + 1)));
    AssetMetadata metadata;
    if (TagLibMetadataReader::reads(extension)) {
        metadata = TagLibMetadataReader::read(fd, status.st_size, extension, m_pictures);
        // TagLib reads only the ID3 chunk of an AIFF file; FFmpeg also reads its name, author and
        // annotation chunks.
        const bool untaggedAiff =
            extension.startsWith(u"aif") && metadata.commonItems.isEmpty() && metadata.items.isEmpty();
        if (metadata.readable && !untaggedAiff) {
            // TagLib finds no length in some containers it reads tags from (fragmented MP4, as streaming
            // services deliver); FFmpeg adds up the fragments.
            if (!(metadata.duration > 0))
                metadata.duration = AVFormatMetadataReader::read(localPath).duration;
            return metadata;
        }
    } else {
        ::close(fd);
    }
    AssetMetadata fallback = AVFormatMetadataReader::read(localPath);
    return fallback.readable ? fallback : metadata;
}

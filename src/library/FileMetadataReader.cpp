#include "library/FileMetadataReader.h"

#include "library/AVFormatMetadataReader.h"
#include "library/TagLibMetadataReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString lowerExtension(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    const qsizetype dot = path.lastIndexOf('.');
    if (dot <= slash + 1)
        return {};
    return QString::fromUtf8(path.mid(dot + 1)).toLower();
}

} // namespace

AssetMetadata FileMetadataReader::read(const QByteArray& localPath) const {
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer; fstat then rejects it.
    const int fd = ::open(localPath.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        return {};
    }
    const QString extension = lowerExtension(localPath);
    if (TagLibMetadataReader::reads(extension)) {
        AssetMetadata metadata = TagLibMetadataReader::read(fd, status.st_size, extension);
        if (metadata.readable)
            return metadata;
    } else {
        ::close(fd);
    }
    return AVFormatMetadataReader::read(localPath);
}

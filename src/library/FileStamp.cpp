#include "library/FileStamp.h"

#include <sys/stat.h>

FileStamp FileStamp::of(const QByteArray& localPath) {
    struct stat status {};
    if (localPath.isEmpty() || ::stat(localPath.constData(), &status) != 0)
        return {};
    return of(status);
}

FileStamp FileStamp::of(const struct stat& status) {
    return {true, S_ISREG(status.st_mode), qint64(status.st_size),
            qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

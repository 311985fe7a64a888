#pragma once

#include <QByteArray>
#include <QtGlobal>

struct stat;

// A file's identity as the metadata cache checks it: its size and modification time. Nothing else is
// compared, so a file rewritten with the same size within the same nanosecond would be missed; no tool
// does that.
struct FileStamp {
    bool exists = false;
    bool regular = false; // a regular file (links followed), the only kind the cache keeps
    qint64 size = 0;
    qint64 modified = 0; // nanoseconds since the epoch

    static FileStamp of(const QByteArray& localPath);
    // What a stat of an existing file says.
    static FileStamp of(const struct stat& status);
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

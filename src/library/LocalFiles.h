#pragma once

#include <QString>
#include <QUrl>

#include <optional>

// Which file on this machine a URL or a path names.
namespace LocalFiles {

// An absolute path standardized: "." and ".." resolved, doubled and trailing slashes dropped, and ".." at
// the root staying at the root as the system resolves it ("/../x.mp3" is "/x.mp3").
QString standardizedPath(const QString& path);

// The standardized path of the local file a URL names. Only a "file:" URL without a host or with the host
// "localhost" names one: "file://host/x.mp3" is a file on another machine, which no local path stands for.
std::optional<QString> path(const QUrl& url);

} // namespace LocalFiles

#include "library/PlaylistSyntax.h"

#include "library/LocalFiles.h"
#include "library/TextDecoding.h"

#include <QFile>
#include <QUrl>

#include <sys/stat.h>

#include <algorithm>

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Percent escapes decoded as UTF-8; no value when an escape is malformed or the bytes are not UTF-8.
std::optional<QString> percentDecoded(QStringView text) {
    const QByteArray encoded = text.toUtf8();
    QByteArray decoded;
    decoded.reserve(encoded.size());
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%') {
            decoded.append(encoded[i]);
            continue;
        }
        const int high = i + 2 < encoded.size() ? hexDigit(encoded[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(encoded[i + 2]) : -1;
        if (low < 0)
            return std::nullopt;
        decoded.append(char(high * 16 + low));
        i += 2;
    }
    return TextDecoding::utf8(decoded);
}

bool fileExists(const QString& path) {
    if (path.contains(QChar(0)))
        return false;
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0;
}

// Streams are not playlist entries: only local files are played.
bool isStreamAddress(QStringView text) {
    static const QString schemes[] = {"http", "https", "rtsp", "rtmp", "mms"};
    const qsizetype colon = text.indexOf(u':');
    if (colon <= 0)
        return false;
    const QStringView scheme = text.first(colon);
    const bool remote = std::any_of(std::begin(schemes), std::end(schemes), [&](const QString& candidate) {
        return scheme.compare(candidate, Qt::CaseInsensitive) == 0;
    });
    return remote && QUrl(text.toString()).isValid();
}

} // namespace

namespace PlaylistSyntax {

bool isLineBreak(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}

bool isPlsHeader(QStringView line) {
    line = TextDecoding::trimmedSpacesAndTabs(line);
    // Lower-casing never shortens a text, so only a line of ten units can become "[playlist]".
    return line.size() == 10 && line.toString().toLower() == u"[playlist]";
}

std::optional<QString> EntryResolver::resolve(QStringView text) const {
    text = TextDecoding::trimmedSpacesAndTabs(text);
    if (text.isEmpty())
        return std::nullopt;
    if (text.startsWith(u"file://", Qt::CaseInsensitive)) {
        const QUrl url(text.toString());
        return url.isValid() ? LocalFiles::path(url) : std::nullopt;
    }
    if (text.size() >= 3 && text[0].isLetter() && text[1] == u':' && (text[2] == u'\\' || text[2] == u'/'))
        return std::nullopt; // a Windows drive path means nothing here
    if (isStreamAddress(text))
        return std::nullopt;
    const QString path = localPath(text);
    // Whether the file exists only matters when a percent-decoded name could be meant instead, so most
    // entries cost no file system call.
    if (text.contains(u'%') && !fileExists(path)) {
        if (const std::optional<QString> decoded = percentDecoded(text)) {
            const QString decodedPath = localPath(*decoded);
            if (fileExists(decodedPath))
                return decodedPath;
        }
    }
    return path;
}

QString EntryResolver::localPath(QStringView text) const {
    QString path = text.toString();
    path.replace(u'\\', u'/');
    if (!path.startsWith(u'/'))
        path.prepend(m_baseFolder + u'/');
    return LocalFiles::standardizedPath(path);
}

} // namespace PlaylistSyntax

#include "library/PlaylistFile.h"

#include "library/LocalFiles.h"
#include "library/PlaylistSyntax.h"
#include "library/TextDecoding.h"
#include "tags/FileNames.h"

#include <QFile>
#include <QFileInfo>

#include <charconv>
#include <cmath>
#include <map>

using PlaylistSyntax::EntryResolver;
using TextDecoding::trimmedSpacesAndTabs;

namespace {

// Every line break ends a line; CR LF therefore leaves an empty line between the two, which the parsers skip.
template <typename Visit> void forEachTrimmedLine(QStringView text, Visit visit) {
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (PlaylistSyntax::isLineBreak(text[i])) {
            visit(trimmedSpacesAndTabs(text.sliced(start, i - start)));
            start = i + 1;
        }
    }
    visit(trimmedSpacesAndTabs(text.sliced(start)));
}

bool isAsciiDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

// A finite decimal number written in full ("215", "-1", "3.5", "2e2"); "inf", "nan" and hexadecimal
// forms are not numbers in a playlist.
std::optional<double> decimalNumber(QStringView text) {
    bool negative = false;
    if (!text.isEmpty() && (text[0] == u'+' || text[0] == u'-')) {
        negative = text[0] == u'-';
        text = text.sliced(1);
    }
    if (text.isEmpty() || !(isAsciiDigit(text[0]) || text[0] == u'.'))
        return std::nullopt;
    const QByteArray bytes = text.toLatin1();
    double value = 0;
    const auto [end, error] = std::from_chars(bytes.constBegin(), bytes.constEnd(), value);
    if (error != std::errc() || end != bytes.constEnd() || !std::isfinite(value))
        return std::nullopt;
    return negative ? -value : value;
}

// A whole decimal number with an optional sign that fits in 64 bits.
std::optional<qint64> decimalInteger(QStringView text) {
    bool negative = false;
    if (!text.isEmpty() && (text[0] == u'+' || text[0] == u'-')) {
        negative = text[0] == u'-';
        text = text.sliced(1);
    }
    if (text.isEmpty())
        return std::nullopt;
    quint64 magnitude = 0;
    const quint64 limit = negative ? quint64(1) << 63 : (quint64(1) << 63) - 1;
    for (const QChar c : text) {
        if (!isAsciiDigit(c))
            return std::nullopt;
        const quint64 digit = c.unicode() - u'0';
        if (magnitude > (limit - digit) / 10)
            return std::nullopt;
        magnitude = magnitude * 10 + digit;
    }
    return negative ? qint64(0 - magnitude) : qint64(magnitude);
}

// "#EXTINF:<seconds> <attributes>,<artist> - <title>" updates the values waiting for the next path.
void readExtinf(QStringView rest, PlaylistEntry& pending) {
    const qsizetype comma = rest.indexOf(u',');
    if (comma < 0)
        return;
    // The first space-separated word before the comma is the duration; attributes may follow it.
    QStringView seconds = rest.first(comma);
    qsizetype first = 0;
    while (first < seconds.size() && seconds[first] == u' ')
        ++first;
    if (first < seconds.size()) {
        const qsizetype end = seconds.indexOf(u' ', first);
        seconds = seconds.sliced(first, (end < 0 ? seconds.size() : end) - first);
    }
    if (const std::optional<double> duration = decimalNumber(seconds); duration && *duration > 0)
        pending.duration = duration;

    const QStringView display = trimmedSpacesAndTabs(rest.sliced(comma + 1));
    const qsizetype dash = display.indexOf(u" - ");
    if (dash >= 0) {
        pending.artist = display.first(dash).toString();
        pending.title = display.sliced(dash + 3).toString();
    } else if (!display.isEmpty()) {
        pending.title = display.toString();
    }
}

// The directive is recognised on the line upper-cased, so "#extınf:" (a dotless ı) is one too.
bool isExtinf(QStringView line) {
    return line.size() >= 8 && line.first(8).toString().toUpper() == u"#EXTINF:";
}

// A file URL for an entry path, or nothing when the path names no local file.
std::optional<QUrl> entryUrl(const EntryResolver& resolver, QStringView text) {
    const std::optional<QString> path = resolver.resolve(text);
    return path ? std::optional(QUrl::fromLocalFile(*path)) : std::nullopt;
}

QList<PlaylistEntry> parseM3u(QStringView text, const EntryResolver& resolver) {
    QList<PlaylistEntry> entries;
    PlaylistEntry pending;
    forEachTrimmedLine(text, [&](QStringView line) {
        if (line.isEmpty())
            return;
        if (!line.startsWith(u'#')) {
            if (const std::optional<QUrl> url = entryUrl(resolver, line)) {
                pending.url = *url;
                entries.append(std::move(pending));
            }
            pending = {};
        } else if (isExtinf(line)) {
            readExtinf(line.sliced(8), pending);
        }
    });
    return entries;
}

// The number after a PLS key's name ("File12" → 12), when the key starts with that name.
std::optional<qint64> keyNumber(QStringView key, QStringView name) {
    if (!key.startsWith(name, Qt::CaseInsensitive))
        return std::nullopt;
    return decimalInteger(key.sliced(name.size()));
}

QList<PlaylistEntry> parsePls(QStringView text, const EntryResolver& resolver) {
    std::map<qint64, QStringView> files;
    std::map<qint64, QStringView> titles;
    std::map<qint64, double> lengths;
    forEachTrimmedLine(text, [&](QStringView line) {
        const qsizetype equals = line.indexOf(u'=');
        if (equals < 0)
            return;
        const QStringView key = line.first(equals);
        const QStringView value = trimmedSpacesAndTabs(line.sliced(equals + 1));
        if (value.isEmpty())
            return;
        if (const std::optional<qint64> n = keyNumber(key, u"file")) {
            files[*n] = value;
        } else if (const std::optional<qint64> n = keyNumber(key, u"title")) {
            titles[*n] = value;
        } else if (const std::optional<qint64> n = keyNumber(key, u"length")) {
            if (const std::optional<double> seconds = decimalNumber(value))
                lengths[*n] = *seconds;
        }
    });

    QList<PlaylistEntry> entries;
    entries.reserve(qsizetype(files.size()));
    for (const auto& [n, file] : files) {
        const std::optional<QUrl> url = entryUrl(resolver, file);
        if (!url)
            continue;
        PlaylistEntry entry{*url, std::nullopt, std::nullopt, std::nullopt};
        if (const auto title = titles.find(n); title != titles.end()) {
            const qsizetype dash = title->second.indexOf(u" - ");
            if (dash >= 0) {
                entry.artist = title->second.first(dash).toString();
                entry.title = title->second.sliced(dash + 3).toString();
            } else {
                entry.title = title->second.toString();
            }
        }
        if (const auto length = lengths.find(n); length != lengths.end() && length->second > 0)
            entry.duration = length->second;
        entries.append(std::move(entry));
    }
    return entries;
}

bool hasPlsHeader(QStringView text) {
    bool found = false;
    forEachTrimmedLine(text, [&](QStringView line) { found = found || PlaylistSyntax::isPlsHeader(line); });
    return found;
}

} // namespace

QString PlaylistError::description() const {
    const QString name = url.fileName();
    switch (kind) {
    case Kind::Unreadable:
        return QStringLiteral("Can't read %1. The file may be damaged or in an unsupported format.")
            .arg(name);
    case Kind::EmptyPlaylist:
        return QStringLiteral("%1 doesn't list any playable local files.").arg(name);
    }
    return {};
}

namespace PlaylistFile {

const QSet<QString>& playlistExtensions() {
    static const QSet<QString> extensions = {"m3u", "m3u8", "pls"};
    return extensions;
}

QString pathExtension(const QUrl& url) {
    return FileNames::extension(url.fileName());
}

bool isPlaylist(const QUrl& url) {
    return playlistExtensions().contains(pathExtension(url));
}

PlaylistReadResult readPlaylist(const QUrl& url) {
    const auto failure = [&](PlaylistError::Kind kind) {
        return PlaylistReadResult{{}, PlaylistError{kind, url}};
    };
    const std::optional<QString> path = LocalFiles::path(url);
    QFile file(path.value_or(QString()));
    // Only a regular file has an end: a FIFO or a device named like a playlist would block the caller.
    if (!path || !QFileInfo(*path).isFile() || !file.open(QIODevice::ReadOnly))
        return failure(PlaylistError::Kind::Unreadable);
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return failure(PlaylistError::Kind::Unreadable);

    const QString text = TextDecoding::decodeLegacyText(bytes);
    const EntryResolver resolver(LocalFiles::standardizedPath(*path + QStringLiteral("/..")));
    const bool pls = pathExtension(url) == u"pls" || hasPlsHeader(text);
    QList<PlaylistEntry> entries = pls ? parsePls(text, resolver) : parseM3u(text, resolver);
    if (entries.isEmpty())
        return failure(PlaylistError::Kind::EmptyPlaylist);
    return {std::move(entries), std::nullopt};
}

} // namespace PlaylistFile

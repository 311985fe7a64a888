#include "library/PlaylistFile.h"

#include "library/LocalFiles.h"
#include "library/PlaylistSyntax.h"
#include "library/SymlinkResolver.h"
#include "library/TextDecoding.h"

#include <QDir>
#include <QSaveFile>
#include <QVarLengthArray>

#include <algorithm>
#include <memory>

namespace {

QString parentFolder(const QString& cleanPath) {
    const qsizetype slash = cleanPath.lastIndexOf(u'/');
    return slash > 0 ? cleanPath.first(slash) : QStringLiteral("/");
}

// Paths of files relative to one folder, for all the songs of one playlist.
class RelativePaths {
public:
    explicit RelativePaths(const QString& folder)
        : m_folder(m_resolver.folder(folder)) {
        for (const QStringView part : QStringView(m_folder).tokenize(u'/', Qt::SkipEmptyParts))
            m_folderParts.append(part);
    }
    RelativePaths(const RelativePaths&) = delete;
    RelativePaths& operator=(const RelativePaths&) = delete;

    // `file` is a clean absolute path.
    std::optional<QString> of(const QString& file) {
        const QString resolved = m_resolver.file(file);
        QVarLengthArray<QStringView, 16> fileParts;
        for (const QStringView part : QStringView(resolved).tokenize(u'/', Qt::SkipEmptyParts))
            fileParts.append(part);
        // Both paths start with the root folder, which alone is not enough to share.
        qsizetype shared = 0;
        while (shared < m_folderParts.size() && shared < fileParts.size() &&
               m_folderParts[shared] == fileParts[shared])
            ++shared;
        if (shared == 0)
            return std::nullopt;
        QString relative;
        for (qsizetype i = shared; i < m_folderParts.size(); ++i)
            relative += QStringLiteral("../");
        for (qsizetype i = shared; i < fileParts.size(); ++i) {
            relative += fileParts[i];
            relative += u'/';
        }
        relative.chop(1);
        if (relative.isEmpty())
            return std::nullopt;
        return relative;
    }

private:
    SymlinkResolver m_resolver;
    QString m_folder;
    QList<QStringView> m_folderParts; // views into m_folder
};

// The text each format writes for one track.
struct EntryText {
    QString path;
    QString label;
    QString seconds;
};

class EntryWriter {
public:
    EntryWriter(const QString& folder, bool relative)
        : m_folder(folder)
        , m_resolver(folder)
        , m_relative(relative ? std::make_unique<RelativePaths>(folder) : nullptr) {}

    EntryText operator()(const Track& track) {
        EntryText text;
        text.path = pathText(track.url());
        const QString name = displayTitle(track);
        QString label = track.artist().isEmpty() ? name : track.artist() + QStringLiteral(" - ") + name;
        // A line break inside the label would end its line and make the rest an entry of its own.
        std::replace_if(label.begin(), label.end(), PlaylistSyntax::isLineBreak, u' ');
        text.label = TextDecoding::trimmedSpacesAndTabs(label).toString();
        // Whole seconds, truncated; -1 says "unknown" to other players.
        const bool known = track.duration > 0 && track.duration < 9.0e18;
        text.seconds = known ? QString::number(qint64(track.duration)) : QStringLiteral("-1");
        return text;
    }

private:
    // The plain path (relative to the playlist's folder when asked and possible) unless the reader would take
    // it for something else. Then "./" before a relative path, which keeps a name beginning with "#" or a
    // blank, or looking like a drive, a stream or the PLS header, from being read as one; failing that a
    // file URL, which carries any name (a backslash, blanks at the end, a line break, percent escapes that
    // name another file). A URL that names no local file is written as it is and reads back as none.
    QString pathText(const QUrl& url) {
        const std::optional<QString> path = LocalFiles::path(url);
        if (!path)
            return url.toString(QUrl::FullyEncoded);
        if (const std::optional<QString> relative = m_relative ? m_relative->of(*path) : std::nullopt) {
            if (readsBack(*relative, *path))
                return *relative;
            const QString marked = QStringLiteral("./") + *relative;
            if (readsBack(marked, *path))
                return marked;
        } else if (readsBack(*path, *path)) {
            return *path;
        }
        return QUrl::fromLocalFile(*path).toString(QUrl::FullyEncoded);
    }

    // Whether `text`, on its own line (M3U) or as a "File" value (PLS), reads back as the file at `path`. A
    // relative path found through symbolic links names that file through the playlist's folder as written.
    bool readsBack(const QString& text, const QString& path) const {
        if (text.startsWith(u'#') || PlaylistSyntax::isPlsHeader(text) ||
            std::any_of(text.cbegin(), text.cend(), PlaylistSyntax::isLineBreak))
            return false;
        const std::optional<QString> read = m_resolver.resolve(text);
        return read && (*read == path || (!text.startsWith(u'/') &&
                                          *read == LocalFiles::standardizedPath(m_folder + u'/' + text)));
    }

    QString m_folder;
    PlaylistSyntax::EntryResolver m_resolver;
    std::unique_ptr<RelativePaths> m_relative;
};

QString m3uText(const QList<Track>& tracks, EntryWriter& write) {
    QString text = QStringLiteral("#EXTM3U\n");
    text.reserve(tracks.size() * 128);
    for (const Track& track : tracks) {
        const EntryText entry = write(track);
        text.append(u"#EXTINF:").append(entry.seconds).append(u',').append(entry.label).append(u'\n');
        text.append(entry.path).append(u'\n');
    }
    return text;
}

QString plsText(const QList<Track>& tracks, EntryWriter& write) {
    QString text = QStringLiteral("[playlist]\n");
    text.reserve(tracks.size() * 160);
    for (qsizetype i = 0; i < tracks.size(); ++i) {
        const EntryText entry = write(tracks[i]);
        const QString n = QString::number(i + 1);
        text.append(u"File").append(n).append(u'=').append(entry.path).append(u'\n');
        text.append(u"Title").append(n).append(u'=').append(entry.label).append(u'\n');
        text.append(u"Length").append(n).append(u'=').append(entry.seconds).append(u'\n');
    }
    text += QStringLiteral("NumberOfEntries=%1\nVersion=2\n").arg(tracks.size());
    return text;
}

// A write cut short (a nearly full disk) leaves no error behind; writing the rest then fails with the
// system's reason, as it does at once on a disk with no room at all.
bool writeAll(QSaveFile& file, const QByteArray& bytes) {
    for (qsizetype written = 0; written < bytes.size();) {
        const qint64 count = file.write(bytes.constData() + written, bytes.size() - written);
        if (count <= 0)
            return false;
        written += count;
    }
    return true;
}

} // namespace

namespace PlaylistFile {

std::optional<QString> writePlaylist(const QList<Track>& tracks, const QUrl& url, bool relativePaths) {
    const QString destination = QDir::cleanPath(url.toLocalFile());
    EntryWriter write(parentFolder(destination), relativePaths);
    const QString text = pathExtension(url) == u"pls" ? plsText(tracks, write) : m3uText(tracks, write);
    const QByteArray bytes = text.toUtf8();

    // QSaveFile writes beside the destination, syncs, then renames over it; it follows a symbolic link
    // to its target and keeps the old file's permissions. Until commit() the old file is untouched.
    QSaveFile file(destination);
    if (!file.open(QIODevice::WriteOnly) || !writeAll(file, bytes) || !file.commit())
        return file.errorString();
    return std::nullopt;
}

std::optional<QString> relativePath(const QUrl& fileUrl, const QUrl& fromDirectory) {
    if (!fileUrl.isLocalFile() || !fromDirectory.isLocalFile())
        return std::nullopt;
    RelativePaths paths(QDir::cleanPath(fromDirectory.toLocalFile()));
    return paths.of(QDir::cleanPath(fileUrl.toLocalFile()));
}

} // namespace PlaylistFile

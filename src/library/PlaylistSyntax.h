#pragma once

#include <QChar>
#include <QString>
#include <QStringView>

#include <optional>

// The rules of playlist text that reading and writing share, so that what the writer writes reads back as
// the same songs. Pure functions apart from the resolver's file checks; safe from any thread.
namespace PlaylistSyntax {

// LF, VT, FF, CR, NEL and the Unicode line and paragraph separators: each one ends a line.
bool isLineBreak(QChar c);

// A line that makes the whole text PLS whatever the file's name: trimmed of spaces and tabs and lower-cased,
// it is exactly "[playlist]". (Lower-cased, not case-folded: "[PLAYLIST]" is one, "[playliſt]" is not.)
bool isPlsHeader(QStringView line);

// Turns the path texts of one playlist (an M3U line, a PLS "File" value) into local paths.
class EntryResolver {
public:
    // `baseFolder`: the playlist's folder, standardized; relative paths start there.
    explicit EntryResolver(QString baseFolder)
        : m_baseFolder(std::move(baseFolder)) {}

    // The standardized path of the file the text names, which need not exist; nothing when it names no local
    // file (an empty text, a stream address, a Windows drive path, a file URL of another machine). Blanks
    // at either end are dropped, backslashes separate folders, and percent escapes are decoded only when
    // the name as written does not exist and the decoded one does.
    std::optional<QString> resolve(QStringView text) const;

private:
    QString localPath(QStringView text) const;

    QString m_baseFolder;
};

} // namespace PlaylistSyntax

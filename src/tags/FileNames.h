#pragma once

#include <QString>
#include <QStringView>

// How the program reads a file name's extension, the same for songs, playlists and pictures. The extension
// is what follows the last dot; a dot at the very start marks a hidden file and starts no extension, so
// ".mp3" has none and ".hidden.mp3" has "mp3".
namespace FileNames {

// The extension, lower-cased; empty when there is none.
QString extension(QStringView fileName);

// The name without its extension and the dot before it ("01 Intro.mp3" gives "01 Intro", ".mp3" stays).
QStringView withoutExtension(QStringView fileName);

} // namespace FileNames

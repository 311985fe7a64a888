#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

#include <optional>

// Text decoding for files written by other programs, which may be in any of the encodings people have
// used for playlists over the years.
namespace TextDecoding {

// Strict UTF-8: no value when any sequence is invalid. A leading byte order mark is kept as U+FEFF.
std::optional<QString> utf8(const QByteArray& bytes);

// Windows code page 1252: no value when the bytes contain one of the five bytes the code page leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D).
std::optional<QString> windows1252(const QByteArray& bytes);

// UTF-8 if the bytes are valid UTF-8, else Windows-1252, else ISO Latin-1, with one leading byte order
// mark dropped.
QString decodeLegacyText(const QByteArray& bytes);

// `text` without the spaces and tabs at either end (other white space is kept).
QStringView trimmedSpacesAndTabs(QStringView text);

} // namespace TextDecoding

#pragma once

#include <QStringList>

namespace Id3Genres {
// The 80 ID3v1 genre names, codes 0 to 79, spelled as the program writes and reads them.
const QStringList& names();
} // namespace Id3Genres

#pragma once

#include <QStringView>

// The file manager's order for names and paths, the same under every process locale: letters compare
// case-insensitively and by their base letter ("Édith" before "Elvis"), runs of digits by their numeric value
// ("2 Song" before "10 Song"), and "/" before any other character so that a folder's files come before those
// of a longer-named sibling ("A/x" before "A B/x"). Strings that differ only in letter case, accents or
// leading zeros still get a fixed order. QCollator is not used: under the C locale it ignores its numeric
// mode.
int naturalCompare(QStringView a, QStringView b);

inline bool naturalLess(QStringView a, QStringView b) {
    return naturalCompare(a, b) < 0;
}

#include "library/NaturalOrder.h"

#include <QString>

namespace {

bool isDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

// The letter a character is sorted by: case-folded, without its accents, so "É" sorts with "E" as the file
// manager has it, not after "Z". Only marks are stripped: a Hangul syllable keeps its whole value.
char16_t sortLetter(QChar c) {
    // Most names are ASCII, where folding is plain lower case: a library's sort compares them by the million.
    if (c.unicode() < 0x80)
        return c >= u'A' && c <= u'Z' ? char16_t(c.unicode() + 32) : c.unicode();
    while (c.decompositionTag() == QChar::Canonical) {
        const QString parts = c.decomposition();
        if (parts.size() > 1 && !parts.at(1).isMark())
            break;
        c = parts.at(0);
    }
    return c.toCaseFolded().unicode();
}

int sign(qsizetype value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

// Compares the digit runs starting at a[i] and b[j] by value and moves both indices past them. A tie on
// value leaves `tieBreak` to the run with fewer leading zeros, if nothing decided it before.
int compareNumbers(QStringView a, qsizetype& i, QStringView b, qsizetype& j, int& tieBreak) {
    const qsizetype zerosStartA = i;
    const qsizetype zerosStartB = j;
    while (i < a.size() && a[i] == u'0')
        ++i;
    while (j < b.size() && b[j] == u'0')
        ++j;
    const qsizetype valueStartA = i;
    const qsizetype valueStartB = j;
    while (i < a.size() && isDigit(a[i]))
        ++i;
    while (j < b.size() && isDigit(b[j]))
        ++j;
    const qsizetype lengthA = i - valueStartA;
    const qsizetype lengthB = j - valueStartB;
    if (lengthA != lengthB)
        return sign(lengthA - lengthB);
    for (qsizetype k = 0; k < lengthA; ++k) {
        if (a[valueStartA + k] != b[valueStartB + k])
            return a[valueStartA + k] < b[valueStartB + k] ? -1 : 1;
    }
    if (tieBreak == 0)
        tieBreak = sign((valueStartA - zerosStartA) - (valueStartB - zerosStartB));
    return 0;
}

} // namespace

int naturalCompare(QStringView a, QStringView b) {
    int tieBreak = 0;
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        const QChar ca = a[i];
        const QChar cb = b[j];
        if (isDigit(ca) && isDigit(cb)) {
            if (const int order = compareNumbers(a, i, b, j, tieBreak))
                return order;
            continue;
        }
        if (ca != cb) {
            if (ca == u'/')
                return -1;
            if (cb == u'/')
                return 1;
            const char16_t foldedA = sortLetter(ca);
            const char16_t foldedB = sortLetter(cb);
            if (foldedA != foldedB)
                return foldedA < foldedB ? -1 : 1;
            if (tieBreak == 0)
                tieBreak = ca.unicode() < cb.unicode() ? -1 : 1;
        }
        ++i;
        ++j;
    }
    if (i < a.size())
        return 1;
    if (j < b.size())
        return -1;
    return tieBreak;
}

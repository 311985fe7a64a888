#pragma once

#include <QString>

// The program's rules for comparing and cleaning up tag text. Pure functions, locale-independent.
namespace TextRules {

// `text` without Unicode white space and line breaks at either end (tab, LF, CR, NEL, LS, PS, no-break
// space and every other space separator).
QString trimmed(const QString& text);

// Exact equality of text up to Unicode canonical equivalence: a precomposed "é" equals "e" + U+0301.
// Case-sensitive, no trimming.
bool canonicallyEqual(const QString& a, const QString& b);

// Equality that ignores letter case and diacritical marks, the same under every locale ("beyonce" agrees
// with "Beyoncé", composed and decomposed forms agree). No trimming.
bool equalIgnoringCaseAndDiacritics(const QString& a, const QString& b);

// Equality that ignores letter case only (full Unicode case folding, no locale).
bool equalIgnoringCase(const QString& a, const QString& b);

// The first `count` characters of `text` (the whole text when shorter). Characters are counted as code
// points, so one outside the Basic Multilingual Plane (two UTF-16 units) is never cut in half.
QString firstCharacters(const QString& text, qsizetype count);

} // namespace TextRules

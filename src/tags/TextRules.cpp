#include "tags/TextRules.h"

#include <QChar>
#include <QList>

#include <unicode/uchar.h>

namespace {

// The full case foldings that expand one letter into several and that QString::toCaseFolded (simple folding)
// leaves alone; the other expanding foldings only add marks, which the comparison drops anyway.
struct Expansion {
    char16_t letter;
    const char16_t* folded;
};
constexpr Expansion expansions[] = {
    {u'\u00DF', u"ss"},           {u'\u1E9E', u"ss"},           {u'\u0149', u"\u02BCn"},
    {u'\u0587', u"\u0565\u0582"}, {u'\u1E9A', u"a\u02BE"},      {u'\uFB00', u"ff"},
    {u'\uFB01', u"fi"},           {u'\uFB02', u"fl"},           {u'\uFB03', u"ffi"},
    {u'\uFB04', u"ffl"},          {u'\uFB05', u"st"},           {u'\uFB06', u"st"},
    {u'\uFB13', u"\u0574\u0576"}, {u'\uFB14', u"\u0574\u0565"}, {u'\uFB15', u"\u0574\u056B"},
    {u'\uFB16', u"\u057E\u0576"}, {u'\uFB17', u"\u0574\u056D"},
};

QString fullCaseFolded(const QString& text) {
    QString folded = text.toCaseFolded();
    for (const Expansion& expansion : expansions)
        folded.replace(QChar(expansion.letter), QString::fromUtf16(expansion.folded));
    return folded;
}

// Case folding can itself produce combining marks (U+0130 folds to "i" + U+0307), so the text is decomposed
// again after folding before the marks are dropped.
QString comparisonKey(const QString& text, bool dropMarks) {
    const QString folded = fullCaseFolded(text.normalized(QString::NormalizationForm_D));
    const QString decomposed = folded.normalized(QString::NormalizationForm_D);
    if (!dropMarks)
        return decomposed;
    QString key;
    key.reserve(decomposed.size());
    for (const char32_t codePoint : decomposed.toUcs4()) {
        // Only diacritics go: the vowel signs of Indic scripts are marks too, but they make another word.
        if (QChar::isMark(codePoint) && u_hasBinaryProperty(UChar32(codePoint), UCHAR_DIACRITIC))
            continue;
        key += QChar::fromUcs4(codePoint);
    }
    return key;
}

} // namespace

namespace TextRules {

QString trimmed(const QString& text) {
    // QChar::isSpace covers the separators Zs, Zl, Zp and the controls 0x09-0x0D and 0x85; no white space
    // lies outside the Basic Multilingual Plane, so QString::trimmed sees every one of them.
    return text.trimmed();
}

bool canonicallyEqual(const QString& a, const QString& b) {
    return a == b || a.normalized(QString::NormalizationForm_D) == b.normalized(QString::NormalizationForm_D);
}

bool equalIgnoringCaseAndDiacritics(const QString& a, const QString& b) {
    return a == b || comparisonKey(a, true) == comparisonKey(b, true);
}

bool equalIgnoringCase(const QString& a, const QString& b) {
    return a == b || comparisonKey(a, false) == comparisonKey(b, false);
}

QString firstCharacters(const QString& text, qsizetype count) {
    qsizetype end = 0;
    for (qsizetype taken = 0; taken < count && end < text.size(); ++taken) {
        const bool pair =
            text[end].isHighSurrogate() && end + 1 < text.size() && text[end + 1].isLowSurrogate();
        end += pair ? 2 : 1;
    }
    return text.first(end);
}

} // namespace TextRules

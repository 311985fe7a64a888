#include "tags/TextRules.h"

#include <QChar>
#include <QList>

namespace {

// Case folding can itself produce combining marks (U+0130 folds to "i" + U+0307), so the text is decomposed
// again after folding before the marks are dropped.
QString comparisonKey(const QString& text, bool dropMarks) {
    const QString folded = text.normalized(QString::NormalizationForm_D).toCaseFolded();
    const QString decomposed = folded.normalized(QString::NormalizationForm_D);
    if (!dropMarks)
        return decomposed;
    QString key;
    key.reserve(decomposed.size());
    for (const char32_t codePoint : decomposed.toUcs4()) {
        if (QChar::isMark(codePoint))
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

} // namespace TextRules

#include "library/TextDecoding.h"

#include <QStringDecoder>

#include <array>

namespace TextDecoding {

std::optional<QString> utf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringConverter::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<QString> windows1252(const QByteArray& bytes) {
    // 0x80-0x9F; zero marks the bytes the code page does not define.
    static constexpr std::array<char16_t, 32> high = {
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        char16_t unit = byte;
        if (byte >= 0x80 && byte < 0xA0) {
            unit = high[byte - 0x80];
            if (unit == 0)
                return std::nullopt;
        }
        *out++ = QChar(unit);
    }
    return text;
}

QString decodeLegacyText(const QByteArray& bytes) {
    // ISO Latin-1 maps every byte to a character, so it always succeeds and the chain ends there: a
    // lossy UTF-8 decode after it would never be reached.
    std::optional<QString> text = utf8(bytes);
    if (!text)
        text = windows1252(bytes);
    if (!text)
        text = QString::fromLatin1(bytes);
    if (text->startsWith(QChar(0xFEFF)))
        text->remove(0, 1);
    return *text;
}

QStringView trimmedSpacesAndTabs(QStringView text) {
    const auto blank = [](QChar c) { return c == u' ' || c == u'\t'; };
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && blank(text[begin]))
        ++begin;
    while (end > begin && blank(text[end - 1]))
        --end;
    return text.sliced(begin, end - begin);
}

} // namespace TextDecoding

#include "services/MusicBrainzRecording.h"

#include "tags/TextRules.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace {

std::optional<QString> trimmedNonEmpty(const QString& text) {
    QString trimmed = TextRules::trimmed(text);
    if (trimmed.isEmpty())
        return std::nullopt;
    return trimmed;
}

QString withoutQuotes(QString text) {
    return text.remove(QLatin1Char('"'));
}

// Reads typed fields out of JSON objects, remembering the first value of the wrong type; after that the
// whole answer is rejected.
class Reader {
public:
    bool failed() const { return m_failed; }

    std::optional<QString> string(const QJsonObject& object, QLatin1String key) {
        const QJsonValue value = object.value(key);
        if (isAbsent(value))
            return std::nullopt;
        if (!value.isString())
            return fail<QString>();
        return value.toString();
    }

    std::optional<qint64> integer(const QJsonObject& object, QLatin1String key) {
        const QJsonValue value = object.value(key);
        if (isAbsent(value))
            return std::nullopt;
        const std::optional<qint64> number = integral(value);
        if (!number)
            return fail<qint64>();
        return number;
    }

    // An array whose elements are all objects, each read by `readElement`.
    template <typename T, typename ReadElement>
    std::optional<QList<T>> array(const QJsonObject& object, QLatin1String key, ReadElement readElement) {
        const QJsonValue value = object.value(key);
        if (isAbsent(value))
            return std::nullopt;
        if (!value.isArray())
            return fail<QList<T>>();
        QList<T> elements;
        for (const QJsonValue element : value.toArray()) {
            if (!element.isObject())
                return fail<QList<T>>();
            elements.append(readElement(element.toObject()));
        }
        return elements;
    }

    // A JSON number that is a whole number within 64 bits.
    static std::optional<qint64> integral(const QJsonValue& value) {
        if (!value.isDouble())
            return std::nullopt;
        const double number = value.toDouble();
        // 2^63 is the first double above the range; the lower bound -2^63 itself fits.
        constexpr double limit = 9223372036854775808.0;
        if (std::trunc(number) != number || number >= limit || number < -limit)
            return std::nullopt;
        return static_cast<qint64>(number);
    }

private:
    static bool isAbsent(const QJsonValue& value) { return value.isUndefined() || value.isNull(); }

    template <typename T> std::optional<T> fail() {
        m_failed = true;
        return std::nullopt;
    }

    bool m_failed = false;
};

// "score" never fails the decoding: a whole number, or else a string of decimal digits with an optional
// sign, or else nothing.
std::optional<qint64> readScore(const QJsonObject& object) {
    const QJsonValue value = object.value(QLatin1String("score"));
    if (const std::optional<qint64> number = Reader::integral(value))
        return number;
    if (!value.isString())
        return std::nullopt;
    const QString text = value.toString();
    const qsizetype digitsFrom =
        text.startsWith(QLatin1Char('+')) || text.startsWith(QLatin1Char('-')) ? 1 : 0;
    if (text.size() == digitsFrom)
        return std::nullopt;
    for (qsizetype i = digitsFrom; i < text.size(); ++i) {
        if (text[i] < QLatin1Char('0') || text[i] > QLatin1Char('9'))
            return std::nullopt;
    }
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, 10);
    return ok ? std::optional<qint64>(number) : std::nullopt;
}

MBRelease readRelease(Reader& reader, const QJsonObject& object) {
    MBRelease release;
    release.title = reader.string(object, QLatin1String("title"));
    release.date = reader.string(object, QLatin1String("date"));
    release.media =
        reader.array<MBMedium>(object, QLatin1String("media"), [&reader](const QJsonObject& medium) {
            return MBMedium{
                reader.array<MBTrack>(medium, QLatin1String("track"), [&reader](const QJsonObject& track) {
                    return MBTrack{reader.string(track, QLatin1String("number"))};
                })};
        });
    return release;
}

MBRecording readRecording(Reader& reader, const QJsonObject& object) {
    MBRecording recording;
    recording.title = reader.string(object, QLatin1String("title"));
    recording.score = readScore(object);
    recording.artistCredit = reader.array<MBArtistCredit>(
        object, QLatin1String("artist-credit"), [&reader](const QJsonObject& credit) {
            return MBArtistCredit{reader.string(credit, QLatin1String("name"))};
        });
    recording.releases =
        reader.array<MBRelease>(object, QLatin1String("releases"), [&reader](const QJsonObject& release) {
            return readRelease(reader, release);
        });
    recording.tags = reader.array<MBTag>(object, QLatin1String("tags"), [&reader](const QJsonObject& tag) {
        return MBTag{reader.string(tag, QLatin1String("name")), reader.integer(tag, QLatin1String("count"))};
    });
    return recording;
}

// Stable sort, highest key first.
template <typename T, typename Key> QList<T> sortedDescending(QList<T> list, Key key) {
    std::stable_sort(list.begin(), list.end(), [&key](const T& a, const T& b) { return key(a) > key(b); });
    return list;
}

std::optional<QString> joinedArtists(const MBRecording& recording) {
    if (!recording.artistCredit)
        return std::nullopt;
    QStringList names;
    for (const MBArtistCredit& credit : *recording.artistCredit) {
        if (credit.name)
            names.append(*credit.name);
    }
    return trimmedNonEmpty(names.join(QLatin1String(", ")));
}

std::optional<QString> firstTrackNumber(const MBRelease& release) {
    if (!release.media || release.media->isEmpty())
        return std::nullopt;
    const std::optional<QList<MBTrack>>& tracks = release.media->first().track;
    if (!tracks || tracks->isEmpty())
        return std::nullopt;
    return tracks->first().number;
}

std::optional<QString> topGenre(const MBRecording& recording) {
    if (!recording.tags || recording.tags->isEmpty())
        return std::nullopt;
    const QList<MBTag> byCount =
        sortedDescending(*recording.tags, [](const MBTag& tag) { return tag.count.value_or(0); });
    if (!byCount.first().name)
        return std::nullopt;
    return MusicBrainz::capitalizedWords(*byCount.first().name);
}

} // namespace

namespace MusicBrainz {

std::optional<QUrl> searchUrl(const QString& endpoint, const QString& title, const QString& artist,
                              const QString& album) {
    QStringList clauses{QStringLiteral("recording:\"%1\"").arg(withoutQuotes(title))};
    if (const std::optional<QString> text = trimmedNonEmpty(artist))
        clauses.append(QStringLiteral("artist:\"%1\"").arg(withoutQuotes(*text)));
    if (const std::optional<QString> text = trimmedNonEmpty(album))
        clauses.append(QStringLiteral("release:\"%1\"").arg(withoutQuotes(*text)));

    QUrl url(endpoint, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative() || url.host().isEmpty())
        return std::nullopt;
    // Each value is fully percent-encoded by hand: the service reads "+" as a blank and "&" as a separator,
    // so both must arrive escaped, and a blank must arrive as %20.
    const QByteArray query =
        "query=" + QUrl::toPercentEncoding(clauses.join(QLatin1String(" AND "))) + "&fmt=json&limit=5";
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
    if (!url.isValid())
        return std::nullopt;
    return url;
}

std::optional<MBResponse> decodeResponse(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    Reader reader;
    MBResponse response;
    response.recordings = reader.array<MBRecording>(
        document.object(), QLatin1String("recordings"),
        [&reader](const QJsonObject& recording) { return readRecording(reader, recording); });
    if (reader.failed())
        return std::nullopt;
    return response;
}

std::optional<MBRecording> bestRecording(const QList<MBRecording>& recordings) {
    if (recordings.isEmpty())
        return std::nullopt;
    const QList<MBRecording> byScore = sortedDescending(
        recordings, [](const MBRecording& recording) { return recording.score.value_or(0); });
    const auto withRelease = std::find_if(byScore.begin(), byScore.end(), [](const MBRecording& recording) {
        return recording.releases && !recording.releases->isEmpty();
    });
    return withRelease != byScore.end() ? *withRelease : byScore.first();
}

std::optional<MBRelease> chosenRelease(const MBRecording& recording) {
    if (!recording.releases || recording.releases->isEmpty())
        return std::nullopt;
    QList<MBRelease> byDate = *recording.releases;
    std::stable_sort(byDate.begin(), byDate.end(), [](const MBRelease& a, const MBRelease& b) {
        return a.date.value_or(QStringLiteral("9999")) < b.date.value_or(QStringLiteral("9999"));
    });
    return byDate.first();
}

RemoteMetadata makeRemoteMetadata(const MBRecording& recording) {
    RemoteMetadata metadata;
    metadata.title = recording.title;
    metadata.artist = joinedArtists(recording);
    if (const std::optional<MBRelease> release = chosenRelease(recording)) {
        metadata.album = release->title;
        metadata.trackNumber = firstTrackNumber(*release);
        if (release->date)
            metadata.year = trimmedNonEmpty(TextRules::firstCharacters(*release->date, 4));
    }
    metadata.genre = topGenre(recording);
    metadata.sourceName = QStringLiteral("MusicBrainz");
    metadata.confidence = recording.score.value_or(0);
    return metadata;
}

QString capitalizedWords(const QString& text) {
    QList<uint> codePoints = text.toUcs4();
    bool inWord = false;
    for (uint& codePoint : codePoints) {
        const bool apostrophe = codePoint == '\'' || codePoint == 0x2019;
        if (QChar::isLetter(codePoint))
            codePoint = inWord ? QChar::toLower(codePoint) : QChar::toTitleCase(codePoint);
        // Accents written as combining marks and apostrophes ("rock'n'roll") stay inside the word.
        inWord = QChar::isLetterOrNumber(codePoint) || (inWord && (apostrophe || QChar::isMark(codePoint)));
    }
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(codePoints.constData()), codePoints.size());
}

} // namespace MusicBrainz

#include "services/MusicBrainzRecording.h"

#include <QTest>

using Text = std::optional<QString>;

namespace {

// The proposal for the best recording of a search answer listing `list`.
std::optional<RemoteMetadata> proposalFor(const QByteArray& list) {
    const std::optional<MBResponse> response = MusicBrainz::decodeResponse("{\"recordings\":[" + list + "]}");
    if (!response || !response->recordings)
        return std::nullopt;
    const std::optional<MBRecording> best = MusicBrainz::bestRecording(*response->recordings);
    if (!best)
        return std::nullopt;
    return MusicBrainz::makeRemoteMetadata(*best);
}

} // namespace

class MusicBrainzRecordingTest : public QObject {
    Q_OBJECT
private slots:
    void searchUrl_data();
    void searchUrl();
    void searchUrlNeedsAnAbsoluteEndpoint();
    void decoding_data();
    void decoding();
    void score_data();
    void score();
    void bestRecording_data();
    void bestRecording();
    void mapping_data();
    void mapping();
    void capitalizedWords_data();
    void capitalizedWords();
};

void MusicBrainzRecordingTest::searchUrl_data() {
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("artist");
    QTest::addColumn<QString>("album");
    QTest::addColumn<QString>("query");

    const auto row = [](const char* name, const char* title, const char* artist, const char* album,
                        const char* query) {
        QTest::addRow("%s", name) << QString(title) << QString(artist) << QString(album) << QString(query);
    };
    row("quotes removed", R"(Say "Hello")", "", "", R"(recording:"Say Hello")");
    row("blank artist left out, album trimmed", "Café", " \t\n ", "  Über Alles\n",
        R"(recording:"Café" AND release:"Über Alles")");
    row("all three, delimiters escaped", "C++ & Friends", R"( "AC/DC" )", R"(Hits: (Live) \ 100% #1 a=b)",
        R"(recording:"C++ & Friends" AND artist:"AC/DC" AND release:"Hits: (Live) \ 100% #1 a=b")");
}

void MusicBrainzRecordingTest::searchUrl() {
    QFETCH(QString, title);
    QFETCH(QString, artist);
    QFETCH(QString, album);
    QFETCH(QString, query);

    const QString endpoint = QStringLiteral("https://musicbrainz.example/ws/2/recording");
    const std::optional<QUrl> url = MusicBrainz::searchUrl(endpoint, title, artist, album);
    QVERIFY(url);
    QCOMPARE(url->toString(QUrl::RemoveQuery), endpoint);
    // Read as a server would: "&" separates, "+" may mean a blank, so neither may appear unescaped.
    const QList<QByteArray> items = url->query(QUrl::FullyEncoded).toLatin1().split('&');
    QCOMPARE(items.size(), 3);
    QVERIFY2(items[0].startsWith("query=") && !items[0].contains('+'), items[0]);
    QCOMPARE(QString::fromUtf8(QByteArray::fromPercentEncoding(items[0].mid(6))), query);
    QCOMPARE(items[1], QByteArray("fmt=json"));
    QCOMPARE(items[2], QByteArray("limit=5"));
}

void MusicBrainzRecordingTest::searchUrlNeedsAnAbsoluteEndpoint() {
    for (const char* endpoint : {"", "ws/2/recording", "https://[musicbrainz/ws/2/recording",
                                 "https://music brainz.org/ws/2/recording"})
        QCOMPARE(MusicBrainz::searchUrl(endpoint, "Yesterday", "", ""), std::nullopt);
}

void MusicBrainzRecordingTest::decoding_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("recordingCount"); // -1: "recordings" absent; -2: unreadable

    const auto row = [](const char* name, const QByteArray& json, int count) {
        QTest::addRow("%s", name) << json << count;
    };
    const auto listing = [](const QByteArray& list) { return "{\"recordings\":[" + list + "]}"; };
    row("empty object", "{}", -1);
    row("null recordings", "{\"recordings\":null}", -1);
    row("empty list", listing(""), 0);
    row("unknown keys and nulls ignored", listing("{\"title\":null,\"isrcs\":[1,2],\"extra\":{\"a\":[]}}"),
        1);
    row("integral count as 5.0", listing("{\"tags\":[{\"name\":\"pop\",\"count\":5.0}]}"), 1);
    row("not JSON", "<html><body>Bad gateway</body></html>", -2);
    row("array at top", "[]", -2);
    row("recordings an object", "{\"recordings\":{}}", -2);
    row("recording null in list", listing("null"), -2);
    row("title a number", listing("{\"title\":5}"), -2);
    row("artist credit name a list", listing("{\"artist-credit\":[{\"name\":[\"A\"]}]}"), -2);
    row("track number an integer", listing("{\"releases\":[{\"media\":[{\"track\":[{\"number\":3}]}]}]}"),
        -2);
    row("media a string", listing("{\"releases\":[{\"media\":\"CD\"}]}"), -2);
    row("tag count a string", listing("{\"tags\":[{\"name\":\"pop\",\"count\":\"5\"}]}"), -2);
    row("tag count fractional", listing("{\"tags\":[{\"name\":\"pop\",\"count\":2.5}]}"), -2);
    row("wrong type in a later recording", listing("{\"title\":\"A\"},{\"tags\":\"rock\"}"), -2);
}

void MusicBrainzRecordingTest::decoding() {
    QFETCH(QByteArray, json);
    QFETCH(int, recordingCount);
    const std::optional<MBResponse> response = MusicBrainz::decodeResponse(json);
    QCOMPARE(!response ? -2 : response->recordings ? int(response->recordings->size()) : -1, recordingCount);
}

void MusicBrainzRecordingTest::score_data() {
    QTest::addColumn<QByteArray>("field"); // the "score" member as written, or empty for none
    QTest::addColumn<int>("confidence");

    const auto row = [](const char* name, const QByteArray& field, int confidence) {
        QTest::addRow("%s", name) << field << confidence;
    };
    row("integer", "\"score\":97,", 97);
    row("string of digits", "\"score\":\"97\",", 97);
    row("signed string", "\"score\":\"+42\",", 42);
    row("percent string", "\"score\":\"97%\",", 0);
    row("overflowing string", "\"score\":\"99999999999999999999\",", 0);
    row("Arabic-Indic digits", "\"score\":\"\xd9\xa9\xd9\xa7\",", 0);
    row("fraction", "\"score\":97.5,", 0);
    row("boolean", "\"score\":true,", 0);
    row("missing", "", 0);
}

void MusicBrainzRecordingTest::score() {
    QFETCH(QByteArray, field);
    QFETCH(int, confidence);
    // A score of any shape never makes the answer unreadable.
    const std::optional<RemoteMetadata> proposal = proposalFor("{" + field + "\"title\":\"Song\"}");
    QVERIFY(proposal);
    QCOMPARE(proposal->confidence, confidence);
    QCOMPARE(proposal->title, Text("Song"));
}

void MusicBrainzRecordingTest::bestRecording_data() {
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<QString>("chosen");

    // Recordings named A, B, C… in order, each with the given members.
    const auto row = [](const char* name, QList<QByteArray> members, const char* chosen) {
        for (qsizetype i = 0; i < members.size(); ++i)
            members[i] = "{\"title\":\"" + QByteArray(1, char('A' + i)) + "\"" + members[i] + "}";
        QTest::addRow("%s", name) << members.join(',') << QString(chosen);
    };
    const QByteArray release = ",\"releases\":[{\"title\":\"R\"}]";
    row("best without release passed over", {",\"score\":100,\"releases\":[]", ",\"score\":80" + release},
        "B");
    row("equal scores keep the service's order", {",\"score\":90" + release, ",\"score\":90" + release}, "A");
    row("missing score sorts after a positive one", {release, ",\"score\":1" + release}, "B");
    row("string score sorts by its value", {",\"score\":50" + release, ",\"score\":\"97\"" + release}, "B");
    row("no releases anywhere: highest score", {",\"score\":10", ",\"score\":60", ",\"score\":30"}, "B");
    row("score 0 still chosen", {",\"score\":0"}, "A");
}

void MusicBrainzRecordingTest::bestRecording() {
    QFETCH(QByteArray, list);
    QFETCH(QString, chosen);
    const std::optional<RemoteMetadata> proposal = proposalFor(list);
    QVERIFY(proposal);
    QCOMPARE(proposal->title, Text(chosen));
    QCOMPARE(MusicBrainz::bestRecording({}), std::nullopt);
}

void MusicBrainzRecordingTest::mapping_data() {
    QTest::addColumn<QByteArray>("recording");
    QTest::addColumn<RemoteMetadata>("expected");

    const auto row = [](const char* name, const QByteArray& recording, Text artist, Text album, Text track,
                        Text year, Text genre) {
        RemoteMetadata expected;
        expected.artist = artist;
        expected.album = album;
        expected.trackNumber = track;
        expected.year = year;
        expected.genre = genre;
        expected.sourceName = QStringLiteral("MusicBrainz");
        QTest::addRow("%s", name) << recording << expected;
    };
    const Text none;
    row("nameless credits skipped, names trimmed",
        R"({"artist-credit":[{"name":" Simon"},{"artist":{}},{"name":"Garfunkel "}]})", "Simon, Garfunkel",
        none, none, none, none);
    row("no credit named", R"({"artist-credit":[{"artist":{"name":"X"}}]})", none, none, none, none, none);
    row("earliest dated release, undated last",
        R"({"releases":[{"title":"Late","date":"2001-03-05"},{"title":"Undated"},)"
        R"({"title":"Early","date":"1999","media":[{"track":[{"number":"A2"}]}]}]})",
        none, "Early", "A2", "1999", none);
    row("year before a full date of the same year",
        R"({"releases":[{"title":"Full","date":"1997-05-21"},{"title":"Year","date":"1997"}]})", none, "Year",
        none, "1997", none);
    row("all undated: first listed", R"({"releases":[{"title":"First"},{"title":"Second"}]})", none, "First",
        none, none, none);
    row("short date kept", R"({"releases":[{"title":"R","date":"19"}]})", none, "R", none, "19", none);
    row("blank date gives no year", R"({"releases":[{"title":"R","date":"    "}]})", none, "R", none, none,
        none);
    row("first medium without tracks",
        R"({"releases":[{"title":"R","media":[{"track":[]},{"track":[{"number":"2"}]}]}]})", none, "R", none,
        none, none);
    row("most counted tag, first of a tie",
        R"({"tags":[{"name":"rock","count":2},{"name":"classic rock","count":5},{"name":"pop","count":5}]})",
        none, none, none, none, "Classic Rock");
    row("tag without count counts 0", R"({"tags":[{"name":"jazz"},{"name":"BLUES","count":1}]})", none, none,
        none, none, "Blues");
    row("top tag without a name", R"({"tags":[{"count":9},{"name":"pop","count":1}]})", none, none, none,
        none, none);
}

void MusicBrainzRecordingTest::mapping() {
    QFETCH(QByteArray, recording);
    QFETCH(RemoteMetadata, expected);
    QCOMPARE(proposalFor(recording), std::optional<RemoteMetadata>(expected));
}

void MusicBrainzRecordingTest::capitalizedWords_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* text, const char* expected) {
        QTest::addRow("%s", text) << QString::fromUtf8(text) << QString::fromUtf8(expected);
    };
    row("HEAVY METAL", "Heavy Metal");
    row("hip-hop", "Hip-Hop");
    row("r&b", "R&B");
    row("80s pop", "80s Pop");
    row("rock'n'roll", "Rock'n'roll");
    row("me\xcc\x81tal noir", "Me\xcc\x81tal Noir"); // a combining accent stays inside its word
    row("ÉLECTRO ÇA", "Électro Ça");
}

void MusicBrainzRecordingTest::capitalizedWords() {
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(MusicBrainz::capitalizedWords(text), expected);
}

QTEST_GUILESS_MAIN(MusicBrainzRecordingTest)
#include "musicbrainz_recording_test.moc"

#include "services/MusicBrainzRecording.h"

#include <QTest>
#include <QUrlQuery>

namespace {

// The proposal for the first recording of a search answer written as JSON.
std::optional<RemoteMetadata> proposalFor(const QByteArray& json) {
    const std::optional<MBResponse> response = MusicBrainz::decodeResponse(json);
    if (!response || !response->recordings)
        return std::nullopt;
    const std::optional<MBRecording> best = MusicBrainz::bestRecording(*response->recordings);
    if (!best)
        return std::nullopt;
    return MusicBrainz::makeRemoteMetadata(*best);
}

QByteArray recordings(const QByteArray& list) {
    return "{\"recordings\":[" + list + "]}";
}

using Text = std::optional<QString>;

} // namespace

class MusicBrainzRecordingTest : public QObject {
    Q_OBJECT
private slots:
    void searchUrl_data();
    void searchUrl();
    void searchUrlEscapesDelimiters();
    void searchUrlNeedsAnAbsoluteEndpoint_data();
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

    QTest::addRow("title and artist") << "Yesterday"
                                      << "The Beatles"
                                      << ""
                                      << "recording:\"Yesterday\" AND artist:\"The Beatles\"";
    QTest::addRow("quotes removed") << "Say \"Hello\""
                                    << ""
                                    << ""
                                    << "recording:\"Say Hello\"";
    QTest::addRow("blank artist left out, album trimmed") << "Café"
                                                          << " \t\n "
                                                          << "  Über Alles\n"
                                                          << "recording:\"Café\" AND release:\"Über Alles\"";
    QTest::addRow("all three, punctuation passes through")
        << "C++ & Friends"
        << " \"AC/DC\" "
        << "Hits: (Live) \\ 100% #1 a=b"
        << "recording:\"C++ & Friends\" AND artist:\"AC/DC\" AND release:\"Hits: (Live) \\ 100% #1 a=b\"";
}

void MusicBrainzRecordingTest::searchUrl() {
    QFETCH(QString, title);
    QFETCH(QString, artist);
    QFETCH(QString, album);
    QFETCH(QString, query);

    const std::optional<QUrl> url = MusicBrainz::searchUrl(
        QStringLiteral("https://musicbrainz.example/ws/2/recording"), title, artist, album);
    QVERIFY(url);
    QCOMPARE(url->toString(QUrl::RemoveQuery), QStringLiteral("https://musicbrainz.example/ws/2/recording"));
    const QList<std::pair<QString, QString>> items = QUrlQuery(*url).queryItems(QUrl::FullyDecoded);
    const QList<std::pair<QString, QString>> expected{{"query", query}, {"fmt", "json"}, {"limit", "5"}};
    QCOMPARE(items, expected);
}

void MusicBrainzRecordingTest::searchUrlEscapesDelimiters() {
    const std::optional<QUrl> url =
        MusicBrainz::searchUrl(QStringLiteral("https://mb.example/ws/2/recording"), "C++ & Me", "", "");
    QVERIFY(url);
    // A server that reads "+" as a blank or "&" as a separator must still see the title unchanged.
    const QByteArray encoded = url->query(QUrl::FullyEncoded).toLatin1();
    QVERIFY2(encoded.startsWith("query=recording%3A%22C%2B%2B%20%26%20Me%22&fmt=json&limit=5"), encoded);
}

void MusicBrainzRecordingTest::searchUrlNeedsAnAbsoluteEndpoint_data() {
    QTest::addColumn<QString>("endpoint");
    QTest::addRow("empty") << "";
    QTest::addRow("relative") << "ws/2/recording";
    QTest::addRow("broken host") << "https://[musicbrainz/ws/2/recording";
    QTest::addRow("blank inside") << "https://music brainz.org/ws/2/recording";
}

void MusicBrainzRecordingTest::searchUrlNeedsAnAbsoluteEndpoint() {
    QFETCH(QString, endpoint);
    QCOMPARE(MusicBrainz::searchUrl(endpoint, "Yesterday", "", ""), std::nullopt);
}

void MusicBrainzRecordingTest::decoding_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<int>("recordingCount"); // -1: "recordings" absent

    QTest::addRow("empty object") << QByteArray("{}") << true << -1;
    QTest::addRow("null recordings") << QByteArray("{\"recordings\":null}") << true << -1;
    QTest::addRow("empty list") << recordings("") << true << 0;
    QTest::addRow("unknown keys and nulls ignored")
        << recordings("{\"title\":null,\"video\":null,\"isrcs\":[1,2],\"extra\":{\"a\":[]}}") << true << 1;
    QTest::addRow("integral count as 5.0")
        << recordings("{\"tags\":[{\"name\":\"pop\",\"count\":5.0}]}") << true << 1;
    QTest::addRow("not JSON") << QByteArray("<html><body>Bad gateway</body></html>") << false << 0;
    QTest::addRow("truncated") << QByteArray("{\"recordings\":[{\"title\":\"A\"") << false << 0;
    QTest::addRow("array at top") << QByteArray("[]") << false << 0;
    QTest::addRow("recordings an object") << QByteArray("{\"recordings\":{}}") << false << 0;
    QTest::addRow("recording null in list") << recordings("null") << false << 0;
    QTest::addRow("title a number") << recordings("{\"title\":5}") << false << 0;
    QTest::addRow("artist credit name a list")
        << recordings("{\"artist-credit\":[{\"name\":[\"A\"]}]}") << false << 0;
    QTest::addRow("release date a number") << recordings("{\"releases\":[{\"date\":1997}]}") << false << 0;
    QTest::addRow("track number an integer")
        << recordings("{\"releases\":[{\"media\":[{\"track\":[{\"number\":3}]}]}]}") << false << 0;
    QTest::addRow("media a string") << recordings("{\"releases\":[{\"media\":\"CD\"}]}") << false << 0;
    QTest::addRow("tag count a string")
        << recordings("{\"tags\":[{\"name\":\"pop\",\"count\":\"5\"}]}") << false << 0;
    QTest::addRow("tag count fractional")
        << recordings("{\"tags\":[{\"name\":\"pop\",\"count\":2.5}]}") << false << 0;
    QTest::addRow("wrong type in a later recording")
        << recordings("{\"title\":\"A\"},{\"tags\":\"rock\"}") << false << 0;
}

void MusicBrainzRecordingTest::decoding() {
    QFETCH(QByteArray, json);
    QFETCH(bool, decodes);
    QFETCH(int, recordingCount);

    const std::optional<MBResponse> response = MusicBrainz::decodeResponse(json);
    QCOMPARE(response.has_value(), decodes);
    if (decodes)
        QCOMPARE(response->recordings ? int(response->recordings->size()) : -1, recordingCount);
}

void MusicBrainzRecordingTest::score_data() {
    QTest::addColumn<QByteArray>("field"); // the "score" member as written, or empty for none
    QTest::addColumn<int>("confidence");

    QTest::addRow("integer") << QByteArray("\"score\":97,") << 97;
    QTest::addRow("string of digits") << QByteArray("\"score\":\"97\",") << 97;
    QTest::addRow("signed string") << QByteArray("\"score\":\"+42\",") << 42;
    QTest::addRow("percent string") << QByteArray("\"score\":\"97%\",") << 0;
    QTest::addRow("empty string") << QByteArray("\"score\":\"\",") << 0;
    QTest::addRow("blank inside string") << QByteArray("\"score\":\" 97\",") << 0;
    QTest::addRow("sign alone") << QByteArray("\"score\":\"-\",") << 0;
    QTest::addRow("overflowing string") << QByteArray("\"score\":\"99999999999999999999\",") << 0;
    QTest::addRow("Arabic-Indic digits") << QByteArray("\"score\":\"\xd9\xa9\xd9\xa7\",") << 0;
    QTest::addRow("fraction") << QByteArray("\"score\":97.5,") << 0;
    QTest::addRow("boolean") << QByteArray("\"score\":true,") << 0;
    QTest::addRow("object") << QByteArray("\"score\":{\"value\":97},") << 0;
    QTest::addRow("null") << QByteArray("\"score\":null,") << 0;
    QTest::addRow("missing") << QByteArray() << 0;
}

void MusicBrainzRecordingTest::score() {
    QFETCH(QByteArray, field);
    QFETCH(int, confidence);

    // A score of any shape never makes the answer unreadable.
    const std::optional<RemoteMetadata> proposal =
        proposalFor(recordings("{" + field + "\"title\":\"Song\"}"));
    QVERIFY(proposal);
    QCOMPARE(proposal->confidence, confidence);
    QCOMPARE(proposal->title, Text("Song"));
}

void MusicBrainzRecordingTest::bestRecording_data() {
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<QString>("chosen");

    const QByteArray release = "\"releases\":[{\"title\":\"R\"}]";
    QTest::addRow("best without release passed over")
        << QByteArray("{\"title\":\"A\",\"score\":100,\"releases\":[]},{\"title\":\"B\",\"score\":80," +
                      release + "}")
        << "B";
    QTest::addRow("equal scores keep the service's order")
        << QByteArray("{\"title\":\"A\",\"score\":90," + release + "},{\"title\":\"B\",\"score\":90," +
                      release + "}")
        << "A";
    QTest::addRow("missing score sorts after a positive one")
        << QByteArray("{\"title\":\"A\"," + release + "},{\"title\":\"B\",\"score\":1," + release + "}")
        << "B";
    QTest::addRow("string score sorts by its value")
        << QByteArray("{\"title\":\"A\",\"score\":50," + release + "},{\"title\":\"B\",\"score\":\"97\"," +
                      release + "}")
        << "B";
    QTest::addRow("no releases anywhere: highest score")
        << QByteArray(
               "{\"title\":\"A\",\"score\":10},{\"title\":\"B\",\"score\":60},{\"title\":\"C\",\"score\":30}")
        << "B";
    QTest::addRow("score 0 still chosen") << QByteArray("{\"title\":\"A\",\"score\":0}") << "A";
}

void MusicBrainzRecordingTest::bestRecording() {
    QFETCH(QByteArray, list);
    QFETCH(QString, chosen);

    const std::optional<RemoteMetadata> proposal = proposalFor(recordings(list));
    QVERIFY(proposal);
    QCOMPARE(proposal->title, Text(chosen));
    QCOMPARE(MusicBrainz::bestRecording({}), std::nullopt);
}

void MusicBrainzRecordingTest::mapping_data() {
    QTest::addColumn<QByteArray>("recording");
    QTest::addColumn<Text>("artist");
    QTest::addColumn<Text>("album");
    QTest::addColumn<Text>("trackNumber");
    QTest::addColumn<Text>("year");
    QTest::addColumn<Text>("genre");

    const Text none;
    QTest::addRow("credits without a name skipped")
        << QByteArray("{\"artist-credit\":[{\"name\":\"Simon\"},{\"artist\":{}},{\"name\":\"Garfunkel\"}]}")
        << Text("Simon, Garfunkel") << none << none << none << none;
    QTest::addRow("no credit named") << QByteArray("{\"artist-credit\":[{\"artist\":{\"name\":\"X\"}}]}")
                                     << none << none << none << none << none;
    QTest::addRow("credit name trimmed") << QByteArray("{\"artist-credit\":[{\"name\":\"  Björk \"}]}")
                                         << Text("Björk") << none << none << none << none;
    QTest::addRow("earliest dated release, undated last")
        << QByteArray(
               "{\"releases\":[{\"title\":\"Late\",\"date\":\"2001-03-05\"},{\"title\":\"Undated\"},"
               "{\"title\":\"Early\",\"date\":\"1999\",\"media\":[{\"track\":[{\"number\":\"A2\"}]}]}]}")
        << none << Text("Early") << Text("A2") << Text("1999") << none;
    QTest::addRow("year before a full date of the same year")
        << QByteArray("{\"releases\":[{\"title\":\"Full\",\"date\":\"1997-05-21\"},{\"title\":\"Year\","
                      "\"date\":\"1997\"}]}")
        << none << Text("Year") << none << Text("1997") << none;
    QTest::addRow("all undated: first listed")
        << QByteArray("{\"releases\":[{\"title\":\"First\"},{\"title\":\"Second\"}]}") << none
        << Text("First") << none << none << none;
    QTest::addRow("short date kept") << QByteArray("{\"releases\":[{\"title\":\"R\",\"date\":\"19\"}]}")
                                     << none << Text("R") << none << Text("19") << none;
    QTest::addRow("blank date gives no year")
        << QByteArray("{\"releases\":[{\"title\":\"R\",\"date\":\"    \"}]}") << none << Text("R") << none
        << none << none;
    QTest::addRow("first medium without tracks")
        << QByteArray("{\"releases\":[{\"title\":\"R\",\"media\":[{\"track\":[]},{\"track\":[{\"number\":"
                      "\"2\"}]}]}]}")
        << none << Text("R") << none << none << none;
    QTest::addRow("most counted tag, first of a tie")
        << QByteArray("{\"tags\":[{\"name\":\"rock\",\"count\":2},{\"name\":\"classic rock\",\"count\":5},"
                      "{\"name\":\"pop\",\"count\":5}]}")
        << none << none << none << none << Text("Classic Rock");
    QTest::addRow("tag without count counts 0")
        << QByteArray("{\"tags\":[{\"name\":\"jazz\"},{\"name\":\"BLUES\",\"count\":1}]}") << none << none
        << none << none << Text("Blues");
    QTest::addRow("top tag without a name")
        << QByteArray("{\"tags\":[{\"count\":9},{\"name\":\"pop\",\"count\":1}]}") << none << none << none
        << none << none;
}

void MusicBrainzRecordingTest::mapping() {
    QFETCH(QByteArray, recording);
    QFETCH(Text, artist);
    QFETCH(Text, album);
    QFETCH(Text, trackNumber);
    QFETCH(Text, year);
    QFETCH(Text, genre);

    const std::optional<RemoteMetadata> proposal = proposalFor(recordings(recording));
    QVERIFY(proposal);
    QCOMPARE(proposal->artist, artist);
    QCOMPARE(proposal->album, album);
    QCOMPARE(proposal->trackNumber, trackNumber);
    QCOMPARE(proposal->year, year);
    QCOMPARE(proposal->genre, genre);
    QCOMPARE(proposal->albumArtist, std::nullopt);
    QCOMPARE(proposal->comment, std::nullopt);
    QCOMPARE(proposal->sourceName, QStringLiteral("MusicBrainz"));
}

void MusicBrainzRecordingTest::capitalizedWords_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::addRow("two words") << "classic rock"
                               << "Classic Rock";
    QTest::addRow("shouting") << "HEAVY METAL"
                              << "Heavy Metal";
    QTest::addRow("hyphen starts a word") << "hip-hop"
                                          << "Hip-Hop";
    QTest::addRow("ampersand") << "r&b"
                               << "R&B";
    QTest::addRow("digits begin a word") << "80s pop"
                                         << "80s Pop";
    QTest::addRow("apostrophe inside a word") << "rock'n'roll"
                                              << "Rock'n'roll";
    QTest::addRow("combining accent inside a word")
        << QString::fromUtf8("me\xcc\x81tal noir") << QString::fromUtf8("Me\xcc\x81tal Noir");
    QTest::addRow("non-ASCII letters") << "ÉLECTRO ÇA"
                                       << "Électro Ça";
}

void MusicBrainzRecordingTest::capitalizedWords() {
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(MusicBrainz::capitalizedWords(text), expected);
}

QTEST_GUILESS_MAIN(MusicBrainzRecordingTest)
#include "musicbrainz_recording_test.moc"

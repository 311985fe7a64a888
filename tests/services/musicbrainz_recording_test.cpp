#include "services/MusicBrainzRecording.h"

#include <QTest>

namespace {

// What the program proposes for a search answer, as "field=value" pairs of the present fields and a score
// other than 0; or why it proposes nothing.
QString proposalFor(const QByteArray& body) {
    const std::optional<MBResponse> response = MusicBrainz::decodeResponse(body);
    if (!response)
        return "unreadable";
    const std::optional<MBRecording> best =
        MusicBrainz::bestRecording(response->recordings.value_or(QList<MBRecording>()));
    if (!best)
        return "no match";
    const RemoteMetadata proposal = MusicBrainz::makeRemoteMetadata(*best);
    QStringList fields;
    for (const MetadataField& field : MetadataField::all()) {
        if (const std::optional<QString>& value = proposal.*field.remote)
            fields << field.id + '=' + *value;
    }
    if (proposal.confidence != 0)
        fields << QStringLiteral("score=%1").arg(proposal.confidence);
    return fields.join("; ");
}

} // namespace

class MusicBrainzRecordingTest : public QObject {
    Q_OBJECT
private slots:
    void proposal_data(); // defined below: moc misreads some of its raw strings

    void proposal() {
        QFETCH(QByteArray, body);
        QTEST(proposalFor(body), "proposal");
    }
};

void MusicBrainzRecordingTest::proposal_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("proposal");
    const auto answer = [](const char* name, const QByteArray& body, const char* proposal) {
        QTest::addRow("%s", name) << body << QString::fromUtf8(proposal);
    };
    // A search answer listing `recordings`.
    const auto row = [&answer](const char* name, const QByteArray& recordings, const char* proposal) {
        answer(name, "{\"recordings\":[" + recordings + "]}", proposal);
    };
    // Strict decoding: any listed field of the wrong type spoils the whole answer.
    answer("empty object", "{}", "no match");
    answer("array at top", "[]", "unreadable");
    row("integral count written as 5.0", R"({"tags":[{"name":"pop","count":5.0}]})", "genre=Pop");
    row("track number an integer", R"({"releases":[{"media":[{"track":[{"number":3}]}]}]})", "unreadable");
    row("tag count fractional", R"({"tags":[{"count":2.5}]})", "unreadable");
    // The score alone is lenient: a whole number, else a string of decimal digits, else nothing.
    row("score string", R"({"score":"97"})", "score=97");
    row("score overflowing", R"({"score":"99999999999999999999"})", "");
    row("score fraction", R"({"score":97.5})", "");
    row("score of 64 bits", R"({"score":"-9223372036854775808"})", "score=-9223372036854775808");
    // The best recording: highest score first, ties in the service's order, one with a release if any.
    const QByteArray release = R"("releases":[{"title":"R"}])";
    row("best without release passed over",
        R"({"title":"A","score":100,"releases":[]},{"title":"B","score":80,)" + release + "}",
        "title=B; album=R; score=80");
    row("equal scores keep the service's order",
        R"({"title":"A","score":90,)" + release + R"(},{"title":"B","score":90,)" + release + "}",
        "title=A; album=R; score=90");
    row("no releases anywhere: highest score", R"({"title":"A","score":10},{"title":"B","score":60})",
        "title=B; score=60");
    // The mapping of the chosen recording.
    row("nameless credits skipped, names trimmed",
        R"({"artist-credit":[{"name":" Simon"},{"artist":{}},{"name":"Garfunkel "}]})",
        "artist=Simon, Garfunkel");
    row("earliest dated release, undated last",
        R"({"releases":[{"title":"Late","date":"2001-03-05"},{"title":"Undated"},)"
        R"({"title":"Early","date":"1999","media":[{"track":[{"number":"A2"}]}]}]})",
        "album=Early; track=A2; year=1999");
    row("year of 4 characters beyond 16 bits", R"({"releases":[{"title":"R","date":"𝟏𝟗𝟗𝟕-05"}]})",
        "album=R; year=𝟏𝟗𝟗𝟕");
    row("most counted tag, first of a tie",
        R"({"tags":[{"name":"rock","count":2},{"name":"classic rock","count":5},{"name":"pop","count":5}]})",
        "genre=Classic Rock");
    row("tag without count counts 0", R"({"tags":[{"name":"jazz"},{"name":"BLUES","count":1}]})",
        "genre=Blues");
}

QTEST_GUILESS_MAIN(MusicBrainzRecordingTest)
#include "musicbrainz_recording_test.moc"

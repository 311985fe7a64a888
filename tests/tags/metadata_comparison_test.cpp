#include "tags/MusicMetadata.h"

#include <QLocale>
#include <QTest>

namespace {

using Optional = std::optional<QString>;

MusicMetadata sampleDraft() {
    return MusicMetadata{"Come Together", "The Beatles", "Abbey Road", "The Beatles", "1",
                         "1969",          "Rock",        "Remaster"};
}

// A record as a MusicBrainz match gives it: no album artist and no comment.
RemoteMetadata musicBrainzRecord() {
    RemoteMetadata remote;
    remote.title = "Something";
    remote.artist = "the beatles";
    remote.album = "  Abbey Road ";
    remote.trackNumber = "2/17";
    remote.year = "1969";
    remote.genre = "Rock";
    remote.sourceName = "MusicBrainz";
    remote.confidence = 97;
    return remote;
}

const MetadataField& row(const QString& id) {
    for (const MetadataField& field : MetadataField::all()) {
        if (field.id == id)
            return field;
    }
    qFatal("no row %s", qPrintable(id));
}

} // namespace

class MetadataComparisonTest : public QObject {
    Q_OBJECT

private slots:
    void fieldTableRows_data();
    void fieldTableRows();
    void suggestionRule_data();
    void suggestionRule();
    void suggestionDoesNotDependOnTheLocale();
    void noRemoteRecordMeansNoSuggestions();
    void absentRemoteValuesNeverSuggest();
    void applyAllSuggestionsLeavesNothingToSuggest();
    void applyingOneSuggestionSilencesOnlyThatRow();
    void musicMetadataEquality_data();
    void musicMetadataEquality();
    void remoteMetadataEquality();
};

void MetadataComparisonTest::fieldTableRows_data() {
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("label");
    QTest::addColumn<bool>("isNarrow");
    QTest::addColumn<bool>("isMultiline");
    QTest::addRow("title") << 0 << "title"
                           << "Title" << false << false;
    QTest::addRow("artist") << 1 << "artist"
                            << "Artist" << false << false;
    QTest::addRow("album") << 2 << "album"
                           << "Album" << false << false;
    QTest::addRow("albumArtist") << 3 << "albumArtist"
                                 << "Album Artist" << false << false;
    QTest::addRow("track") << 4 << "track"
                           << "Track" << true << false;
    QTest::addRow("year") << 5 << "year"
                          << "Year" << true << false;
    QTest::addRow("genre") << 6 << "genre"
                           << "Genre" << false << false;
    QTest::addRow("comment") << 7 << "comment"
                             << "Comment" << false << true;
}

// Each row's accessors must select the same field in both records, and the field its id names.
void MetadataComparisonTest::fieldTableRows() {
    QFETCH(int, index);
    QFETCH(QString, id);
    QFETCH(QString, label);
    QFETCH(bool, isNarrow);
    QFETCH(bool, isMultiline);

    QCOMPARE(MetadataField::all().size(), 8);
    const MetadataField field = MetadataField::all().at(index);
    QCOMPARE(field.id, id);
    QCOMPARE(field.label, label);
    QCOMPARE(field.isNarrow, isNarrow);
    QCOMPARE(field.isMultiline, isMultiline);

    // Mark one field in each record and check that exactly that row sees it.
    MusicMetadata local;
    local.*field.local = "marked";
    RemoteMetadata remote;
    remote.*field.remote = "marked";
    const QStringList names = {"title",       "artist", "album", "albumArtist",
                               "trackNumber", "year",   "genre", "comment"};
    const QStringList localValues = {local.title,       local.artist, local.album, local.albumArtist,
                                     local.trackNumber, local.year,   local.genre, local.comment};
    const QList<Optional> remoteValues = {remote.title,       remote.artist, remote.album, remote.albumArtist,
                                          remote.trackNumber, remote.year,   remote.genre, remote.comment};
    for (int i = 0; i < 8; ++i) {
        QCOMPARE(localValues[i] == "marked", i == index);
        QCOMPARE(remoteValues[i] == Optional("marked"), i == index);
    }
}

void MetadataComparisonTest::suggestionRule_data() {
    QTest::addColumn<QString>("local");
    QTest::addColumn<Optional>("remote");
    QTest::addColumn<Optional>("expected");

    const Optional none;
    QTest::addRow("absent remote value") << "Help!" << none << none;
    QTest::addRow("empty remote value") << "Help!" << Optional("") << none;
    QTest::addRow("blank remote value") << "Help!" << Optional(" \t\n ") << none;
    QTest::addRow("same text") << "Help!" << Optional("Help!") << none;
    QTest::addRow("different text") << "Help!" << Optional("Yesterday") << Optional("Yesterday");
    QTest::addRow("empty local") << "" << Optional("Help!") << Optional("Help!");
    QTest::addRow("blank local") << " \u00A0\t" << Optional("Help!") << Optional("Help!");
    QTest::addRow("case only") << "the beatles" << Optional("The Beatles") << none;
    QTest::addRow("diacritic only") << "beyonce" << Optional("Beyoncé") << none;
    QTest::addRow("case and diacritic") << "BJORK" << Optional("Björk") << none;
    QTest::addRow("decomposed against precomposed") << "Beyonce\u0301" << Optional("BEYONC\u00C9") << none;
    QTest::addRow("two marks on one letter") << "Vi\u1EC7t" << Optional("viet") << none;
    QTest::addRow("Greek accent and case") << "ελλάδα" << Optional("ΕΛΛΑΔΑ") << none;
    QTest::addRow("dotted capital I") << "istanbul" << Optional("İstanbul") << none;
    QTest::addRow("sharp s folds to ss") << "STRASSE" << Optional("Straße") << none;
    QTest::addRow("capital sharp s") << "strasse" << Optional("STRA\u1E9EE") << none;
    QTest::addRow("ligature folds to letters") << "Final" << Optional("\uFB01nal") << none;
    QTest::addRow("different letter") << "Bjorn" << Optional("Björk") << Optional("Björk");
    QTest::addRow("track in a set") << "3" << Optional("3/12") << Optional("3/12");
    QTest::addRow("full date") << "1997" << Optional("1997-05-01") << Optional("1997-05-01");
    QTest::addRow("outside the BMP, equal") << "🎵 Song" << Optional("🎵 song") << none;
    QTest::addRow("outside the BMP, different") << "🎵 Song" << Optional("🎶 Song") << Optional("🎶 Song");
    QTest::addRow("remote padded, local agrees") << "abbey road" << Optional(" Abbey Road ") << none;
    QTest::addRow("remote padded, local empty") << "" << Optional(" Abbey Road ") << Optional("Abbey Road");
    QTest::addRow("local padded") << "\n Abbey Road\r\n" << Optional("Abbey Road") << none;
    QTest::addRow("inner blanks count") << "Abbey  Road" << Optional("Abbey Road") << Optional("Abbey Road");
    // Every kind of Unicode white space and line break is trimmed from the proposal.
    QTest::addRow("tab") << "" << Optional("\tX\t") << Optional("X");
    QTest::addRow("line feed") << "" << Optional("\nX\n") << Optional("X");
    QTest::addRow("carriage return") << "" << Optional("\rX\r") << Optional("X");
    QTest::addRow("vertical tab and form feed") << "" << Optional("\vX\f") << Optional("X");
    QTest::addRow("next line U+0085") << "" << Optional("\u0085X\u0085") << Optional("X");
    QTest::addRow("line separator U+2028") << "" << Optional("\u2028X\u2028") << Optional("X");
    QTest::addRow("paragraph separator U+2029") << "" << Optional("\u2029X\u2029") << Optional("X");
    QTest::addRow("no-break space U+00A0") << "" << Optional("\u00A0X\u00A0") << Optional("X");
    QTest::addRow("em space U+2003") << "" << Optional("\u2003X\u2003") << Optional("X");
    QTest::addRow("ideographic space U+3000") << "" << Optional("\u3000X\u3000") << Optional("X");
    QTest::addRow("narrow no-break space U+202F") << "" << Optional("\u202FX\u202F") << Optional("X");
    QTest::addRow("only Unicode blanks") << "X" << Optional("\u2028\u00A0\u3000\u0085") << none;
    // Not white space: a zero-width space is a format character and stays.
    QTest::addRow("zero-width space stays") << "" << Optional("\u200BX") << Optional("\u200BX");
}

void MetadataComparisonTest::suggestionRule() {
    QFETCH(QString, local);
    QFETCH(Optional, remote);
    QFETCH(Optional, expected);

    // The rule is the same on every row; run it on two rows so that a row-specific slip shows up.
    for (const QString& id : {QStringLiteral("title"), QStringLiteral("comment")}) {
        RemoteMetadata record;
        record.*row(id).remote = remote;
        QCOMPARE(suggestion(row(id), local, record), expected);
    }
}

// The comparison ignores case without any locale: under Turkish rules "I" lower-cases to dotless "ı".
void MetadataComparisonTest::suggestionDoesNotDependOnTheLocale() {
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::Turkish, QLocale::Turkey));
    RemoteMetadata record;
    record.title = "TITLE";
    const bool agrees = !suggestion(row("title"), "title", record).has_value();
    QLocale::setDefault(previous);
    QVERIFY(agrees);
}

void MetadataComparisonTest::noRemoteRecordMeansNoSuggestions() {
    const MusicMetadata draft;
    QCOMPARE(differingFieldCount(draft, std::nullopt), 0);
    for (const MetadataField& field : MetadataField::all())
        QCOMPARE(suggestion(field, QString(), std::nullopt), Optional());
}

void MetadataComparisonTest::absentRemoteValuesNeverSuggest() {
    MusicMetadata draft = sampleDraft();
    draft.albumArtist = "";
    draft.comment = "something else entirely";
    const RemoteMetadata remote = musicBrainzRecord();
    QCOMPARE(suggestion(row("albumArtist"), draft.albumArtist, remote), Optional());
    QCOMPARE(suggestion(row("comment"), draft.comment, remote), Optional());
    // title and track differ; artist, album (padded) and year and genre agree.
    QCOMPARE(differingFieldCount(draft, remote), 2);
}

void MetadataComparisonTest::applyAllSuggestionsLeavesNothingToSuggest() {
    MusicMetadata draft = sampleDraft();
    draft.album = "";
    const RemoteMetadata remote = musicBrainzRecord();
    QCOMPARE(differingFieldCount(draft, remote), 3);

    applyAllSuggestions(draft, remote);

    QCOMPARE(differingFieldCount(draft, remote), 0);
    QCOMPARE(draft.title, "Something");
    QCOMPARE(draft.album, "Abbey Road"); // the trimmed proposal
    QCOMPARE(draft.trackNumber, "2/17");
    // Agreeing rows and rows without a proposal keep the local text, case included.
    QCOMPARE(draft.artist, "The Beatles");
    QCOMPARE(draft.albumArtist, "The Beatles");
    QCOMPARE(draft.comment, "Remaster");
}

void MetadataComparisonTest::applyingOneSuggestionSilencesOnlyThatRow() {
    MusicMetadata draft = sampleDraft();
    const RemoteMetadata remote = musicBrainzRecord();
    const MetadataField& track = row("track");
    const Optional proposal = suggestion(track, draft.trackNumber, remote);
    QCOMPARE(proposal, Optional("2/17"));

    applySuggestion(track, *proposal, draft);
    QCOMPARE(draft.trackNumber, "2/17");
    QCOMPARE(suggestion(track, draft.trackNumber, remote), Optional());
    QCOMPARE(differingFieldCount(draft, remote), 1); // the title still differs

    // Editing the text away from the proposal brings the suggestion back.
    draft.trackNumber = "2";
    QCOMPARE(suggestion(track, draft.trackNumber, remote), Optional("2/17"));
}

void MetadataComparisonTest::musicMetadataEquality_data() {
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<bool>("equal");

    for (const MetadataField& field : MetadataField::all())
        QTest::addRow("%s differs", qPrintable(field.id)) << field.id << "one"
                                                          << "two" << false;
    QTest::addRow("same text") << "title"
                               << "Café"
                               << "Café" << true;
    QTest::addRow("precomposed against decomposed") << "artist"
                                                    << "Caf\u00E9"
                                                    << "Cafe\u0301" << true;
    QTest::addRow("marks in another order") << "album"
                                            << "a\u0323\u0302"
                                            << "a\u0302\u0323" << true;
    QTest::addRow("Hangul syllable against jamo") << "comment"
                                                  << "\uAC00"
                                                  << "\u1100\u1161" << true;
    QTest::addRow("letter case counts") << "genre"
                                        << "rock"
                                        << "Rock" << false;
    QTest::addRow("accent counts") << "title"
                                   << "Cafe"
                                   << "Café" << false;
    QTest::addRow("blanks count") << "year"
                                  << "1969"
                                  << "1969 " << false;
    // Compatibility forms are different text: the ligature is not "fi".
    QTest::addRow("ligature is not canonical") << "title"
                                               << "\uFB01"
                                               << "fi" << false;
}

void MetadataComparisonTest::musicMetadataEquality() {
    QFETCH(QString, id);
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, equal);

    MusicMetadata first = sampleDraft();
    MusicMetadata second = sampleDraft();
    first.*row(id).local = a;
    second.*row(id).local = b;
    QCOMPARE(first == second, equal);
    QCOMPARE(second == first, equal);
}

void MetadataComparisonTest::remoteMetadataEquality() {
    const RemoteMetadata base = musicBrainzRecord();
    QVERIFY(base == musicBrainzRecord());

    RemoteMetadata changed = base;
    changed.albumArtist = ""; // present but empty is not absent
    QVERIFY(!(changed == base));
    changed = base;
    changed.title = "Somethin\u0301g"; // a different text, not a different spelling
    QVERIFY(!(changed == base));
    RemoteMetadata composed = base;
    RemoteMetadata decomposed = base;
    composed.artist = "Beyonc\u00E9";
    decomposed.artist = "Beyonce\u0301"; // the same text
    QVERIFY(composed == decomposed);
    changed = base;
    changed.confidence = 96;
    QVERIFY(!(changed == base));
    changed = base;
    changed.sourceName = "Discogs";
    QVERIFY(!(changed == base));
}

QTEST_GUILESS_MAIN(MetadataComparisonTest)
#include "metadata_comparison_test.moc"

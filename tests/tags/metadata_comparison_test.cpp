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
    // Each row's accessors select the field its id names, the same one in both records.
    void fieldTable() {
        QStringList ids, labels, narrow, multiline;
        for (const MetadataField& field : MetadataField::all()) {
            ids += field.id;
            labels += field.label;
            if (field.isNarrow)
                narrow += field.id;
            if (field.isMultiline)
                multiline += field.id;
            MusicMetadata local;
            local.*field.local = "marked";
            RemoteMetadata remote;
            remote.*field.remote = "marked";
            const QStringList localValues = {local.title,       local.artist, local.album, local.albumArtist,
                                             local.trackNumber, local.year,   local.genre, local.comment};
            const QList<Optional> remoteValues = {remote.title,       remote.artist,      remote.album,
                                                  remote.albumArtist, remote.trackNumber, remote.year,
                                                  remote.genre,       remote.comment};
            QCOMPARE(localValues.indexOf("marked"), ids.size() - 1);
            QCOMPARE(remoteValues.indexOf(Optional("marked")), ids.size() - 1);
        }
        QCOMPARE(ids, (QStringList{"title", "artist", "album", "albumArtist", "track", "year", "genre",
                                   "comment"}));
        QCOMPARE(labels, (QStringList{"Title", "Artist", "Album", "Album Artist", "Track", "Year", "Genre",
                                      "Comment"}));
        QCOMPARE(narrow, (QStringList{"track", "year"}));
        QCOMPARE(multiline, QStringList{"comment"});
    }

    void suggestionRule_data() {
        QTest::addColumn<QString>("local");
        QTest::addColumn<Optional>("remote");
        QTest::addColumn<Optional>("expected");

        const Optional none;
        QTest::addRow("absent remote value") << "Help!" << none << none;
        QTest::addRow("empty remote value") << "Help!" << Optional("") << none;
        QTest::addRow("same text") << "Help!" << Optional("Help!") << none;
        QTest::addRow("different text") << "Help!" << Optional("Yesterday") << Optional("Yesterday");
        QTest::addRow("blank local") << " \u00A0\t" << Optional("Help!") << Optional("Help!");
        QTest::addRow("case and diacritic") << "BJORK" << Optional("Björk") << none;
        QTest::addRow("decomposed against precomposed")
            << "Beyonce\u0301" << Optional("BEYONC\u00C9") << none;
        QTest::addRow("two marks on one letter") << "Vi\u1EC7t" << Optional("viet") << none;
        QTest::addRow("dotted capital I") << "istanbul" << Optional("İstanbul") << none;
        QTest::addRow("sharp s folds to ss") << "STRASSE" << Optional("Straße") << none;
        QTest::addRow("ligature folds to letters") << "Final" << Optional("\uFB01nal") << none;
        QTest::addRow("different letter") << "Bjorn" << Optional("Björk") << Optional("Björk");
        QTest::addRow("vowel signs are not diacritics")
            << "\u0915\u093F" << Optional("\u0915\u0941") << Optional("\u0915\u0941");
        QTest::addRow("outside the BMP, equal") << "🎵 Song" << Optional("🎵 song") << none;
        QTest::addRow("remote padded, local agrees") << "abbey road" << Optional(" Abbey Road ") << none;
        QTest::addRow("local padded") << "\n Abbey Road\r\n" << Optional("Abbey Road") << none;
        QTest::addRow("inner blanks count")
            << "Abbey  Road" << Optional("Abbey Road") << Optional("Abbey Road");
        // Every kind of Unicode white space and line break is trimmed from the proposal.
        QTest::addRow("Unicode blanks trimmed")
            << ""
            << Optional("\t\n\r\v\f\u0085\u2028\u2029\u00A0\u2003\u3000\u202FX \u202F\u00A0\u2029\u0085\t")
            << Optional("X");
        QTest::addRow("only Unicode blanks") << "X" << Optional("\u2028\u00A0\u3000\u0085") << none;
        // Not white space: a zero-width space is a format character and stays.
        QTest::addRow("zero-width space stays") << "" << Optional("\u200BX") << Optional("\u200BX");
    }
    void suggestionRule() {
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
    void suggestionDoesNotDependOnTheLocale() {
        const QLocale previous;
        QLocale::setDefault(QLocale(QLocale::Turkish, QLocale::Turkey));
        RemoteMetadata record;
        record.title = "TITLE";
        const bool agrees = !suggestion(row("title"), "title", record).has_value();
        QLocale::setDefault(previous);
        QVERIFY(agrees);
    }

    void noRemoteRecordMeansNoSuggestions() {
        QCOMPARE(differingFieldCount(MusicMetadata(), std::nullopt), 0);
        for (const MetadataField& field : MetadataField::all())
            QCOMPARE(suggestion(field, QString(), std::nullopt), Optional());
    }

    void applyAllSuggestionsLeavesNothingToSuggest() {
        MusicMetadata draft = sampleDraft();
        draft.album = "";
        const RemoteMetadata remote = musicBrainzRecord();
        QCOMPARE(differingFieldCount(draft, remote), 3);

        applyAllSuggestions(draft, remote);

        QCOMPARE(differingFieldCount(draft, remote), 0);
        MusicMetadata expected = sampleDraft();
        expected.title = "Something";
        expected.album = "Abbey Road"; // the trimmed proposal
        expected.trackNumber = "2/17";
        // Agreeing rows and rows without a proposal keep the local text, case included.
        QVERIFY(draft == expected);
    }

    void applyingOneSuggestionSilencesOnlyThatRow() {
        MusicMetadata draft = sampleDraft();
        const RemoteMetadata remote = musicBrainzRecord();
        const MetadataField& track = row("track");
        QCOMPARE(suggestion(track, draft.trackNumber, remote), Optional("2/17"));

        applySuggestion(track, "2/17", draft);
        QCOMPARE(draft.trackNumber, "2/17");
        QCOMPARE(differingFieldCount(draft, remote), 1); // the title still differs

        // Editing the text away from the proposal brings the suggestion back.
        draft.trackNumber = "2";
        QCOMPARE(suggestion(track, draft.trackNumber, remote), Optional("2/17"));
    }

    void musicMetadataEquality_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("equal");
        for (const MetadataField& field : MetadataField::all())
            QTest::addRow("%s differs", qPrintable(field.id)) << field.id << "one"
                                                              << "two" << false;
        QTest::addRow("precomposed against decomposed") << "artist"
                                                        << "Caf\u00E9"
                                                        << "Cafe\u0301" << true;
        QTest::addRow("marks in another order") << "album"
                                                << "a\u0323\u0302"
                                                << "a\u0302\u0323" << true;
        QTest::addRow("letter case counts") << "genre"
                                            << "rock"
                                            << "Rock" << false;
        QTest::addRow("blanks count") << "year"
                                      << "1969"
                                      << "1969 " << false;
        // Compatibility forms are different text: the ligature is not "fi".
        QTest::addRow("ligature is not canonical") << "title"
                                                   << "\uFB01"
                                                   << "fi" << false;
    }
    void musicMetadataEquality() {
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

    void remoteMetadataEquality() {
        const RemoteMetadata base = musicBrainzRecord();
        const auto changed = [&](auto change) {
            RemoteMetadata copy = base;
            change(copy);
            return copy;
        };
        QVERIFY(!(changed([](auto& r) { r.albumArtist = ""; }) == base)); // present but empty is not absent
        QVERIFY(changed([](auto& r) { r.artist = "Beyonc\u00E9"; }) ==
                changed([](auto& r) { r.artist = "Beyonce\u0301"; }));
        QVERIFY(!(changed([](auto& r) { r.confidence = 96; }) == base));
        QVERIFY(!(changed([](auto& r) { r.sourceName = "Discogs"; }) == base));
    }
};

QTEST_GUILESS_MAIN(MetadataComparisonTest)
#include "metadata_comparison_test.moc"

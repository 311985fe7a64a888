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
    return RemoteMetadata{
        "Something", "the beatles", "  Abbey Road ", {}, "2/17", "1969", "Rock", {}, "MusicBrainz", 97};
}

} // namespace

class MetadataComparisonTest : public QObject {
    Q_OBJECT

private slots:
    // Nothing here may depend on the locale: under Turkish rules "I" lower-cases to a dotless "ı".
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::Turkish, QLocale::Turkey)); }

    void suggestionRule_data() {
        QTest::addColumn<QString>("local");
        QTest::addColumn<Optional>("remote");
        QTest::addColumn<Optional>("expected");
        const Optional none;
        QTest::addRow("absent remote value") << "Help!" << none << none;
        QTest::addRow("different letter") << "Bjorn" << Optional("Björk") << Optional("Björk");
        QTest::addRow("decomposed against precomposed")
            << "Beyonce\u0301" << Optional("BEYONC\u00C9") << none;
        QTest::addRow("dotted capital I") << "istanbul" << Optional("İstanbul") << none;
        QTest::addRow("sharp s folds to ss") << "STRASSE" << Optional("Straße") << none;
        QTest::addRow("inner blanks count")
            << "Abbey  Road" << Optional("Abbey Road") << Optional("Abbey Road");
        QTest::addRow("Unicode blanks trimmed")
            << "" << Optional("\t\n\u0085\u2028\u00A0\u3000\u202FX \u202F\u2029\u0085\t") << Optional("X");
        QTest::addRow("zero-width space is not a blank") << "" << Optional("\u200BX") << Optional("\u200BX");
    }
    void suggestionRule() {
        QFETCH(QString, local);
        QFETCH(Optional, remote);
        // The rule is the same on every row; run it on two rows so that a row-specific slip shows up.
        for (const MetadataField& field : {MetadataField::all().first(), MetadataField::all().last()}) {
            RemoteMetadata record;
            record.*field.remote = remote;
            QTEST(suggestion(field, local, record), "expected");
        }
    }

    void applyingSuggestions() {
        QCOMPARE(differingFieldCount(MusicMetadata(), std::nullopt), 0);

        const RemoteMetadata remote = musicBrainzRecord();
        MusicMetadata draft = sampleDraft();
        applySuggestion(MetadataField::all()[4], "2/17", draft);
        QCOMPARE(differingFieldCount(draft, remote), 1); // the title still differs
        draft.trackNumber = "2"; // edited away from the proposal: the suggestion is back
        draft.album = "";
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

    void equality() {
        const auto equal = [](QString MusicMetadata::*field, const QString& a, const QString& b) {
            MusicMetadata first = sampleDraft(), second = first;
            first.*field = a;
            second.*field = b;
            return first == second;
        };
        QVERIFY(equal(&MusicMetadata::artist, "Caf\u00E9", "Cafe\u0301"));
        QVERIFY(!equal(&MusicMetadata::genre, "rock", "Rock"));
        QVERIFY(!equal(&MusicMetadata::title, "\uFB01", "fi")); // a compatibility form is other text

        RemoteMetadata empty = musicBrainzRecord(), scored = empty, source = empty;
        empty.albumArtist = ""; // present but empty is not absent
        scored.confidence = 96;
        source.sourceName = "Discogs";
        for (const RemoteMetadata& other : {empty, scored, source})
            QVERIFY(!(other == musicBrainzRecord()));
    }
};

QTEST_GUILESS_MAIN(MetadataComparisonTest)
#include "metadata_comparison_test.moc"

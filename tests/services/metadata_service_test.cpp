#include "services/MetadataService.h"

#include "support/Await.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"

#include <OrvelleVersion.h>

#include <QTest>
#include <QUrlQuery>

#include <chrono>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;

namespace {

const QByteArray searchPath = "/ws/2/recording";
const QString unreadable = QStringLiteral("The metadata service sent a response this app couldn't read.");

// The lookup's one result; a lookup that never finished fails the comparison that follows.
LookupResult waitFor(const QFuture<LookupResult>& future) {
    if (!fixtures::await(future, 20000) || future.isCanceled() || future.resultCount() != 1)
        return LookupResult::failed(QStringLiteral("<lookup did not finish with one result>"));
    return future.result();
}

} // namespace

class MetadataServiceTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void sendsOnePoliteSearch();
    void corpusAnswers();
    void answers_data();
    void answers();
    void redirectLoopEnds();
    void connectionRefusedIsOffline();
    void blankTitleSendsNothing();
    void badEndpointFailsButCountsForSpacing();
    void lookupsAreSpacedOneSecondApart();
    void configuredEndpointComesFromTheEnvironment();

private:
    std::unique_ptr<LocalHttpServer> m_server;
    std::unique_ptr<MetadataService> m_service;
};

void MetadataServiceTest::init() {
    m_server = std::make_unique<LocalHttpServer>();
    QVERIFY(m_server->start());
    m_service = std::make_unique<MetadataService>(m_server->url(searchPath).toString());
}

void MetadataServiceTest::cleanup() {
    m_service.reset();
    m_server.reset();
}

void MetadataServiceTest::sendsOnePoliteSearch() {
    m_server->serve(searchPath, Response::json("{\"recordings\":[]}"));
    QCOMPARE(waitFor(m_service->lookup("  Say \"Hello\"\n", "Simon + Garfunkel", "")),
             LookupResult::noMatch());

    QCOMPARE(m_server->requests().size(), 1);
    const LocalHttpServer::Request& request = m_server->requests().first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.path(), searchPath);
    QCOMPARE(request.headers.value("accept"), QByteArray("application/json"));
    QCOMPARE(request.headers.value("user-agent"),
             "Orvelle/1.0 ( " + QByteArray(orvelle::build::contactUrl) + " )");
    const QUrlQuery query(QString::fromLatin1(request.target.mid(request.target.indexOf('?') + 1)));
    QCOMPARE(query.queryItemValue("query", QUrl::FullyDecoded),
             QStringLiteral("recording:\"Say Hello\" AND artist:\"Simon + Garfunkel\""));
}

void MetadataServiceTest::corpusAnswers() {
    // Search answers as MusicBrainz wrote them (one with its score as a string), and one bare recording.
    const struct {
        const char* file;
        bool bareRecording;
        int confidence;
    } answers[] = {{"mb-solr_recording-list.json", false, 100},
                   {"mb-solr_recording-list_2017-08-18_49cb4d3_score-string.json", false, 100},
                   {"picard_recording_multi_artists_1.json", true, 0}};
    for (const auto& answer : answers) {
        const QByteArray body =
            fixtures::readFile(fixtures::corpusFile(QStringLiteral("musicbrainz/") + answer.file));
        if (body.isEmpty())
            QSKIP("the shared corpus is not beside this checkout");
        m_server->serve(searchPath,
                        Response::json(answer.bareRecording ? "{\"recordings\":[" + body + "]}" : body));
        const LookupResult result = waitFor(m_service->lookup("Song", "", ""));
        QVERIFY2(result.kind == LookupResult::Kind::Found && result.metadata->title, answer.file);
        QCOMPARE(result.metadata->confidence, answer.confidence);
    }
}

void MetadataServiceTest::answers_data() {
    QTest::addColumn<Response>("response");
    QTest::addColumn<LookupResult>("expected");

    RemoteMetadata yesterday{"Yesterday", "The Beatles", "Help!", {}, "13", "1965", "Baroque Pop",
                             {},          "MusicBrainz", 98};
    QTest::addRow("a match") << Response::json(
                                    R"json({"created":"2026-01-01T00:00:00Z","count":2,"recordings":[
        {"id":"a","score":98,"title":"Yesterday","artist-credit":[{"name":"The Beatles","artist":{"name":"The Beatles"}}],
         "releases":[{"title":"1","date":"2000-11-13","media":[{"track":[{"number":"11"}]}]},
                     {"title":"Help!","date":"1965-08-06","media":[{"format":"Vinyl","track":[{"number":"13"}]}]}],
         "tags":[{"count":1,"name":"rock"},{"count":3,"name":"baroque pop"}]},
        {"id":"b","score":"60","title":"Yesterday (live)","releases":[]}]})json")
                             << LookupResult::found(yesterday);
    QTest::addRow("no recordings") << Response::json("{\"count\":0,\"recordings\":[]}")
                                   << LookupResult::noMatch();
    QTest::addRow("empty object") << Response::json("{}") << LookupResult::noMatch();
    QTest::addRow("rate limited") << Response::json("{}", 503)
                                  << LookupResult::failed(
                                         "MusicBrainz is rate-limiting requests. Try again in a moment.");
    QTest::addRow("not found") << Response::json("{}", 404)
                               << LookupResult::failed("The metadata service returned an error (404).");
    QTest::addRow("server error") << Response::json("{\"recordings\":[]}", 500)
                                  << LookupResult::failed("The metadata service returned an error (500).");
    QTest::addRow("HTML page with status 200")
        << Response::json("<html><body>Maintenance</body></html>") << LookupResult::failed(unreadable);
    QTest::addRow("a field of the wrong type")
        << Response::json("{\"recordings\":[{\"title\":[\"Yesterday\"]}]}")
        << LookupResult::failed(unreadable);
    QTest::addRow("endless body abandoned") << Response::endlessBody() << LookupResult::failed(unreadable);
    QTest::addRow("redirect followed") << Response::redirect("/ws/2/moved") << LookupResult::noMatch();
    // Takes the full ten seconds: the time limit is what ends this lookup.
    QTest::addRow("server never answers") << Response::neverAnswer() << LookupResult::offline();
}

void MetadataServiceTest::answers() {
    QFETCH(Response, response);
    QFETCH(LookupResult, expected);
    m_server->serve(searchPath, response);
    m_server->serve("/ws/2/moved", Response::json("{}"));
    QCOMPARE(waitFor(m_service->lookup("Yesterday", "The Beatles", "Help!")), expected);
}

void MetadataServiceTest::redirectLoopEnds() {
    m_server->serve(searchPath, Response::redirect("/ws/2/recording?again"));
    const LookupResult result = waitFor(m_service->lookup("Yesterday", "", ""));
    // Not a connectivity problem: the network's own description is shown.
    QCOMPARE(result.kind, LookupResult::Kind::Failed);
    QVERIFY(!result.message.isEmpty());
    QCOMPARE(m_server->requests().size(), 1 + HttpClient::maxRedirects);
}

void MetadataServiceTest::connectionRefusedIsOffline() {
    MetadataService service(
        QStringLiteral("http://127.0.0.1:%1/ws/2/recording").arg(LocalHttpServer::closedPort()));
    QCOMPARE(waitFor(service.lookup("Yesterday", "", "")), LookupResult::offline());
}

void MetadataServiceTest::blankTitleSendsNothing() {
    m_server->serve(searchPath, Response::json("{}"));
    const QFuture<LookupResult> blank = m_service->lookup(" \t\n\u2028", "The Beatles", "Help!");
    QVERIFY(blank.isFinished());
    QCOMPARE(blank.result(), LookupResult::noMatch());

    // Nothing was sent and no turn was taken: the next lookup leaves at once.
    const auto before = std::chrono::steady_clock::now();
    QCOMPARE(waitFor(m_service->lookup("Yesterday", "", "")), LookupResult::noMatch());
    QCOMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().first().arrivedAt - before < MetadataService::requestSpacing);
}

void MetadataServiceTest::badEndpointFailsButCountsForSpacing() {
    MetadataService service(QStringLiteral("not a url"));
    const auto start = std::chrono::steady_clock::now();
    const QFuture<LookupResult> first = service.lookup("Yesterday", "", "");
    const QFuture<LookupResult> second = service.lookup("Yesterday", "", "");
    const LookupResult failed = LookupResult::failed("Couldn't build a search query for this track.");
    QCOMPARE(waitFor(first), failed);
    QCOMPARE(waitFor(second), failed);
    QVERIFY(std::chrono::steady_clock::now() - start >= MetadataService::requestSpacing);
}

void MetadataServiceTest::lookupsAreSpacedOneSecondApart() {
    m_server->serve(searchPath, Response::json("{}"));
    // A first lookup brings up the network machinery, whose start-up would delay only its own request.
    QCOMPARE(waitFor(m_service->lookup("Zero", "", "")), LookupResult::noMatch());
    QList<QFuture<LookupResult>> lookups;
    for (const char* title : {"One", "Two", "Three"})
        lookups.append(m_service->lookup(title, "", ""));
    for (const QFuture<LookupResult>& lookup : lookups)
        QCOMPARE(waitFor(lookup), LookupResult::noMatch());

    const QList<LocalHttpServer::Request>& requests = m_server->requests();
    QCOMPARE(requests.size(), 4);
    for (qsizetype i = 1; i < requests.size(); ++i) {
        const auto gap = std::chrono::duration_cast<std::chrono::milliseconds>(requests[i].arrivedAt -
                                                                               requests[i - 1].arrivedAt);
        // A little slack below the second covers the trip to the server.
        QVERIFY2(gap >= 950ms, qPrintable(QStringLiteral("requests %1 ms apart").arg(gap.count())));
    }
    // Each lookup sent its own search, in the order they were asked for.
    QVERIFY(requests[1].target.contains("One"));
    QVERIFY(requests[3].target.contains("Three"));
}

void MetadataServiceTest::configuredEndpointComesFromTheEnvironment() {
    qunsetenv("ORVELLE_MUSICBRAINZ_ENDPOINT");
    QCOMPARE(MetadataService::configuredEndpoint(), QStringLiteral("https://musicbrainz.org/ws/2/recording"));
    qputenv("ORVELLE_MUSICBRAINZ_ENDPOINT", m_server->url(searchPath).toEncoded());
    m_server->serve(searchPath, Response::json("{}"));
    MetadataService service;
    QCOMPARE(waitFor(service.lookup("Yesterday", "", "")), LookupResult::noMatch());
    QCOMPARE(m_server->requests().size(), 1);
    qunsetenv("ORVELLE_MUSICBRAINZ_ENDPOINT");
}

QTEST_GUILESS_MAIN(MetadataServiceTest)
#include "metadata_service_test.moc"

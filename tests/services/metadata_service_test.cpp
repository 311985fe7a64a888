#include "services/MetadataService.h"

#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"

#include <QFile>
#include <QTest>
#include <QUrlQuery>

#include <chrono>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;

namespace {

const QByteArray searchPath = "/ws/2/recording";

QByteArray corpus(const QString& name) {
    QFile file(fixtures::corpusFile(QStringLiteral("musicbrainz/") + name));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// Waits for a lookup; a lookup that never finished fails the test.
LookupResult waitFor(QFuture<LookupResult> future) {
    const bool finished = QTest::qWaitFor([&future] { return future.isFinished(); }, 20000);
    if (!finished || future.isCanceled() || future.resultCount() != 1)
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
    void corpusAnswers_data();
    void corpusAnswers();
    void answers_data();
    void answers();
    void redirectLoopEnds();
    void connectionRefusedIsOffline();
    void silentServerTimesOutAsOffline();
    void hugeBodyIsAbandoned();
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
    QCOMPARE(waitFor(m_service->lookup("  Say \"Hello\" & Goodbye\n", "Simon + Garfunkel", "")),
             LookupResult::noMatch());

    QCOMPARE(m_server->requests().size(), 1);
    const LocalHttpServer::Request& request = m_server->requests().first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.path(), searchPath);
    QCOMPARE(request.headers.value("accept"), QByteArray("application/json"));
    const QByteArray agent = request.headers.value("user-agent");
    QVERIFY2(agent.startsWith("Orvelle/") && agent.endsWith(" )") && agent.contains("( http"), agent);
    QCOMPARE(agent, MetadataService::userAgent().toUtf8());

    const QUrlQuery query(QString::fromLatin1(request.target.mid(request.target.indexOf('?') + 1)));
    QCOMPARE(query.queryItemValue("query", QUrl::FullyDecoded),
             QStringLiteral("recording:\"Say Hello & Goodbye\" AND artist:\"Simon + Garfunkel\""));
    QCOMPARE(query.queryItemValue("fmt"), QStringLiteral("json"));
    QCOMPARE(query.queryItemValue("limit"), QStringLiteral("5"));
}

void MetadataServiceTest::corpusAnswers_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("wrapInSearch"); // the file holds one recording, not a search answer
    QTest::addColumn<std::optional<QString>>("artist");
    QTest::addColumn<std::optional<QString>>("album");
    QTest::addColumn<std::optional<QString>>("year");
    QTest::addColumn<int>("confidence");

    const QString lordOfTheRings = "The Lord of the Rings: The Return of the King: The Complete Recordings";
    // The search writer nests the name inside "artist" and gives credits no name of their own.
    QTest::addRow("integer score") << "mb-solr_recording-list.json" << false << std::optional<QString>()
                                   << std::optional<QString>(lordOfTheRings) << std::optional<QString>("2007")
                                   << 100;
    QTest::addRow("score as a string")
        << "mb-solr_recording-list_2017-08-18_49cb4d3_score-string.json" << false << std::optional<QString>()
        << std::optional<QString>(lordOfTheRings) << std::optional<QString>("2007") << 100;
    QTest::addRow("several credited artists, no release")
        << "picard_recording_multi_artists_1.json" << true
        << std::optional<QString>("Ed Sheeran, Meek Mill, A Boogie Wit da Hoodie") << std::optional<QString>()
        << std::optional<QString>() << 0;
}

void MetadataServiceTest::corpusAnswers() {
    QFETCH(QString, file);
    QFETCH(bool, wrapInSearch);
    QFETCH(std::optional<QString>, artist);
    QFETCH(std::optional<QString>, album);
    QFETCH(std::optional<QString>, year);
    QFETCH(int, confidence);

    const QByteArray body = corpus(file);
    if (body.isEmpty())
        QSKIP("the shared corpus is not beside this checkout");
    m_server->serve(searchPath, Response::json(wrapInSearch ? "{\"recordings\":[" + body + "]}" : body));

    const LookupResult result = waitFor(m_service->lookup("Song", "", ""));
    QCOMPARE(result.kind, LookupResult::Kind::Found);
    QCOMPARE(result.metadata->artist, artist);
    QCOMPARE(result.metadata->album, album);
    QCOMPARE(result.metadata->year, year);
    QCOMPARE(result.metadata->confidence, confidence);
    QVERIFY(result.metadata->title.has_value());
}

void MetadataServiceTest::answers_data() {
    QTest::addColumn<Response>("response");
    QTest::addColumn<LookupResult>("expected");

    const QString unreadable = "The metadata service sent a response this app couldn't read.";
    RemoteMetadata yesterday;
    yesterday.title = "Yesterday";
    yesterday.artist = "The Beatles";
    yesterday.album = "Help!";
    yesterday.trackNumber = "13";
    yesterday.year = "1965";
    yesterday.genre = "Baroque Pop";
    yesterday.sourceName = "MusicBrainz";
    yesterday.confidence = 98;
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
    QTest::addRow("redirect followed") << Response::redirect("/ws/2/moved") << LookupResult::noMatch();
}

void MetadataServiceTest::answers() {
    QFETCH(Response, response);
    QFETCH(LookupResult, expected);
    m_server->serve(searchPath, response);
    m_server->serve("/ws/2/moved", Response::json("{}"));

    const LookupResult result = waitFor(m_service->lookup("Yesterday", "The Beatles", "Help!"));
    QCOMPARE(result, expected);
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

void MetadataServiceTest::silentServerTimesOutAsOffline() {
    // Takes the full ten seconds: the limit is what ends the lookup.
    m_server->serve(searchPath, Response::neverAnswer());
    QCOMPARE(waitFor(m_service->lookup("Yesterday", "", "")), LookupResult::offline());
    QCOMPARE(m_server->requests().size(), 1);
}

void MetadataServiceTest::hugeBodyIsAbandoned() {
    m_server->serve(searchPath, Response::endlessBody());
    QCOMPARE(waitFor(m_service->lookup("Yesterday", "", "")),
             LookupResult::failed("The metadata service sent a response this app couldn't read."));
}

void MetadataServiceTest::blankTitleSendsNothing() {
    m_server->serve(searchPath, Response::json("{}"));
    const QFuture<LookupResult> future = m_service->lookup(" \t\n\u2028", "The Beatles", "Help!");
    QVERIFY(future.isFinished());
    QCOMPARE(future.result(), LookupResult::noMatch());

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
        // The requests leave at least a second apart; a little slack covers the trip to the server.
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

#include "services/MetadataService.h"

#include "support/Await.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"

#include <OrvelleVersion.h>

#include <QTest>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;

namespace {

const QByteArray searchPath = "/ws/2/recording";

// The lookup's one result; a lookup that never finished fails the comparison that follows.
LookupResult waitFor(const QFuture<LookupResult>& future) {
    fixtures::await(future, 20000);
    return future.resultCount() == 1 ? future.result() : LookupResult::failed("<lookup did not finish>");
}

} // namespace

class MetadataServiceTest : public QObject {
    Q_OBJECT
    std::unique_ptr<LocalHttpServer> m_server;
    std::unique_ptr<MetadataService> m_service;

private slots:
    void init() {
        m_server = std::make_unique<LocalHttpServer>();
        QVERIFY(m_server->start());
        qputenv("ORVELLE_MUSICBRAINZ_ENDPOINT", m_server->url(searchPath).toEncoded());
        m_service = std::make_unique<MetadataService>();
    }

    void sendsOnePoliteSearch() {
        m_server->serve(searchPath, Response::json("{\"recordings\":[]}"));
        QCOMPARE(waitFor(m_service->lookup("  Say \"Hello\" Café\n", " \"AC/DC\" ", "C++ & Friends \\ 100%")),
                 LookupResult::noMatch());
        QCOMPARE(m_server->requests().size(), 1);
        const LocalHttpServer::Request& request = m_server->requests().first();
        QCOMPARE(request.path(), searchPath);
        QCOMPARE(request.headers.value("accept"), QByteArray("application/json"));
        QCOMPARE(request.headers.value("user-agent"),
                 "Orvelle/1.0 ( " + QByteArray(orvelle::build::contactUrl) + " )");
        // Read as the service does: "&" separates, "+" would be a blank, so neither may arrive unescaped.
        const QList<QByteArray> items = request.target.mid(searchPath.size() + 1).split('&');
        QVERIFY2(!items[0].contains('+'), items[0]);
        QCOMPARE(
            QString::fromUtf8(QByteArray::fromPercentEncoding(items[0])),
            "query=recording:\"Say Hello Café\" AND artist:\"AC/DC\" AND release:\"C++ & Friends \\ 100%\"");
        QCOMPARE(items.mid(1), QList<QByteArray>({"fmt=json", "limit=5"}));
    }

    // How each kind of answer reads to the user; what counts as unreadable, too large or a failed
    // connection is the HTTP client's and the decoder's test.
    void answers_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<LookupResult>("expected");
        QTest::addColumn<QString>("endpoint"); // empty: the test's server
        const auto row = [](const char* name, const Response& response, const LookupResult& expected,
                            const QString& endpoint = {}) {
            QTest::addRow("%s", name) << response << expected << endpoint;
        };
        const auto failed = [](const char* message) { return LookupResult::failed(message); };
        const LookupResult unreadable =
            failed("The metadata service sent a response this app couldn't read.");
        const RemoteMetadata yesterday{"Yesterday", "The Beatles", "Help!", {}, "13", "1965", "Baroque Pop",
                                       {},          "MusicBrainz", 98};
        row("a match",
            Response::json(R"json({"count":2,"recordings":[{"score":"60","title":"Yesterday (live)"},
            {"score":98,"title":"Yesterday","artist-credit":[{"name":"The Beatles"}],"tags":[{"count":3,"name":"baroque pop"}],
             "releases":[{"title":"1","date":"2000-11-13"},{"title":"Help!","date":"1965-08-06","media":[{"track":[{"number":"13"}]}]}]}]})json"),
            LookupResult::found(yesterday));
        row("empty object", Response::json("{}"), LookupResult::noMatch());
        row("rate limited", Response::json("{}", 503),
            failed("MusicBrainz is rate-limiting requests. Try again in a moment."));
        row("server error", Response::json("{\"recordings\":[]}", 500),
            failed("The metadata service returned an error (500)."));
        row("HTML page with status 200", Response::json("<html><body>Maintenance</body></html>"), unreadable);
        row("redirect loop", Response::redirect(searchPath + "?again"),
            failed("The server redirected the request too many times."));
        row("connection refused", {}, LookupResult::offline(),
            QStringLiteral("http://127.0.0.1:%1/ws/2/recording").arg(LocalHttpServer::closedPort()));
    }

    void answers() {
        QFETCH(Response, response);
        QFETCH(LookupResult, expected);
        QFETCH(QString, endpoint);
        m_server->serve(searchPath, response);
        MetadataService service(endpoint.isEmpty() ? m_service->endpoint() : endpoint);
        QCOMPARE(waitFor(service.lookup("Yesterday", "The Beatles", "Help!")), expected);
    }

    void lookupsAreSpacedOneSecondApart() {
        m_server->serve(searchPath, Response::json("{}"));
        const auto start = std::chrono::steady_clock::now();
        const QFuture<LookupResult> blank = m_service->lookup(" \t\n\u2028", "The Beatles", "Help!");
        QVERIFY(blank.isFinished());
        QCOMPARE(blank.result(), LookupResult::noMatch());
        // The first search also brings up the network machinery, whose start-up would delay only itself.
        QCOMPARE(waitFor(m_service->lookup("Zero", "", "")), LookupResult::noMatch());
        const auto search = [this](const char* title) { return m_service->lookup(title, " \t\n", " "); };
        for (const QFuture<LookupResult>& lookup : {search("One"), search("Two"), search("Three")})
            QCOMPARE(waitFor(lookup), LookupResult::noMatch());

        const QList<LocalHttpServer::Request>& requests = m_server->requests();
        QCOMPARE(requests.size(), 4);
        // The blank title neither sent a request nor took a turn.
        QVERIFY(requests[0].arrivedAt - start < MetadataService::requestSpacing);
        for (qsizetype i = 2; i < requests.size(); ++i) {
            const auto gap = std::chrono::duration_cast<std::chrono::milliseconds>(requests[i].arrivedAt -
                                                                                   requests[i - 1].arrivedAt);
            // A little slack below the second covers the trip to the server.
            QVERIFY2(gap >= 950ms, qPrintable(QStringLiteral("requests %1 ms apart").arg(gap.count())));
            // Each its own search, in the order asked, a blank artist and album left out.
            QVERIFY(
                requests[i].target.endsWith(QByteArray(i == 2 ? "Two" : "Three") + "%22&fmt=json&limit=5"));
        }
    }

    // A lookup cancelled while it waits for its turn is dropped without a request.
    void cancelledLookupSendsNothing() {
        m_server->serve(searchPath, Response::json("{}"));
        QCOMPARE(waitFor(m_service->lookup("Sent", "", "")), LookupResult::noMatch());
        QFuture<LookupResult> dropped = m_service->lookup("Dropped", "", "");
        dropped.cancel();
        QCOMPARE(waitFor(m_service->lookup("Also sent", "", "")), LookupResult::noMatch());
        QVERIFY(dropped.isCanceled());
        QCOMPARE(m_server->requests().size(), 2);
        QVERIFY(m_server->requests().last().target.contains("Also"));
    }

    void badEndpointFailsButCountsForSpacing() {
        MetadataService service(QStringLiteral("ws/2/recording"));
        const auto start = std::chrono::steady_clock::now();
        for (const QFuture<LookupResult>& lookup :
             {service.lookup("Yesterday", "", ""), service.lookup("Yesterday", "", "")})
            QCOMPARE(waitFor(lookup), LookupResult::failed("Couldn't build a search query for this track."));
        QVERIFY(std::chrono::steady_clock::now() - start >= MetadataService::requestSpacing);
    }
};

QTEST_GUILESS_MAIN(MetadataServiceTest)
#include "metadata_service_test.moc"

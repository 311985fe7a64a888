#include "services/MetadataService.h"

#include "support/Await.h"
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
        const RemoteMetadata yesterday{"Yesterday", "The Beatles", {}, {}, {}, {}, {}, {}, "MusicBrainz", 98};
        row("a match",
            Response::json(
                R"({"recordings":[{"score":98,"title":"Yesterday","artist-credit":[{"name":"The Beatles"}]}]})"),
            LookupResult::found(yesterday));
        row("rate limited", Response::json("{}", 503),
            failed("MusicBrainz is rate-limiting requests. Try again in a moment."));
        row("server error", Response::json("{\"recordings\":[]}", 500),
            failed("The metadata service returned an error (500)."));
        row("HTML page with status 200", Response::json("<html><body>Maintenance</body></html>"),
            failed("The metadata service sent a response this app couldn't read."));
        row("redirect loop", Response::redirect(searchPath + "?again"),
            failed("The server redirected the request too many times."));
        row("endpoint not a URL", {}, failed("Couldn't build a search query for this track."),
            "ws/2/recording");
        row("connection refused", {}, LookupResult::offline(),
            QStringLiteral("http://127.0.0.1:%1/ws/2/recording").arg(LocalHttpServer::closedPort()));
    }

    void answers() {
        QFETCH(Response, response);
        QFETCH(QString, endpoint);
        m_server->serve(searchPath, response);
        MetadataService service(endpoint.isEmpty() ? m_service->endpoint() : endpoint);
        QTEST(waitFor(service.lookup("Yesterday", "The Beatles", "Help!")), "expected");
    }

    // Lookups asked together go out a second apart, each its own polite search in the order asked. A blank
    // title neither sends a request nor takes a turn; a lookup cancelled while it waits for its turn (the
    // inspector was closed) is dropped without a request.
    void searchesOneSecondApart() {
        m_server->serve(searchPath, Response::json("{}"));
        const auto start = std::chrono::steady_clock::now();
        const QFuture<LookupResult> blank = m_service->lookup(" \t\n\u2028", "The Beatles", "Help!");
        QVERIFY(blank.isFinished());
        QCOMPARE(blank.result(), LookupResult::noMatch());
        // The first search also brings up the network machinery, whose start-up would delay only itself.
        QCOMPARE(waitFor(m_service->lookup("  Say \"Hello\" Café\n", " \"AC/DC\" ", "C++ & Friends \\ 100%")),
                 LookupResult::noMatch());
        const auto search = [this](const char* title) { return m_service->lookup(title, " \t\n", " "); };
        const QFuture<LookupResult> one = search("One");
        QFuture<LookupResult> dropped = search("Dropped");
        dropped.cancel();
        for (const QFuture<LookupResult>& lookup : {one, search("Two"), search("Three")})
            QCOMPARE(waitFor(lookup), LookupResult::noMatch());
        QVERIFY(dropped.isCanceled());

        const QList<LocalHttpServer::Request>& requests = m_server->requests();
        QCOMPARE(requests.size(), 4);
        QVERIFY(requests[0].arrivedAt - start < MetadataService::requestSpacing);
        QCOMPARE(requests[0].headers.value("accept"), QByteArray("application/json"));
        QCOMPARE(requests[0].headers.value("user-agent"),
                 "Orvelle/1.0 ( " + QByteArray(orvelle::build::contactUrl) + " )");
        // Read as the service does: "&" separates, "+" would be a blank, so neither may arrive unescaped.
        const QList<QByteArray> items = requests[0].target.mid(searchPath.size() + 1).split('&');
        QVERIFY2(!items[0].contains('+'), items[0]);
        QCOMPARE(
            QString::fromUtf8(QByteArray::fromPercentEncoding(items[0])),
            "query=recording:\"Say Hello Café\" AND artist:\"AC/DC\" AND release:\"C++ & Friends \\ 100%\"");
        QCOMPARE(items.mid(1), QList<QByteArray>({"fmt=json", "limit=5"}));
        for (qsizetype i = 2; i < requests.size(); ++i) {
            const auto gap = std::chrono::duration_cast<std::chrono::milliseconds>(requests[i].arrivedAt -
                                                                                   requests[i - 1].arrivedAt);
            // A little slack below the second covers the trip to the server.
            QVERIFY2(gap >= 950ms, qPrintable(QStringLiteral("requests %1 ms apart").arg(gap.count())));
            // A blank artist and album are left out.
            QVERIFY(
                requests[i].target.endsWith(QByteArray(i == 2 ? "Two" : "Three") + "%22&fmt=json&limit=5"));
        }
    }
};

QTEST_GUILESS_MAIN(MetadataServiceTest)
#include "metadata_service_test.moc"

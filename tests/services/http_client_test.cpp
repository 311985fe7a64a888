#include "services/HttpClient.h"

#include "support/Await.h"
#include "support/FileContents.h"
#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QTemporaryDir>
#include <QTest>

using Response = LocalHttpServer::Response;

class HttpClientTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();

    void errorClasses_data();
    void errorClasses();
    void redirectPolicy_data();
    void redirectPolicy();
    void bodyCap_data();
    void bodyCap();
    void untrustedCertificateIsRefused();
    void httpsRedirects_data();
    void httpsRedirects();

private:
    static HttpReply fetch(const QUrl& url) {
        // A client of its own each time: Qt keeps a host's TLS settings with its connections.
        HttpClient client;
        const QFuture<HttpReply> future = client.get({url, {}, QNetworkRequest::AlwaysNetwork});
        if (!fixtures::await(future, 20000) || future.resultCount() != 1)
            return {HttpReply::Failure::Network, QNetworkReply::UnknownNetworkError, "<unfinished>", {}, {}};
        return future.result();
    }
    // An HTTPS server whose self-signed certificate is valid for 127.0.0.1; none without openssl.
    std::unique_ptr<LocalHttpServer> startTlsServer() {
        auto server = std::make_unique<LocalHttpServer>();
        if (m_certificate.isNull() || !server->startTls(m_certificate, m_key))
            return nullptr;
        return server;
    }
    void trustServerCertificate() {
        QSslConfiguration trusting = m_defaultTls;
        trusting.addCaCertificate(m_certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    QTemporaryDir m_dir;
    QSslCertificate m_certificate;
    QSslKey m_key;
    QSslConfiguration m_defaultTls;
};

void HttpClientTest::initTestCase() {
    m_defaultTls = QSslConfiguration::defaultConfiguration();
    if (!fixtures::haveTool("openssl"))
        return;
    const QString keyPath = m_dir.filePath("key.pem");
    const QString certificatePath = m_dir.filePath("certificate.pem");
    QCOMPARE(
        fixtures::run("openssl", {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                  "-nodes", "-keyout", keyPath, "-out", certificatePath, "-days", "2",
                                  "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"})
            .exitCode,
        0);
    m_key = QSslKey(fixtures::readFile(keyPath), QSsl::Ec);
    m_certificate = QSslCertificate::fromPath(certificatePath).value(0);
    QVERIFY(!m_key.isNull() && !m_certificate.isNull());
}

void HttpClientTest::cleanup() {
    QSslConfiguration::setDefaultConfiguration(m_defaultTls);
}

void HttpClientTest::errorClasses_data() {
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<bool>("offline");
    QTest::addColumn<bool>("noConnection");
    QTest::addRow("refused") << QNetworkReply::ConnectionRefusedError << true << false;
    QTest::addRow("no route") << QNetworkReply::UnknownNetworkError << true << true;
    QTest::addRow("too many redirects") << QNetworkReply::TooManyRedirectsError << false << false;
}

void HttpClientTest::errorClasses() {
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(bool, offline);
    QFETCH(bool, noConnection);
    const HttpReply reply{HttpReply::Failure::Network, error, "", {}, {}};
    QCOMPARE(reply.isOffline(), offline);
    QCOMPARE(reply.isNoConnection(), noConnection);
}

void HttpClientTest::redirectPolicy_data() {
    QTest::addColumn<QUrl>("from");
    QTest::addColumn<QUrl>("to");
    QTest::addColumn<bool>("follow");

    const auto row = [](const char* from, const char* to, bool follow) {
        QTest::addRow("%s to %s", from, to) << QUrl(from) << QUrl(to) << follow;
    };
    row("https://a.example/x", "https://b.example/y", true);
    row("https://a.example/x", "HTTPS://b.example/", true);
    row("https://a.example/x", "/y", true);
    row("https://a.example/x", "http://a.example/x", false);
    row("http://127.0.0.1/x", "http://127.0.0.1/y", true);
    row("http://127.0.0.1/x", "file:///etc/passwd", false);
}

void HttpClientTest::redirectPolicy() {
    QFETCH(QUrl, from);
    QFETCH(QUrl, to);
    QFETCH(bool, follow);
    QCOMPARE(HttpClient::mayFollowRedirect(from, to), follow);
}

void HttpClientTest::bodyCap_data() {
    QTest::addColumn<Response>("response");
    QTest::addColumn<bool>("kept");

    QTest::addRow("exactly the cap") << Response::json(QByteArray(HttpClient::maxBodyBytes, 'x')) << true;
    QTest::addRow("one byte over, length announced")
        << Response::json(QByteArray(HttpClient::maxBodyBytes + 1, 'x')) << false;
    QTest::addRow("a gigabyte without a length") << Response::endlessBody() << false;
}

void HttpClientTest::bodyCap() {
    QFETCH(Response, response);
    QFETCH(bool, kept);
    LocalHttpServer server;
    QVERIFY(server.start());
    server.serve("/body", response);

    const HttpReply reply = fetch(server.url("/body"));
    QCOMPARE(reply.failure, kept ? HttpReply::Failure::None : HttpReply::Failure::TooLarge);
    QCOMPARE(qint64(reply.body.size()), kept ? HttpClient::maxBodyBytes : 0);
    QCOMPARE(reply.errorText.isEmpty(), kept);
}

void HttpClientTest::untrustedCertificateIsRefused() {
    const auto server = startTlsServer();
    if (!server)
        QSKIP("openssl is needed to make a certificate");
    server->serve("/ok", Response::json("{}"));

    const HttpReply reply = fetch(server->url("/ok"));
    QCOMPARE(reply.networkError, QNetworkReply::SslHandshakeFailedError);
    QVERIFY(reply.isOffline());
    QVERIFY(server->requests().isEmpty());

    // The same server once its certificate is trusted: the refusal above was the check, not the setup.
    trustServerCertificate();
    QCOMPARE(fetch(server->url("/ok")).body, QByteArray("{}"));
}

void HttpClientTest::httpsRedirects_data() {
    QTest::addColumn<bool>("toPlainHttp");
    QTest::addRow("https to https followed") << false;
    QTest::addRow("https to http refused") << true;
}

void HttpClientTest::httpsRedirects() {
    QFETCH(bool, toPlainHttp);
    const auto server = startTlsServer();
    if (!server)
        QSKIP("openssl is needed to make a certificate");
    trustServerCertificate();
    LocalHttpServer plain;
    QVERIFY(plain.start());
    plain.serve("/ok", Response::json("{}"));
    server->serve("/ok", Response::json("{}"));
    server->serve("/moved",
                  Response::redirect((toPlainHttp ? plain.url("/ok") : server->url("/ok")).toEncoded(), 301));

    const HttpReply reply = fetch(server->url("/moved"));
    QCOMPARE(reply.networkError, toPlainHttp ? QNetworkReply::InsecureRedirectError : QNetworkReply::NoError);
    QCOMPARE(reply.isOffline(), false);
    QCOMPARE(plain.requests().size(), 0);
    QCOMPARE(server->requests().size(), toPlainHttp ? 1 : 2);
}

QTEST_GUILESS_MAIN(HttpClientTest)
#include "http_client_test.moc"

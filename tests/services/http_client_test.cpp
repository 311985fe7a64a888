#include "services/HttpClient.h"

#include "support/Fixtures.h"
#include "support/LocalHttpServer.h"

#include <QFile>
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

    void redirectPolicy_data();
    void redirectPolicy();
    void bodyCap_data();
    void bodyCap();
    void untrustedCertificateIsRefused();
    void httpsRedirects_data();
    void httpsRedirects();

private:
    HttpReply fetch(const QUrl& url);
    // An HTTPS server whose self-signed certificate is valid for 127.0.0.1; nothing without openssl.
    std::unique_ptr<LocalHttpServer> startTlsServer();
    void trustServerCertificate();

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
    const fixtures::ToolResult made =
        fixtures::run("openssl", {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                  "-nodes", "-keyout", keyPath, "-out", certificatePath, "-days", "2",
                                  "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
    QCOMPARE(made.exitCode, 0);
    QFile keyFile(keyPath);
    QVERIFY(keyFile.open(QIODevice::ReadOnly));
    m_key = QSslKey(keyFile.readAll(), QSsl::Ec);
    m_certificate = QSslCertificate::fromPath(certificatePath).value(0);
    QVERIFY(!m_key.isNull());
    QVERIFY(!m_certificate.isNull());
}

void HttpClientTest::cleanup() {
    QSslConfiguration::setDefaultConfiguration(m_defaultTls);
}

HttpReply HttpClientTest::fetch(const QUrl& url) {
    // A client of its own each time: Qt keeps a host's TLS settings with its connections.
    HttpClient client;
    QFuture<HttpReply> future = client.get({url, {}, QNetworkRequest::AlwaysNetwork});
    if (!QTest::qWaitFor([&future] { return future.isFinished(); }, 20000) || future.resultCount() != 1)
        return {HttpReply::Failure::Network, QNetworkReply::UnknownNetworkError, "<unfinished>", {}, {}};
    return future.result();
}

std::unique_ptr<LocalHttpServer> HttpClientTest::startTlsServer() {
    if (m_certificate.isNull())
        return nullptr;
    auto server = std::make_unique<LocalHttpServer>();
    if (!server->startTls(m_certificate, m_key))
        return nullptr;
    return server;
}

void HttpClientTest::trustServerCertificate() {
    QSslConfiguration trusting = m_defaultTls;
    trusting.addCaCertificate(m_certificate);
    QSslConfiguration::setDefaultConfiguration(trusting);
}

void HttpClientTest::redirectPolicy_data() {
    QTest::addColumn<QUrl>("from");
    QTest::addColumn<QUrl>("to");
    QTest::addColumn<bool>("follow");

    QTest::addRow("https to https") << QUrl("https://a.example/x") << QUrl("https://b.example/y") << true;
    QTest::addRow("https to http") << QUrl("https://a.example/x") << QUrl("http://a.example/x") << false;
    QTest::addRow("https to relative") << QUrl("https://a.example/x") << QUrl("/y") << true;
    QTest::addRow("upper-case scheme") << QUrl("https://a.example/x") << QUrl("HTTPS://b.example/") << true;
    QTest::addRow("https to ftp") << QUrl("https://a.example/x") << QUrl("ftp://a.example/x") << false;
    QTest::addRow("http to https") << QUrl("http://127.0.0.1/x") << QUrl("https://a.example/") << true;
    QTest::addRow("http to http") << QUrl("http://127.0.0.1/x") << QUrl("http://127.0.0.1/y") << true;
    QTest::addRow("http to file") << QUrl("http://127.0.0.1/x") << QUrl("file:///etc/passwd") << false;
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
    if (kept) {
        QCOMPARE(reply.failure, HttpReply::Failure::None);
        QCOMPARE(reply.body.size(), HttpClient::maxBodyBytes);
    } else {
        QCOMPARE(reply.failure, HttpReply::Failure::TooLarge);
        QVERIFY(reply.body.isEmpty());
        QVERIFY(!reply.errorText.isEmpty());
    }
}

void HttpClientTest::untrustedCertificateIsRefused() {
    const auto server = startTlsServer();
    if (!server)
        QSKIP("openssl is needed to make a certificate");
    server->serve("/ok", Response::json("{}"));

    const HttpReply reply = fetch(server->url("/ok"));
    QCOMPARE(reply.failure, HttpReply::Failure::Network);
    QCOMPARE(reply.networkError, QNetworkReply::SslHandshakeFailedError);
    QVERIFY(reply.isOffline());
    QVERIFY(server->requests().isEmpty());

    // The same server once its certificate is trusted: the refusal above was the check, not the setup.
    trustServerCertificate();
    const HttpReply trusted = fetch(server->url("/ok"));
    QCOMPARE(trusted.failure, HttpReply::Failure::None);
    QCOMPARE(trusted.body, QByteArray("{}"));
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
    plain.serve("/ok", Response::json("{\"plain\":true}"));
    server->serve("/ok", Response::json("{}"));
    server->serve("/moved",
                  Response::redirect((toPlainHttp ? plain.url("/ok") : server->url("/ok")).toEncoded(), 301));

    const HttpReply reply = fetch(server->url("/moved"));
    if (toPlainHttp) {
        QCOMPARE(reply.failure, HttpReply::Failure::Network);
        QCOMPARE(reply.networkError, QNetworkReply::InsecureRedirectError);
        QVERIFY(!reply.isOffline());
        QVERIFY(plain.requests().isEmpty());
    } else {
        QCOMPARE(reply.failure, HttpReply::Failure::None);
        QCOMPARE(reply.status, std::optional<int>(200));
        QCOMPARE(server->requests().size(), 2);
    }
}

QTEST_GUILESS_MAIN(HttpClientTest)
#include "http_client_test.moc"

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
using Error = QNetworkReply::NetworkError;

class HttpClientTest : public QObject {
    Q_OBJECT

    static HttpReply fetch(const QUrl& url) {
        HttpClient client; // one of its own each time: Qt keeps a host's TLS settings with its connections
        const QFuture<HttpReply> future = client.get({url, {}, QNetworkRequest::AlwaysNetwork});
        fixtures::await(future, 20000);
        return future.resultCount() == 1 ? future.result()
                                         : HttpReply{}; // an unfinished fetch fails later checks
    }

    QTemporaryDir m_dir;
    QSslCertificate m_certificate; // self-signed for 127.0.0.1; null without openssl
    QSslKey m_key;
    QSslConfiguration m_defaultTls = QSslConfiguration::defaultConfiguration();

private slots:
    void initTestCase() {
        if (!fixtures::haveTool("openssl"))
            return;
        const QString key = m_dir.filePath("key.pem"), certificate = m_dir.filePath("certificate.pem");
        QCOMPARE(fixtures::run("openssl",
                               {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                "-nodes", "-keyout", key, "-out", certificate, "-days", "2", "-subj",
                                "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"})
                     .exitCode,
                 0);
        m_key = QSslKey(fixtures::readFile(key), QSsl::Ec);
        m_certificate = QSslCertificate::fromPath(certificate).value(0);
        QVERIFY(!m_key.isNull() && !m_certificate.isNull());
    }

    void cleanup() { QSslConfiguration::setDefaultConfiguration(m_defaultTls); }

    void plainAnswers_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<Error>("error");
        QTest::addColumn<qint64>("kept");
        QTest::addColumn<int>("requests");
        const qint64 cap = HttpClient::maxBodyBytes;
        QTest::addRow("exactly the cap")
            << Response::json(QByteArray(cap, 'x')) << Error::NoError << cap << 1;
        QTest::addRow("one byte over, length announced")
            << Response::json(QByteArray(cap + 1, 'x')) << Error::UnknownContentError << 0ll << 1;
        QTest::addRow("a gigabyte without a length")
            << Response::endlessBody() << Error::UnknownContentError << 0ll << 1;
        QTest::addRow("redirect to a file")
            << Response::redirect("file:///etc/passwd") << Error::InsecureRedirectError << 0ll << 1;
        QTest::addRow("redirect loop") << Response::redirect("/body?again") << Error::TooManyRedirectsError
                                       << 0ll << 1 + HttpClient::maxRedirects;
    }

    void plainAnswers() {
        QFETCH(Response, response);
        QFETCH(Error, error);
        QFETCH(qint64, kept);
        QFETCH(int, requests);
        LocalHttpServer server;
        QVERIFY(server.start());
        server.serve("/body", response);
        const HttpReply reply = fetch(server.url("/body"));
        QCOMPARE(reply.networkError, error);
        QCOMPARE(reply.body.size(), kept);
        QCOMPARE(reply.errorText.isEmpty(), error == Error::NoError);
        QCOMPARE(server.requests().size(), requests);
    }

    void tls_data() {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<Error>("error");
        QTest::addColumn<int>("requests");
        QTest::addRow("untrusted certificate")
            << false << QByteArray("/ok") << Error::SslHandshakeFailedError << 0;
        QTest::addRow("redirect to https followed") << true << QByteArray("/secure") << Error::NoError << 2;
        QTest::addRow("redirect to http refused")
            << true << QByteArray("/plain") << Error::InsecureRedirectError << 1;
    }

    void tls() {
        QFETCH(bool, trusted);
        QFETCH(QByteArray, path);
        QFETCH(Error, error);
        QFETCH(int, requests);
        LocalHttpServer server, plain;
        if (m_certificate.isNull() || !server.startTls(m_certificate, m_key))
            QSKIP("openssl is needed to make a certificate");
        QVERIFY(plain.start());
        server.serve("/ok", Response::json("{}"));
        server.serve("/secure", Response::redirect(server.url("/ok").toEncoded(), 301));
        server.serve("/plain", Response::redirect(plain.url("/ok").toEncoded(), 301));
        if (trusted) {
            QSslConfiguration trusting = m_defaultTls;
            trusting.addCaCertificate(m_certificate);
            QSslConfiguration::setDefaultConfiguration(trusting);
        }
        const HttpReply reply = fetch(server.url(path));
        QCOMPARE(reply.networkError, error);
        QCOMPARE(reply.body, error == Error::NoError ? QByteArray("{}") : QByteArray());
        // A refused certificate is a connection that could not be made; a refused redirect is not.
        QCOMPARE(reply.isOffline(), error == Error::SslHandshakeFailedError);
        QCOMPARE(server.requests().size(), requests);
        QVERIFY(plain.requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(HttpClientTest)
#include "http_client_test.moc"

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
        // An unfinished fetch gives an empty reply, which fails the checks that follow.
        return future.resultCount() == 1 ? future.result() : HttpReply{};
    }

    // Untrusted and Trusted speak TLS with a self-signed certificate.
    enum Server { Plain, Untrusted, Trusted };

    QTemporaryDir m_dir;
    QSslConfiguration m_defaultTls = QSslConfiguration::defaultConfiguration();
    QSslConfiguration m_serverTls; // without a certificate when openssl is missing

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
        m_serverTls.setPrivateKey(QSslKey(fixtures::readFile(key), QSsl::Ec));
        m_serverTls.setLocalCertificate(QSslCertificate::fromPath(certificate).value(0));
    }

    void cleanup() { QSslConfiguration::setDefaultConfiguration(m_defaultTls); }

    void answers_data() {
        QTest::addColumn<int>("server");
        QTest::addColumn<Response>("response");
        QTest::addColumn<Error>("error");
        QTest::addColumn<qint64>("kept");
        QTest::addColumn<int>("requests");
        const auto row = [](const char* name, Server server, const Response& response, Error error,
                            qint64 kept, int requests) {
            QTest::addRow("%s", name) << int(server) << response << error << kept << requests;
        };
        const qint64 cap = HttpClient::maxBodyBytes;
        row("exactly the cap", Plain, Response::json(QByteArray(cap, 'x')), Error::NoError, cap, 1);
        row("one byte over, length announced", Plain, Response::json(QByteArray(cap + 1, 'x')),
            Error::UnknownContentError, 0, 1);
        row("a gigabyte without a length", Plain, Response::endlessBody(), Error::UnknownContentError, 0, 1);
        row("redirect to a file", Plain, Response::redirect("file:///etc/passwd"),
            Error::InsecureRedirectError, 0, 1);
        row("redirect loop", Plain, Response::redirect("/body?again"), Error::TooManyRedirectsError, 0,
            1 + HttpClient::maxRedirects);
        row("untrusted certificate", Untrusted, Response::json("{}"), Error::SslHandshakeFailedError, 0, 0);
        row("redirect to https followed", Trusted, Response::redirect("/ok"), Error::NoError, 2, 2);
        row("redirect to http refused", Trusted, Response::redirect("http://127.0.0.1:1/ok"),
            Error::InsecureRedirectError, 0, 1);
    }

    void answers() {
        QFETCH(int, server);
        QFETCH(Response, response);
        QFETCH(Error, error);
        if (server != Plain && m_serverTls.localCertificate().isNull())
            QSKIP("openssl is needed to make a certificate");
        LocalHttpServer local;
        QVERIFY(local.start(server == Plain ? nullptr : &m_serverTls));
        local.serve("/body", response);
        local.serve("/ok", Response::json("{}"));
        if (server == Trusted) {
            QSslConfiguration trusting = m_defaultTls;
            trusting.addCaCertificate(m_serverTls.localCertificate());
            QSslConfiguration::setDefaultConfiguration(trusting);
        }
        const HttpReply reply = fetch(local.url("/body"));
        QCOMPARE(reply.networkError, error);
        QTEST(reply.body.size(), "kept");
        QCOMPARE(reply.errorText.isEmpty(), error == Error::NoError);
        // A refused certificate is a connection that could not be made; a refused redirect is not.
        QCOMPARE(reply.isOffline(), error == Error::SslHandshakeFailedError);
        QTEST(int(local.requests().size()), "requests");
    }
};

QTEST_GUILESS_MAIN(HttpClientTest)
#include "http_client_test.moc"

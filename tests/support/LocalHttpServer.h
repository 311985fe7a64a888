#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

#include <chrono>
#include <memory>
#include <utility>

class QSslCertificate;
class QSslKey;

class QTcpSocket;

// A small HTTP/1.1 (or HTTPS) server on 127.0.0.1 for tests of the online services. It serves canned
// responses by path (the query is ignored when choosing one), closes each connection after answering, and
// records every request it receives with the moment its headers arrived. Runs on the test's own event loop.
class LocalHttpServer : public QObject {
    Q_OBJECT
public:
    struct Response {
        enum class Kind {
            Normal,      // status, headers and body, then the connection is closed
            NeverAnswer, // the request is read and the connection left open without a byte of answer
            EndlessBody, // status 200 and a body that keeps coming (up to 1 GiB) while the client reads
        };
        Kind kind = Kind::Normal;
        int status = 200;
        QByteArray body{};
        QList<std::pair<QByteArray, QByteArray>> headers{};

        static Response json(const QByteArray& body, int status = 200);
        static Response redirect(const QByteArray& location, int status = 302);
        static Response neverAnswer();
        static Response endlessBody();
    };

    struct Request {
        QByteArray method;
        QByteArray target;                     // path and query exactly as sent
        QHash<QByteArray, QByteArray> headers; // names in lower case
        std::chrono::steady_clock::time_point arrivedAt;

        QByteArray path() const;
    };

    explicit LocalHttpServer(QObject* parent = nullptr);
    ~LocalHttpServer() override;

    // Listens on a free port of 127.0.0.1; false when that fails.
    bool start();
    // The same, speaking HTTPS with the given certificate and its key.
    bool startTls(const QSslCertificate& certificate, const QSslKey& key);
    // http://127.0.0.1:<port><path>, or https:// for a TLS server
    QUrl url(const QByteArray& path) const;
    // What to answer for `path`; unknown paths get 404.
    void serve(const QByteArray& path, const Response& response);

    const QList<Request>& requests() const { return m_requests; }

    // A port on 127.0.0.1 where nothing listens (connections are refused).
    static quint16 closedPort();

signals:
    void requestReceived();

private:
    void accept();
    void readRequest(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const Response& response);
    void streamBody(QTcpSocket* socket);

    bool listen(std::unique_ptr<QTcpServer> server);

    std::unique_ptr<QTcpServer> m_server;
    QHash<QByteArray, Response> m_responses;
    QList<Request> m_requests;
    QHash<QTcpSocket*, QByteArray> m_pending; // bytes of a request whose headers have not all arrived
};

#pragma once

#include <QHash>
#include <QObject>
#include <QUrl>

#include <chrono>

class QSslConfiguration;
class QTcpServer;
class QTcpSocket;

// A small HTTP/1.1 (or HTTPS) server on 127.0.0.1 for tests of the online services. It answers by path (the
// query is ignored when choosing), closes each connection after answering, and records every request with
// the moment its headers arrived. Runs on the test's own event loop.
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
        QByteArray location{}; // sent as the Location header when set

        static Response json(QByteArray body, int status = 200) { return {Kind::Normal, status, body}; }
        static Response redirect(QByteArray to, int status = 302) { return {Kind::Normal, status, {}, to}; }
        static Response neverAnswer() { return {Kind::NeverAnswer}; }
        static Response endlessBody() { return {Kind::EndlessBody}; }
    };

    struct Request {
        QByteArray target;                     // path and query exactly as sent
        QHash<QByteArray, QByteArray> headers; // names in lower case
        std::chrono::steady_clock::time_point arrivedAt;

        QByteArray path() const { return target.split('?').constFirst(); }
    };

    using QObject::QObject;

    // Listens on a free port of 127.0.0.1; speaks HTTPS when given a configuration with a certificate and
    // key.
    bool start(const QSslConfiguration* tls = nullptr);
    // http://127.0.0.1:<port><path>, or https:// for a TLS server
    QUrl url(const QByteArray& path) const;
    // What to answer for `path`; unknown paths get 404.
    void serve(const QByteArray& path, const Response& response) { m_responses.insert(path, response); }
    const QList<Request>& requests() const { return m_requests; }

    // A port on 127.0.0.1 where nothing listens (connections are refused).
    static quint16 closedPort();

private:
    void accept();
    void answer(QTcpSocket* socket, const QByteArray& head);

    // A child, so that its connections, and their sockets, go only after this object's handlers are gone.
    QTcpServer* m_server = nullptr;
    QHash<QByteArray, Response> m_responses;
    QList<Request> m_requests;
};

#include "support/LocalHttpServer.h"

#include <QSslConfiguration>
#include <QSslServer>
#include <QTcpSocket>

bool LocalHttpServer::start(const QSslConfiguration* tls) {
    m_server = tls ? new QSslServer(this) : new QTcpServer(this);
    if (tls)
        static_cast<QSslServer*>(m_server)->setSslConfiguration(*tls);
    // Emitted once a connection is ready to use, which for TLS is after the handshake.
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &LocalHttpServer::accept);
    return m_server->listen(QHostAddress::LocalHost, 0);
}

QUrl LocalHttpServer::url(const QByteArray& path) const {
    const QString scheme = qobject_cast<QSslServer*>(m_server) ? "https" : "http";
    return QUrl(scheme + "://127.0.0.1:" + QString::number(m_server->serverPort()) + path);
}

quint16 LocalHttpServer::closedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

void LocalHttpServer::accept() {
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        // Gathers the request until its headers are complete and answers once; later bytes are ignored.
        connect(socket, &QTcpSocket::readyRead, this,
                [this, socket, head = QByteArray(), done = false]() mutable {
                    head += socket->readAll();
                    if (!done && head.contains("\r\n\r\n")) {
                        done = true;
                        answer(socket, head.left(head.indexOf("\r\n\r\n")));
                    }
                });
    }
}

void LocalHttpServer::answer(QTcpSocket* socket, const QByteArray& head) {
    Request request{{}, {}, std::chrono::steady_clock::now()};
    const QList<QByteArray> lines = head.split('\n');
    request.target = lines.value(0).split(' ').value(1);
    for (const QByteArray& line : lines.mid(1)) {
        if (const qsizetype colon = line.indexOf(':'); colon > 0)
            request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    m_requests.append(request);

    const Response response =
        m_responses.value(request.path(), Response::json("{\"error\":\"Not Found\"}", 404));
    // Clients read the status code; the reason phrase is only for people.
    QByteArray reply = "HTTP/1.1 " + QByteArray::number(response.status) +
                       " Reply\r\nConnection: close\r\nContent-Type: application/json\r\n";
    if (!response.location.isEmpty())
        reply += "Location: " + response.location + "\r\n";
    switch (response.kind) {
    case Response::Kind::NeverAnswer:
        return;
    case Response::Kind::Normal:
        socket->write(reply + "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n" +
                      response.body);
        socket->disconnectFromHost();
        return;
    case Response::Kind::EndlessBody:
        // No length: the body ends only with the connection. Little is queued at a time, so the server never
        // holds much more than the client has taken.
        connect(socket, &QTcpSocket::bytesWritten, socket, [socket, sent = qint64(0)]() mutable {
            constexpr qint64 streamChunk = 64 * 1024, streamLimit = qint64(1) << 30;
            while (socket->state() == QAbstractSocket::ConnectedState &&
                   socket->bytesToWrite() < 4 * streamChunk && sent < streamLimit) {
                socket->write(QByteArray(streamChunk, ' '));
                sent += streamChunk;
            }
            if (sent >= streamLimit)
                socket->disconnectFromHost();
        });
        socket->write(reply + "\r\n");
        return;
    }
}

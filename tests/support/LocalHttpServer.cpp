#include "support/LocalHttpServer.h"

#include <QSslConfiguration>
#include <QSslServer>
#include <QTcpSocket>

namespace {

constexpr qint64 streamChunk = 64 * 1024;
constexpr qint64 streamLimit = qint64(1) << 30;
const char* const sentProperty = "orvelleBytesSent";

} // namespace

LocalHttpServer::Response LocalHttpServer::Response::json(const QByteArray& body, int status) {
    return {Kind::Normal, status, body, {{"Content-Type", "application/json"}}};
}

LocalHttpServer::Response LocalHttpServer::Response::redirect(const QByteArray& location, int status) {
    return {Kind::Normal, status, {}, {{"Location", location}}};
}

LocalHttpServer::Response LocalHttpServer::Response::neverAnswer() {
    return {.kind = Kind::NeverAnswer};
}

LocalHttpServer::Response LocalHttpServer::Response::endlessBody() {
    return {.kind = Kind::EndlessBody};
}

QByteArray LocalHttpServer::Request::path() const {
    const qsizetype query = target.indexOf('?');
    return query < 0 ? target : target.left(query);
}

LocalHttpServer::LocalHttpServer(QObject* parent)
    : QObject(parent) {}

LocalHttpServer::~LocalHttpServer() {
    // Open connections close as the server goes; their handlers must not run on a half-destroyed server.
    if (!m_server)
        return;
    const QList<QTcpSocket*> sockets = m_server->findChildren<QTcpSocket*>();
    for (QTcpSocket* socket : sockets) {
        socket->disconnect(this);
        delete socket;
    }
}

bool LocalHttpServer::start() {
    return listen(std::make_unique<QTcpServer>());
}

bool LocalHttpServer::startTls(const QSslCertificate& certificate, const QSslKey& key) {
    auto server = std::make_unique<QSslServer>();
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificate(certificate);
    tls.setPrivateKey(key);
    server->setSslConfiguration(tls);
    return listen(std::move(server));
}

bool LocalHttpServer::listen(std::unique_ptr<QTcpServer> server) {
    m_server = std::move(server);
    // Emitted once a connection is ready to use, which for TLS is after the handshake.
    connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, this, &LocalHttpServer::accept);
    return m_server->listen(QHostAddress::LocalHost, 0);
}

QUrl LocalHttpServer::url(const QByteArray& path) const {
    const bool tls = qobject_cast<QSslServer*>(m_server.get()) != nullptr;
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3")
                    .arg(tls ? QStringLiteral("https") : QStringLiteral("http"))
                    .arg(m_server->serverPort())
                    .arg(QString::fromUtf8(path)));
}

void LocalHttpServer::serve(const QByteArray& path, const Response& response) {
    m_responses.insert(path, response);
}

quint16 LocalHttpServer::closedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

void LocalHttpServer::accept() {
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readRequest(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_pending.remove(socket);
            socket->deleteLater();
        });
    }
}

void LocalHttpServer::readRequest(QTcpSocket* socket) {
    if (!m_pending.contains(socket) && socket->property(sentProperty).isValid())
        return; // already answered; ignore anything more on this connection
    QByteArray& buffer = m_pending[socket];
    buffer += socket->readAll();
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return;

    Request request;
    request.arrivedAt = std::chrono::steady_clock::now();
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    m_pending.remove(socket);
    socket->setProperty(sentProperty, qint64(0));
    m_requests.append(request);
    emit requestReceived();

    const auto found = m_responses.constFind(request.path());
    answer(socket, found != m_responses.cend() ? *found : Response::json("{\"error\":\"Not Found\"}", 404));
}

void LocalHttpServer::answer(QTcpSocket* socket, const Response& response) {
    if (response.kind == Response::Kind::NeverAnswer)
        return;
    // Clients read the status code; the reason phrase is only for people.
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Reply\r\n";
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Connection: close\r\n";
    if (response.kind == Response::Kind::EndlessBody) {
        // No length: the body ends only when the connection does.
        socket->write(head + "Content-Type: application/json\r\n\r\n");
        connect(socket, &QTcpSocket::bytesWritten, this, [this, socket] { streamBody(socket); });
        streamBody(socket);
        return;
    }
    socket->write(head + "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n" +
                  response.body);
    socket->disconnectFromHost();
}

void LocalHttpServer::streamBody(QTcpSocket* socket) {
    qint64 sent = socket->property(sentProperty).toLongLong();
    // Keep only a little queued, so the server never holds much more than the client has taken.
    while (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < 4 * streamChunk &&
           sent < streamLimit) {
        socket->write(QByteArray(streamChunk, ' '));
        sent += streamChunk;
    }
    socket->setProperty(sentProperty, sent);
    if (sent >= streamLimit)
        socket->disconnectFromHost();
}

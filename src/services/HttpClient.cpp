#include "services/HttpClient.h"

#include "services/ServicesLog.h"

#include <QNetworkAccessManager>
#include <QPromise>
#include <QSslConfiguration>

bool HttpReply::isOffline() const {
    if (failure != Failure::Network)
        return false;
    switch (networkError) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TimeoutError:
    case QNetworkReply::SslHandshakeFailedError:
        return true;
    default:
        return isNoConnection();
    }
}

bool HttpReply::isNoConnection() const {
    if (failure != Failure::Network)
        return false;
    switch (networkError) {
    // Qt reports a network or host without a route ("Network unreachable") as an unknown network error.
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::BackgroundRequestNotAllowedError:
        return true;
    default:
        return false;
    }
}

HttpClient::HttpClient()
    : m_manager(std::make_unique<QNetworkAccessManager>()) {}

HttpClient::~HttpClient() = default;

bool HttpClient::mayFollowRedirect(const QUrl& from, const QUrl& to) {
    const QString target = from.resolved(to).scheme().toLower();
    if (target == QLatin1String("https"))
        return true;
    return target == QLatin1String("http") && from.scheme().toLower() == QLatin1String("http");
}

// What one transfer has gathered so far, across its redirects; shared by the replies' signal handlers.
struct HttpClient::Transfer {
    QPromise<HttpReply> promise;
    QByteArray body;
    std::optional<HttpReply> abandoned; // set when we abort the transfer ourselves, with the reason
    int redirects = 0;
};

namespace {

using Transfer = HttpClient::Transfer;

HttpReply failure(QNetworkReply::NetworkError error, const QString& reason,
                  HttpReply::Failure kind = HttpReply::Failure::Network) {
    HttpReply reply;
    reply.failure = kind;
    reply.networkError = error;
    reply.errorText = reason;
    return reply;
}

void abandonTooLarge(QNetworkReply* reply, Transfer& transfer) {
    transfer.abandoned = failure(QNetworkReply::UnknownContentError,
                                 HttpClient::tr("The server sent a response that is too large."),
                                 HttpReply::Failure::TooLarge);
    transfer.body.clear();
    reply->abort();
}

// Moves what has arrived into the transfer's body, giving up once it passes the cap.
void takeBody(QNetworkReply* reply, Transfer& transfer) {
    if (transfer.abandoned || !reply->isOpen())
        return;
    transfer.body += reply->read(HttpClient::maxBodyBytes + 1 - transfer.body.size());
    if (transfer.body.size() > HttpClient::maxBodyBytes)
        abandonTooLarge(reply, transfer);
}

HttpReply replyFor(QNetworkReply* reply, Transfer& transfer) {
    if (transfer.abandoned)
        return *transfer.abandoned;
    HttpReply result;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        result.status = status.toInt();
    const QNetworkReply::NetworkError error = reply->error();
    // Errors below 200 are the transport's own (connection, TLS, proxy, redirects); the rest are Qt's
    // reading of an HTTP status, which the caller judges from the status itself.
    const bool transportError = error != QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied;
    if (transportError || (error != QNetworkReply::NoError && !result.status)) {
        result.failure = HttpReply::Failure::Network;
        result.networkError = error;
        result.errorText = reply->errorString();
        // Our transfer timeout ends a silent server by cancelling the reply; report it as the timeout it is.
        if (error == QNetworkReply::OperationCanceledError) {
            result.networkError = QNetworkReply::TimeoutError;
            result.errorText = HttpClient::tr("The request timed out.");
        }
        return result;
    }
    if (!result.status || *result.status == 200)
        result.body = std::move(transfer.body);
    return result;
}

} // namespace

QFuture<HttpReply> HttpClient::get(const Request& request) {
    QNetworkRequest networkRequest(request.url);
    for (const auto& [name, value] : request.headers)
        networkRequest.setRawHeader(name, value);
    networkRequest.setAttribute(QNetworkRequest::CacheLoadControlAttribute, request.cache);
    // Redirects are followed here, one request at a time, so that each one is judged and counted.
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                QNetworkRequest::ManualRedirectPolicy);
    networkRequest.setTransferTimeout(timeoutMs);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
    networkRequest.setSslConfiguration(tls);

    auto transfer = std::make_shared<Transfer>();
    transfer->promise.start();
    send(networkRequest, transfer);
    return transfer->promise.future();
}

void HttpClient::send(QNetworkRequest request, const std::shared_ptr<Transfer>& transfer) {
    QNetworkReply* reply = m_manager->get(request);
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, transfer] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (!transfer->abandoned && length.isValid() && length.toLongLong() > maxBodyBytes)
            abandonTooLarge(reply, *transfer);
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply,
                     [reply, transfer] { takeBody(reply, *transfer); });
    QObject::connect(reply, &QNetworkReply::finished, reply, [this, request, reply, transfer]() mutable {
        reply->deleteLater();
        takeBody(reply, *transfer);
        const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
        if (transfer->abandoned || reply->error() != QNetworkReply::NoError || !target.isValid()) {
            transfer->promise.addResult(replyFor(reply, *transfer));
            transfer->promise.finish();
            return;
        }
        const QUrl next = reply->url().resolved(target.toUrl());
        if (++transfer->redirects > maxRedirects) {
            transfer->promise.addResult(
                failure(QNetworkReply::TooManyRedirectsError,
                        HttpClient::tr("The server redirected the request too many times.")));
        } else if (!mayFollowRedirect(reply->url(), next)) {
            qCWarning(lcServices) << "refusing a redirect from" << reply->url() << "to" << next;
            transfer->promise.addResult(
                failure(QNetworkReply::InsecureRedirectError,
                        HttpClient::tr("The server redirected the request to an insecure address.")));
        } else {
            transfer->body.clear();
            request.setUrl(next);
            send(request, transfer);
            return;
        }
        transfer->promise.finish();
    });
}

#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QFuture>
#include <QList>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>
#include <utility>

class QNetworkAccessManager;

// The outcome of one GET: either an HTTP answer (a status and, for status 200, the whole body) or a
// failure that never reached a usable answer.
struct HttpReply {
    enum class Failure {
        None,     // the server answered; see status and body
        Network,  // the transport failed; networkError and errorText say how
        TooLarge, // the body passed HttpClient::maxBodyBytes and the transfer was abandoned
    };

    Failure failure = Failure::None;
    QNetworkReply::NetworkError networkError = QNetworkReply::NoError;
    QString errorText;         // a user-readable description of the failure; empty without one
    std::optional<int> status; // the HTTP status code; absent for an answer that is not HTTP
    QByteArray body;           // only kept for status 200 (or a non-HTTP answer)

    // The transport could not reach the server at all or lost it: no route, refused, timed out, TLS failed.
    bool isOffline() const;
    // The machine itself has no usable network connection.
    bool isNoConnection() const;
};

// The one way the online services talk HTTP. Every request it sends:
// - verifies the server's TLS certificate (no errors are ever ignored);
// - follows at most maxRedirects redirects, and only to https (a plain-http request, which only a local
//   test server gets, may also be redirected to plain http);
// - gives up after timeoutMs without any data moving;
// - abandons a body larger than maxBodyBytes instead of holding it in memory.
// Lives on the thread that created it; its futures finish on that thread's event loop.
class HttpClient {
    Q_DECLARE_TR_FUNCTIONS(HttpClient)
public:
    static constexpr qint64 maxBodyBytes = 4 * 1024 * 1024;
    static constexpr int maxRedirects = 5;
    static constexpr int timeoutMs = 10000;

    struct Request {
        QUrl url;
        QList<std::pair<QByteArray, QByteArray>> headers;
        // The update feed must always come from the network; lookups may use an ordinary HTTP cache.
        QNetworkRequest::CacheLoadControl cache = QNetworkRequest::PreferNetwork;
    };

    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Sends one GET. The future always finishes exactly once with a result, unless the client is
    // destroyed first, in which case it is cancelled.
    QFuture<HttpReply> get(const Request& request);

    // Whether a redirect from `from` to `to` may be followed.
    static bool mayFollowRedirect(const QUrl& from, const QUrl& to);

    struct Transfer; // one request's state across its redirects; internal

private:
    void send(QNetworkRequest request, const std::shared_ptr<Transfer>& transfer);

    std::unique_ptr<QNetworkAccessManager> m_manager;
};

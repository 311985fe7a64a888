#pragma once

#include "services/HttpClient.h"
#include "tags/MusicMetadata.h"

#include <QFuture>
#include <QObject>
#include <QString>

#include <chrono>
#include <optional>

// What one online lookup came to.
struct LookupResult {
    enum class Kind {
        Found,   // metadata holds the proposed values
        Failed,  // message holds the sentence to show the user
        NoMatch, // nothing to search for, or the service knows no such recording
        Offline, // the service could not be reached
    };

    Kind kind = Kind::NoMatch;
    std::optional<RemoteMetadata> metadata;
    QString message;

    static LookupResult found(const RemoteMetadata& metadata) { return {Kind::Found, metadata, {}}; }
    static LookupResult failed(const QString& message) { return {Kind::Failed, std::nullopt, message}; }
    static LookupResult noMatch() { return {Kind::NoMatch, std::nullopt, {}}; }
    static LookupResult offline() { return {Kind::Offline, std::nullopt, {}}; }

    friend bool operator==(const LookupResult&, const LookupResult&) = default;
};

// Finds a song on MusicBrainz by its title, artist and album and proposes tag values from the best
// recording. Identifies itself with the program's user agent, asks for JSON, and lets at most one request a
// second leave the program: lookups that come quickly one after another are spaced out, each waiting for its
// own turn. Nothing is cached and nothing is retried.
//
// Lives on the thread that created it (the main thread in the program); call it from that thread. Its
// futures finish on that thread's event loop.
class MetadataService : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds requestSpacing{1000};

    // Talks to `endpoint`, the absolute URL of the recording search.
    explicit MetadataService(const QString& endpoint = configuredEndpoint(), QObject* parent = nullptr);

    // The program's one instance, created on first use (on the main thread) and kept for the run.
    static MetadataService& shared();

    // The public service's recording search, unless ORVELLE_MUSICBRAINZ_ENDPOINT names another.
    static QString configuredEndpoint();
    // "Orvelle/1.0 ( <contact URL> )", the contact URL being a build setting.
    static QString userAgent();

    QString endpoint() const { return m_endpoint; }

    // Looks the song up. Finishes exactly once, with a result; never with an error. A blank title is
    // NoMatch at once, without a request. The caller may cancel the future (QFuture::cancel()) when it no
    // longer wants the answer: a lookup still waiting for its turn is then dropped without sending anything,
    // and one already sent finishes without a result. Destroying the service cancels what is pending.
    QFuture<LookupResult> lookup(const QString& title, const QString& artist, const QString& album);

private:
    using Clock = std::chrono::steady_clock;

    // Claims the next free moment for a request and returns how long to wait for it.
    std::chrono::milliseconds waitForRateLimit();
    QFuture<LookupResult> send(const QString& title, const QString& artist, const QString& album);
    static LookupResult resultFor(const HttpReply& reply);

    QString m_endpoint;
    std::optional<Clock::time_point> m_lastRequest; // the moment the last request was let through
    HttpClient m_http;
};

#include "services/MetadataService.h"

#include "services/MusicBrainzRecording.h"
#include "services/ServicesLog.h"
#include "tags/TextRules.h"

#include <OrvelleVersion.h>

#include <QCoreApplication>
#include <QPromise>
#include <QTimer>

#include <memory>

MetadataService::MetadataService(const QString& endpoint, QObject* parent)
    : QObject(parent)
    , m_endpoint(endpoint) {}

MetadataService& MetadataService::shared() {
    // Owned by the application object so that it goes before the event loop machinery it uses.
    static MetadataService* const instance =
        new MetadataService(configuredEndpoint(), QCoreApplication::instance());
    return *instance;
}

QString MetadataService::configuredEndpoint() {
    const QString configured = qEnvironmentVariable("ORVELLE_MUSICBRAINZ_ENDPOINT");
    return configured.isEmpty() ? QStringLiteral("https://musicbrainz.org/ws/2/recording") : configured;
}

QString MetadataService::userAgent() {
    // MusicBrainz asks every client to name itself and a way to reach the people behind it.
    return QStringLiteral("Orvelle/1.0 ( %1 )").arg(QString::fromUtf8(orvelle::build::contactUrl));
}

QFuture<LookupResult> MetadataService::lookup(const QString& title, const QString& artist,
                                              const QString& album) {
    const QString trimmedTitle = TextRules::trimmed(title);
    if (trimmedTitle.isEmpty())
        return QtFuture::makeReadyFuture(LookupResult::noMatch());

    auto promise = std::make_shared<QPromise<LookupResult>>();
    promise->start();
    QFuture<LookupResult> future = promise->future();
    QTimer::singleShot(
        waitForRateLimit(), Qt::PreciseTimer, this, [this, promise, trimmedTitle, artist, album] {
            // Cancelled while it waited for its turn (the inspector was closed): no request is spent on it.
            if (promise->isCanceled()) {
                promise->finish();
                return;
            }
            send(trimmedTitle, artist, album).then(this, [promise](const LookupResult& result) {
                promise->addResult(result);
                promise->finish();
            });
        });
    return future;
}

std::chrono::milliseconds MetadataService::waitForRateLimit() {
    const Clock::time_point now = Clock::now();
    // Each lookup claims the first free moment, so several lookups that arrive together leave one a second.
    Clock::time_point turn = now;
    if (m_lastRequest && *m_lastRequest + requestSpacing > now)
        turn = *m_lastRequest + requestSpacing;
    m_lastRequest = turn;
    return std::chrono::ceil<std::chrono::milliseconds>(turn - now);
}

QFuture<LookupResult> MetadataService::send(const QString& title, const QString& artist,
                                            const QString& album) {
    const std::optional<QUrl> url = MusicBrainz::searchUrl(m_endpoint, title, artist, album);
    if (!url)
        return QtFuture::makeReadyFuture(
            LookupResult::failed(tr("Couldn't build a search query for this track.")));

    HttpClient::Request request;
    request.url = *url;
    request.headers = {{"User-Agent", userAgent().toUtf8()}, {"Accept", "application/json"}};
    return m_http.get(request).then(this, &MetadataService::resultFor);
}

LookupResult MetadataService::resultFor(const HttpReply& reply) {
    const QString unreadable = tr("The metadata service sent a response this app couldn't read.");
    switch (reply.failure) {
    case HttpReply::Failure::TooLarge:
        return LookupResult::failed(unreadable);
    case HttpReply::Failure::Network:
        qCInfo(lcServices) << "MusicBrainz lookup failed:" << reply.errorText;
        return reply.isOffline() ? LookupResult::offline() : LookupResult::failed(reply.errorText);
    case HttpReply::Failure::None:
        break;
    }
    if (reply.status && *reply.status == 503)
        return LookupResult::failed(tr("MusicBrainz is rate-limiting requests. Try again in a moment."));
    if (reply.status && *reply.status != 200)
        return LookupResult::failed(tr("The metadata service returned an error (%1).").arg(*reply.status));

    const std::optional<MBResponse> response = MusicBrainz::decodeResponse(reply.body);
    if (!response)
        return LookupResult::failed(unreadable);
    const std::optional<MBRecording> best =
        MusicBrainz::bestRecording(response->recordings.value_or(QList<MBRecording>{}));
    if (!best)
        return LookupResult::noMatch();
    return LookupResult::found(MusicBrainz::makeRemoteMetadata(*best));
}

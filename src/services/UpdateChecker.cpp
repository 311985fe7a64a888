#include "services/UpdateChecker.h"

#include "services/ServicesLog.h"

#include <OrvelleVersion.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>

#include <algorithm>

namespace {

// Reads the feed's keys; remembers the first value of the wrong type, which makes the feed unreadable.
class FeedReader {
public:
    explicit FeedReader(const QJsonObject& object)
        : m_object(object) {}

    bool failed() const { return m_failed; }

    std::optional<QString> string(QLatin1String key) {
        const QJsonValue value = m_object.value(key);
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        if (!value.isString()) {
            m_failed = true;
            return std::nullopt;
        }
        return value.toString();
    }

    std::optional<QUrl> url(QLatin1String key) {
        const std::optional<QString> text = string(key);
        if (!text)
            return std::nullopt;
        const QUrl parsed(*text, QUrl::StrictMode);
        if (text->isEmpty() || !parsed.isValid()) {
            m_failed = true;
            return std::nullopt;
        }
        return parsed;
    }

private:
    QJsonObject m_object;
    bool m_failed = false;
};

} // namespace

std::optional<UpdateChecker::Release> UpdateChecker::Release::fromJson(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    FeedReader reader(document.object());
    const std::optional<QString> latestVersion = reader.string(QLatin1String("latestVersion"));
    const std::optional<QUrl> downloadURL = reader.url(QLatin1String("downloadURL"));
    Release release;
    release.releaseDate = reader.string(QLatin1String("releaseDate"));
    release.minimumSystemVersion = reader.string(QLatin1String("minimumSystemVersion"));
    release.releaseNotesURL = reader.url(QLatin1String("releaseNotesURL"));
    release.notes = reader.string(QLatin1String("notes"));
    if (reader.failed() || !latestVersion || !downloadURL)
        return std::nullopt;
    release.latestVersion = *latestVersion;
    release.downloadURL = *downloadURL;
    return release;
}

std::optional<QString> UpdateChecker::Release::systemRequirement() const {
    if (!minimumSystemVersion)
        return std::nullopt;
    return UpdateChecker::tr("Requires Debian %1 or later.").arg(*minimumSystemVersion);
}

UpdateChecker::UpdateChecker(QSettings* settings, const QString& installedVersion, Clock clock,
                             QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_installedVersion(installedVersion.isEmpty() ? QStringLiteral("0") : installedVersion)
    , m_clock(std::move(clock)) {}

QUrl UpdateChecker::feedUrl() {
    const QString configured = qEnvironmentVariable("ORVELLE_UPDATE_FEED_URL");
    return QUrl(configured.isEmpty()
                    ? QStringLiteral("https://orvelle.org/Orvelle/update_checker/appcast.json")
                    : configured);
}

QString UpdateChecker::buildVersion() {
    return QString::fromUtf8(orvelle::build::version);
}

void UpdateChecker::setAvailableUpdate(const std::optional<Release>& release) {
    if (m_availableUpdate == release)
        return;
    m_availableUpdate = release;
    emit availableUpdateChanged();
}

void UpdateChecker::setManualCheckResult(const std::optional<QString>& message) {
    if (m_manualCheckResult == message)
        return;
    m_manualCheckResult = message;
    emit manualCheckResultChanged();
}

void UpdateChecker::setChecking(bool checking) {
    if (m_isChecking == checking)
        return;
    m_isChecking = checking;
    emit isCheckingChanged();
}

void UpdateChecker::recordCheckStarted() {
    m_settings->setValue(lastCheckedAtKey, m_clock());
}

QFuture<void> UpdateChecker::checkIfDue() {
    const QVariant stored = m_settings->value(lastCheckedAtKey);
    if (stored.metaType() == QMetaType::fromType<QDateTime>()) {
        const QDateTime lastChecked = stored.toDateTime();
        if (lastChecked.isValid() && lastChecked.msecsTo(m_clock()) < checkIntervalSeconds * 1000)
            return QtFuture::makeReadyFuture();
    }
    // Recorded before the request goes out, so a check that fails still counts.
    recordCheckStarted();
    return check(false).then([](bool) {});
}

QFuture<void> UpdateChecker::checkNow() {
    recordCheckStarted();
    return check(true).then(this, [this](bool published) {
        if (!published && !m_manualCheckResult) {
            setManualCheckResult(tr("You're up to date — version %1 is the latest.").arg(m_installedVersion));
        }
    });
}

void UpdateChecker::skipVersion(const Release& release) {
    m_settings->setValue(skippedVersionKey, release.latestVersion);
    setAvailableUpdate(std::nullopt);
}

QFuture<bool> UpdateChecker::check(bool userInitiated) {
    setChecking(true);
    HttpClient::Request request;
    request.url = feedUrl();
    request.cache = QNetworkRequest::AlwaysNetwork;
    return m_http.get(request).then(this, [this, userInitiated](const HttpReply& reply) {
        const bool published = handleReply(reply, userInitiated);
        setChecking(false);
        return published;
    });
}

bool UpdateChecker::handleReply(const HttpReply& reply, bool userInitiated) {
    // Only a check the user asked for explains itself; an automatic one fails silently.
    const auto report = [this, userInitiated](const QString& message) {
        if (userInitiated)
            setManualCheckResult(message);
        return false;
    };
    const QString unreadable = tr("The update file couldn't be read. It may be malformed.");
    if (reply.failure == HttpReply::Failure::Network) {
        qCInfo(lcServices) << "update check failed:" << reply.errorText;
        if (reply.isNoConnection())
            return report(tr("No internet connection, so the update check couldn't run."));
        return report(tr("Update check failed: %1").arg(reply.errorText));
    }
    if (reply.failure == HttpReply::Failure::TooLarge)
        return report(unreadable);
    if (reply.status && *reply.status != 200)
        return report(tr("Couldn't reach the update server (%1).").arg(*reply.status));

    const std::optional<Release> release = Release::fromJson(reply.body);
    if (!release)
        return report(unreadable);
    const QVariant skipped = m_settings->value(skippedVersionKey);
    if (!userInitiated && skipped.metaType() == QMetaType::fromType<QString>() &&
        skipped.toString() == release->latestVersion)
        return false;
    if (!isNewerVersion(release->latestVersion, m_installedVersion))
        return false;
    setAvailableUpdate(release);
    return true;
}

QList<qint64> UpdateChecker::versionComponents(const QString& text) {
    QList<qint64> components;
    for (const QString& piece : text.split(QLatin1Char('.'), Qt::SkipEmptyParts)) {
        QString numeric;
        for (const char32_t codePoint : piece.toUcs4()) {
            if (QChar::isNumber(codePoint))
                numeric.append(QString::fromUcs4(&codePoint, 1));
        }
        // Only ASCII digits read as a number; other numerals, like an overflow, count as 0.
        const bool ascii = std::all_of(numeric.cbegin(), numeric.cend(), [](QChar c) {
            return c >= QLatin1Char('0') && c <= QLatin1Char('9');
        });
        bool ok = false;
        const qint64 number = ascii ? numeric.toLongLong(&ok, 10) : 0;
        components.append(ok ? number : 0);
    }
    return components;
}

bool UpdateChecker::isNewerVersion(const QString& candidate, const QString& current) {
    const QList<qint64> a = versionComponents(candidate);
    const QList<qint64> b = versionComponents(current);
    for (qsizetype i = 0; i < std::max(a.size(), b.size()); ++i) {
        const qint64 left = i < a.size() ? a[i] : 0;
        const qint64 right = i < b.size() ? b[i] : 0;
        if (left != right)
            return left > right;
    }
    return false;
}

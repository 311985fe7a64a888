#pragma once

#include "services/HttpClient.h"

#include <QByteArray>
#include <QDateTime>
#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QSettings;

// Learns about newer versions of the program from a small JSON feed: on its own at most once a day
// (checkIfDue), or at once when the user asks (checkNow). It publishes the newer release for the update
// dialog, or, for a check the user asked for, a one-line result. It downloads and installs nothing.
//
// A main-thread object: every property changes on the main thread and notifies. Automatic checks fail
// silently; only a check the user asked for sets manualCheckResult.
class UpdateChecker : public QObject {
    Q_OBJECT
public:
    // One record of the update feed.
    struct Release {
        QString latestVersion;
        QUrl downloadURL;
        std::optional<QString> releaseDate; // kept, never shown
        std::optional<QString> minimumSystemVersion;
        std::optional<QUrl> releaseNotesURL;
        std::optional<QString> notes;

        // The feed's one JSON object; nothing when a required key is missing, a value has the wrong type or
        // a URL does not parse. Unknown keys are ignored; optional keys may be null.
        static std::optional<Release> fromJson(const QByteArray& json);

        // The update dialog's line about the system the release needs, when the feed names one. The feed's
        // minimum system version is the Debian release whose packages the build needs ("Requires Debian 12
        // or later.").
        std::optional<QString> systemRequirement() const;

        friend bool operator==(const Release&, const Release&) = default;
    };
    using Clock = std::function<QDateTime()>;

    // The newer release to offer; set by a check, cleared by the dialog ("Later") or skipVersion.
    Q_PROPERTY(std::optional<UpdateChecker::Release> availableUpdate READ availableUpdate WRITE
                   setAvailableUpdate NOTIFY availableUpdateChanged)
    // The result sentence of a check the user asked for; the window clears it once it has been read.
    Q_PROPERTY(std::optional<QString> manualCheckResult READ manualCheckResult WRITE setManualCheckResult
                   NOTIFY manualCheckResultChanged)
    // True while a check runs.
    Q_PROPERTY(bool isChecking READ isChecking NOTIFY isCheckingChanged)

    static constexpr qint64 checkIntervalSeconds = 24 * 60 * 60;
    static inline const QString lastCheckedAtKey = QStringLiteral("update.lastCheckedAt");
    static inline const QString skippedVersionKey = QStringLiteral("update.skippedVersion");

    // `settings` holds the two update preferences and must outlive the checker. `installedVersion` is the
    // version compared with the feed (the build's own by default; "0" when empty); `clock` tells the time.
    explicit UpdateChecker(QSettings* settings, const QString& installedVersion = buildVersion(),
                           Clock clock = &QDateTime::currentDateTimeUtc, QObject* parent = nullptr);

    // The feed's address: the program's own, unless ORVELLE_UPDATE_FEED_URL names another.
    static QUrl feedUrl();
    static QString buildVersion();

    std::optional<Release> availableUpdate() const { return m_availableUpdate; }
    void setAvailableUpdate(const std::optional<Release>& release);
    std::optional<QString> manualCheckResult() const { return m_manualCheckResult; }
    void setManualCheckResult(const std::optional<QString>& message);
    bool isChecking() const { return m_isChecking; }
    QString installedVersion() const { return m_installedVersion; }

    // The automatic check: does nothing when the last check started less than a day ago; otherwise records
    // now as the last check and checks silently.
    QFuture<void> checkIfDue();
    // The check the user asked for: records now as the last check, ignores the skipped version, and always
    // ends with either a release to offer or a sentence in manualCheckResult. Callers need not wait for it.
    QFuture<void> checkNow();
    // Never offer `release`'s version again on an automatic check; closes the offer.
    void skipVersion(const Release& release);
    // Runs one check; its result tells whether a newer release was published.
    QFuture<bool> check(bool userInitiated);

    // The numbers of a version text: pieces between dots (empty ones dropped), each read from its numeric
    // characters only, 0 when nothing readable is left ("2.0b3" → 2, 3; "v1.5" → 1, 5).
    static QList<qint64> versionComponents(const QString& text);
    // Whether `candidate` is a later version than `current`, missing components counting as 0.
    static bool isNewerVersion(const QString& candidate, const QString& current);

signals:
    void availableUpdateChanged();
    void manualCheckResultChanged();
    void isCheckingChanged();

private:
    bool finishCheck(bool published);
    bool handleReply(const HttpReply& reply, bool userInitiated);
    void setChecking(bool checking);
    void recordCheckStarted();

    QSettings* m_settings;
    QString m_installedVersion;
    Clock m_clock;
    std::optional<Release> m_availableUpdate;
    std::optional<QString> m_manualCheckResult;
    bool m_isChecking = false;
    HttpClient m_http;
};

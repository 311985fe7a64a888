#include "services/UpdateChecker.h"

#include "support/Await.h"
#include "support/LocalHttpServer.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Response = LocalHttpServer::Response;
using Release = UpdateChecker::Release;
using Message = std::optional<QString>;

namespace {

const QByteArray feedPath = "/Orvelle/update_checker/appcast.json";
const QString malformed = QStringLiteral("The update file couldn't be read. It may be malformed.");

QByteArray feed(const QByteArray& version) {
    return "{\"latestVersion\":\"" + version + "\",\"downloadURL\":\"https://orvelle.example/Orvelle-" +
           version + ".tar.gz\",\"notes\":\"Faster.\",\"minimumSystemVersion\":\"12\"}";
}

} // namespace

class UpdateCheckerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void isNewerVersion_data();
    void isNewerVersion();
    void releaseDecoding_data();
    void releaseDecoding();
    void checks_data();
    void checks();
    void connectionRefusedExplainsItself();
    void skipVersionClosesTheOfferAndIsRemembered();
    void automaticCheckRunsOncePerDay_data();
    void automaticCheckRunsOncePerDay();
    void manualCheckRestartsTheDay();
    void defaultFeedAddress();

private:
    std::unique_ptr<UpdateChecker> makeChecker(const QString& installed = QStringLiteral("1.2")) {
        return std::make_unique<UpdateChecker>(m_settings.get(), installed, [this] { return m_now; });
    }

    QTemporaryDir m_dir;
    std::unique_ptr<LocalHttpServer> m_server;
    std::unique_ptr<QSettings> m_settings;
    const QDateTime m_start{QDate(2026, 3, 1), QTime(12, 0), Qt::UTC};
    QDateTime m_now;
};

void UpdateCheckerTest::init() {
    m_server = std::make_unique<LocalHttpServer>();
    QVERIFY(m_server->start());
    qputenv("ORVELLE_UPDATE_FEED_URL", m_server->url(feedPath).toEncoded());
    const QString path = m_dir.filePath(QStringLiteral("%1.ini").arg(QTest::currentTestFunction()));
    QFile::remove(path);
    m_settings = std::make_unique<QSettings>(path, QSettings::IniFormat);
    m_now = m_start;
}

void UpdateCheckerTest::cleanup() {
    m_settings.reset();
    m_server.reset();
    qunsetenv("ORVELLE_UPDATE_FEED_URL");
}

void UpdateCheckerTest::isNewerVersion_data() {
    QTest::addColumn<QString>("candidate");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    const auto row = [](const char* candidate, const char* current, bool newer) {
        QTest::addRow("%s vs %s", candidate, current)
            << QString::fromUtf8(candidate) << QString(current) << newer;
    };
    row("1.10", "1.9", true); // numeric, not text order
    row("1.9", "1.10", false);
    row("1.2.0", "1.2", false); // a trailing zero is the same version, either way round
    row("1.2", "1.2.0", false);
    row("1.2.1", "1.2", true);
    row("0.0.1", "", true); // anything beats an unreadable installed version, except zero
    row("0", "unknown", false);
    // How text becomes components: each row fails if its rule is broken.
    row(".1..2.", "1.1", true);                  // empty pieces dropped: 1.2
    row("v2.0b3", "2.2.9", true);                // letters removed: 2.3
    row("beta.2", "1", false);                   // a piece without digits is 0: 0.2
    row("99999999999999999999.1", "0.2", false); // overflow is 0: 0.1
    row("1\xd9\xa3.4", "1.0", false);            // a non-ASCII digit spoils the piece: 0.4
    row("-3.+4", "3.3", true);                   // signs are not digits: 3.4
}

void UpdateCheckerTest::isNewerVersion() {
    QFETCH(QString, candidate);
    QFETCH(QString, current);
    QFETCH(bool, newer);
    QCOMPARE(UpdateChecker::isNewerVersion(candidate, current), newer);
}

void UpdateCheckerTest::releaseDecoding_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("readable");

    const auto row = [](const char* name, const QByteArray& json, bool readable) {
        QTest::addRow("%s", name) << json << readable;
    };
    const QByteArray base = R"({"latestVersion":"1.3","downloadURL":"https://o.example/d")";
    row("required keys only", base + "}", true);
    row("optional nulls, unknown keys",
        base + R"(,"notes":null,"releaseNotesURL":null,"releaseDate":null,"channel":{"beta":true}})", true);
    row("notes a list", base + R"(,"notes":["a"]})", false);
    row("release notes URL broken", base + R"(,"releaseNotesURL":"http://[x"})", false);
    row("missing download URL", R"({"latestVersion":"1.3"})", false);
    row("empty download URL", R"({"latestVersion":"1.3","downloadURL":""})", false);
    row("download URL not a URL", R"({"latestVersion":"1.3","downloadURL":"https://o example/ d"})", false);
    row("version a number", R"({"latestVersion":1.3,"downloadURL":"https://o.example/d"})", false);
    row("empty object", "{}", false);
    row("array", "[]", false);
}

void UpdateCheckerTest::releaseDecoding() {
    QFETCH(QByteArray, json);
    QFETCH(bool, readable);
    const std::optional<Release> release = Release::fromJson(json);
    QCOMPARE(release.has_value(), readable);
    if (release)
        QCOMPARE(release->systemRequirement(), std::nullopt);
}

void UpdateCheckerTest::checks_data() {
    QTest::addColumn<QString>("skipped"); // empty: none stored
    QTest::addColumn<Response>("response");
    QTest::addColumn<bool>("userInitiated");
    QTest::addColumn<bool>("published");
    QTest::addColumn<Message>("message");

    const Response newer = Response::json(feed("1.3"));
    const Response same = Response::json(feed("1.2.0"));
    QTest::addRow("automatic: newer offered") << "" << newer << false << true << Message();
    QTest::addRow("manual: newer offered, no message") << "" << newer << true << true << Message();
    QTest::addRow("automatic: same version silent") << "" << same << false << false << Message();
    QTest::addRow("manual: up to date")
        << "" << same << true << false << Message("You're up to date \u2014 version 1.2 is the latest.");
    QTest::addRow("automatic: skipped version silent") << "1.3" << newer << false << false << Message();
    QTest::addRow("manual: skipped version offered again") << "1.3" << newer << true << true << Message();
    QTest::addRow("automatic: newer than the skipped one")
        << "1.3" << Response::json(feed("1.4")) << false << true << Message();
    QTest::addRow("automatic: skip rule is exact text") << "1.3.0" << newer << false << true << Message();
    QTest::addRow("automatic: 500 silent")
        << "" << Response::json(feed("1.3"), 500) << false << false << Message();
    QTest::addRow("manual: 503 reported, not up to date")
        << "" << Response::json("{}", 503) << true << false
        << Message("Couldn't reach the update server (503).");
    QTest::addRow("manual: not JSON")
        << "" << Response::json("<html>moved</html>") << true << false << Message(malformed);
    QTest::addRow("manual: endless body")
        << "" << Response::endlessBody() << true << false << Message(malformed);
}

void UpdateCheckerTest::checks() {
    QFETCH(QString, skipped);
    QFETCH(Response, response);
    QFETCH(bool, userInitiated);
    QFETCH(bool, published);
    QFETCH(Message, message);

    m_server->serve(feedPath, response);
    if (!skipped.isEmpty())
        m_settings->setValue(UpdateChecker::skippedVersionKey, skipped);
    const auto checker = makeChecker();
    QSignalSpy checking(checker.get(), &UpdateChecker::isCheckingChanged);
    QSignalSpy offered(checker.get(), &UpdateChecker::availableUpdateChanged);

    const QFuture<void> run = userInitiated ? checker->checkNow() : checker->checkIfDue();
    QVERIFY(checker->isChecking());
    QVERIFY(fixtures::await(run));

    QCOMPARE(checker->isChecking(), false);
    QCOMPARE(checking.size(), 2);
    QCOMPARE(checker->availableUpdate().has_value(), published);
    QCOMPARE(offered.size(), published ? 1 : 0);
    QCOMPARE(checker->manualCheckResult(), message);
    QCOMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().first().headers.value("cache-control").contains("no-cache"));
    if (published) {
        QCOMPARE(checker->availableUpdate()->notes, Message("Faster."));
        QCOMPARE(checker->availableUpdate()->systemRequirement(), Message("Requires Debian 12 or later."));
    }
}

void UpdateCheckerTest::connectionRefusedExplainsItself() {
    qputenv("ORVELLE_UPDATE_FEED_URL",
            "http://127.0.0.1:" + QByteArray::number(LocalHttpServer::closedPort()) + feedPath);
    const auto checker = makeChecker();
    QVERIFY(fixtures::await(checker->checkNow()));
    const QString message = checker->manualCheckResult().value_or(QString());
    QVERIFY2(message.startsWith("Update check failed: ") && message.size() > 21, qPrintable(message));
}

void UpdateCheckerTest::skipVersionClosesTheOfferAndIsRemembered() {
    m_server->serve(feedPath, Response::json(feed("1.3")));
    const auto checker = makeChecker();
    QVERIFY(fixtures::await(checker->checkIfDue()));
    QVERIFY(checker->availableUpdate());

    checker->skipVersion(*checker->availableUpdate());
    QCOMPARE(checker->availableUpdate(), std::nullopt);
    m_settings->sync();
    QCOMPARE(QSettings(m_settings->fileName(), QSettings::IniFormat).value(UpdateChecker::skippedVersionKey),
             QVariant("1.3"));

    // A later check that finds nothing newer leaves a standing offer alone.
    checker->setAvailableUpdate(Release{"9.9", QUrl("https://o.example/9.9"), {}, {}, {}, {}});
    m_server->serve(feedPath, Response::json(feed("1.2")));
    QVERIFY(fixtures::await(checker->checkNow()));
    QCOMPARE(checker->availableUpdate()->latestVersion, QStringLiteral("9.9"));
}

void UpdateCheckerTest::automaticCheckRunsOncePerDay_data() {
    QTest::addColumn<QVariant>("lastChecked");
    QTest::addColumn<bool>("sends");

    QTest::addRow("never checked") << QVariant() << true;
    QTest::addRow("one second short of a day") << QVariant(m_start.addSecs(-86399)) << false;
    QTest::addRow("exactly a day ago") << QVariant(m_start.addSecs(-86400)) << true;
    QTest::addRow("not a date") << QVariant(QStringLiteral("yesterday")) << true;
}

void UpdateCheckerTest::automaticCheckRunsOncePerDay() {
    QFETCH(QVariant, lastChecked);
    QFETCH(bool, sends);

    m_server->serve(feedPath, Response::json(feed("1.2")));
    if (lastChecked.isValid())
        m_settings->setValue(UpdateChecker::lastCheckedAtKey, lastChecked);
    QVERIFY(fixtures::await(makeChecker()->checkIfDue()));
    QCOMPARE(m_server->requests().size(), sends ? 1 : 0);
    QCOMPARE(m_settings->value(UpdateChecker::lastCheckedAtKey), sends ? QVariant(m_now) : lastChecked);
}

void UpdateCheckerTest::manualCheckRestartsTheDay() {
    m_server->serve(feedPath, Response::json("{}", 500));
    const auto checker = makeChecker();
    const auto checkAfterHours = [&](int hours, QFuture<void> (UpdateChecker::*check)(), int requests) {
        m_now = m_now.addSecs(hours * 3600);
        QVERIFY(fixtures::await((checker.get()->*check)()));
        QCOMPARE(m_server->requests().size(), requests);
    };
    checkAfterHours(0, &UpdateChecker::checkIfDue, 1); // a failed check still counts
    checkAfterHours(20, &UpdateChecker::checkIfDue, 1);
    checkAfterHours(0, &UpdateChecker::checkNow, 2);
    checkAfterHours(5, &UpdateChecker::checkIfDue, 2); // a day after the first check, not the manual one
    checkAfterHours(20, &UpdateChecker::checkIfDue, 3);
}

void UpdateCheckerTest::defaultFeedAddress() {
    qunsetenv("ORVELLE_UPDATE_FEED_URL");
    QCOMPARE(UpdateChecker::feedUrl().scheme(), QStringLiteral("https"));
    QCOMPARE(UpdateChecker::feedUrl().path(), QString::fromLatin1(feedPath));
    QCOMPARE(UpdateChecker(m_settings.get()).installedVersion(), UpdateChecker::buildVersion());
    QCOMPARE(UpdateChecker(m_settings.get(), QString()).installedVersion(), QStringLiteral("0"));
}

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "update_checker_test.moc"

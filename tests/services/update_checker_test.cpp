#include "services/UpdateChecker.h"

#include "support/LocalHttpServer.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Response = LocalHttpServer::Response;
using Release = UpdateChecker::Release;

namespace {

const QByteArray feedPath = "/Orvelle/update_checker/appcast.json";
const QString malformed = QStringLiteral("The update file couldn't be read. It may be malformed.");

// The tests' fixed "now".
QDateTime startTime() {
    return QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
}

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

    void versionComponents_data();
    void versionComponents();
    void isNewerVersion_data();
    void isNewerVersion();
    void releaseDecoding_data();
    void releaseDecoding();

    void checks_data();
    void checks();
    void checkNowSendsAFreshRequestAndRecordsTheTime();
    void connectionRefusedExplainsItself();
    void skipVersionClosesTheOfferAndIsRemembered();
    void automaticCheckRunsOncePerDay_data();
    void automaticCheckRunsOncePerDay();
    void manualCheckRestartsTheDay();
    void defaultFeedAddress();

private:
    std::unique_ptr<UpdateChecker> makeChecker(const QString& installed);
    // Runs a future to its end on the event loop.
    template <typename T> static bool finish(const QFuture<T>& future) {
        return QTest::qWaitFor([&future] { return future.isFinished(); }, 20000);
    }

    QTemporaryDir m_dir;
    std::unique_ptr<LocalHttpServer> m_server;
    std::unique_ptr<QSettings> m_settings;
    QDateTime m_now;
};

void UpdateCheckerTest::init() {
    m_server = std::make_unique<LocalHttpServer>();
    QVERIFY(m_server->start());
    qputenv("ORVELLE_UPDATE_FEED_URL", m_server->url(feedPath).toEncoded());
    const QString path = m_dir.filePath(QStringLiteral("%1.ini").arg(QTest::currentTestFunction()));
    QFile::remove(path);
    m_settings = std::make_unique<QSettings>(path, QSettings::IniFormat);
    m_now = startTime();
}

void UpdateCheckerTest::cleanup() {
    m_settings.reset();
    m_server.reset();
    qunsetenv("ORVELLE_UPDATE_FEED_URL");
}

std::unique_ptr<UpdateChecker> UpdateCheckerTest::makeChecker(const QString& installed) {
    return std::make_unique<UpdateChecker>(m_settings.get(), installed, [this] { return m_now; });
}

void UpdateCheckerTest::versionComponents_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QList<qint64>>("components");

    QTest::addRow("plain") << "1.10.3" << QList<qint64>{1, 10, 3};
    QTest::addRow("empty pieces dropped") << ".1..2." << QList<qint64>{1, 2};
    QTest::addRow("letters removed") << "2.0b3" << QList<qint64>{2, 3};
    QTest::addRow("prefix") << "v1.5" << QList<qint64>{1, 5};
    QTest::addRow("no digits") << "beta.2" << QList<qint64>{0, 2};
    QTest::addRow("empty") << "" << QList<qint64>{};
    QTest::addRow("overflow") << "99999999999999999999.1" << QList<qint64>{0, 1};
    QTest::addRow("Arabic-Indic numeral") << QString::fromUtf8("\xd9\xa3.1") << QList<qint64>{0, 1};
    QTest::addRow("mixed numerals") << QString::fromUtf8("1\xd9\xa3.4") << QList<qint64>{0, 4};
    QTest::addRow("sign is not a digit") << "-3.+4" << QList<qint64>{3, 4};
}

void UpdateCheckerTest::versionComponents() {
    QFETCH(QString, text);
    QFETCH(QList<qint64>, components);
    QCOMPARE(UpdateChecker::versionComponents(text), components);
}

void UpdateCheckerTest::isNewerVersion_data() {
    QTest::addColumn<QString>("candidate");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    QTest::addRow("numeric, not text order") << "1.10"
                                             << "1.9" << true;
    QTest::addRow("older") << "1.9"
                           << "1.10" << false;
    QTest::addRow("trailing zero is the same") << "1.2.0"
                                               << "1.2" << false;
    QTest::addRow("same, other way round") << "1.2"
                                           << "1.2.0" << false;
    QTest::addRow("extra component") << "1.2.1"
                                     << "1.2" << true;
    QTest::addRow("beta reads as 2.3") << "2.0b3"
                                       << "2.1" << true;
    QTest::addRow("prefix ignored") << "v1.5"
                                    << "1.4.9" << true;
    QTest::addRow("equal") << "3.0"
                           << "3.0" << false;
    QTest::addRow("anything beats unreadable installed") << "0.0.1"
                                                         << "" << true;
    QTest::addRow("zero against unreadable") << "0"
                                             << "unknown" << false;
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

    QTest::addRow("required keys only")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":"https://o.example/d"})json") << true;
    QTest::addRow("optional nulls, unknown keys")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":"https://o.example/d","notes":null,)json"
                      R"json("releaseNotesURL":null,"releaseDate":null,"channel":{"beta":true}})json")
        << true;
    QTest::addRow("missing download URL") << QByteArray(R"json({"latestVersion":"1.3"})json") << false;
    QTest::addRow("null download URL")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":null})json") << false;
    QTest::addRow("missing version") << QByteArray(R"json({"downloadURL":"https://o.example/d"})json")
                                     << false;
    QTest::addRow("version a number")
        << QByteArray(R"json({"latestVersion":1.3,"downloadURL":"https://o.example/d"})json") << false;
    QTest::addRow("download URL not a URL")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":"https://o example/ d"})json") << false;
    QTest::addRow("empty download URL")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":""})json") << false;
    QTest::addRow("notes a list")
        << QByteArray(R"json({"latestVersion":"1.3","downloadURL":"https://o.example/d","notes":["a"]})json")
        << false;
    QTest::addRow("release notes URL broken")
        << QByteArray(
               R"json({"latestVersion":"1.3","downloadURL":"https://o.example/d","releaseNotesURL":"http://[x"})json")
        << false;
    QTest::addRow("empty object") << QByteArray("{}") << false;
    QTest::addRow("array") << QByteArray("[]") << false;
    QTest::addRow("HTML") << QByteArray("<html></html>") << false;
}

void UpdateCheckerTest::releaseDecoding() {
    QFETCH(QByteArray, json);
    QFETCH(bool, readable);
    QCOMPARE(Release::fromJson(json).has_value(), readable);
}

void UpdateCheckerTest::checks_data() {
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("skipped"); // empty: none stored
    QTest::addColumn<Response>("response");
    QTest::addColumn<bool>("userInitiated");
    QTest::addColumn<bool>("published");
    QTest::addColumn<std::optional<QString>>("message");

    const std::optional<QString> none;
    const auto says = [](const char* text) { return std::optional<QString>(QString::fromUtf8(text)); };
    const Response newer = Response::json(feed("1.3"));

    QTest::addRow("automatic: newer offered") << "1.2"
                                              << "" << newer << false << true << none;
    QTest::addRow("manual: newer offered, no message") << "1.2"
                                                       << "" << newer << true << true << none;
    QTest::addRow("automatic: same version silent")
        << "1.2"
        << "" << Response::json(feed("1.2.0")) << false << false << none;
    QTest::addRow("manual: up to date") << "1.2"
                                        << "" << Response::json(feed("1.2.0")) << true << false
                                        << says("You're up to date \u2014 version 1.2 is the latest.");
    QTest::addRow("automatic: skipped version silent") << "1.2"
                                                       << "1.3" << newer << false << false << none;
    QTest::addRow("manual: skipped version offered again") << "1.2"
                                                           << "1.3" << newer << true << true << none;
    QTest::addRow("automatic: newer than the skipped one")
        << "1.2"
        << "1.3" << Response::json(feed("1.4")) << false << true << none;
    QTest::addRow("automatic: skip rule is exact text") << "1.2"
                                                        << "1.3.0" << newer << false << true << none;
    QTest::addRow("automatic: 500 silent")
        << "1.2"
        << "" << Response::json(feed("1.3"), 500) << false << false << none;
    QTest::addRow("manual: 500 reported, not up to date")
        << "1.2"
        << "" << Response::json(feed("1.3"), 500) << true << false
        << says("Couldn't reach the update server (500).");
    QTest::addRow("manual: 404") << "1.2"
                                 << "" << Response::json("{}", 404) << true << false
                                 << says("Couldn't reach the update server (404).");
    QTest::addRow("manual: 503") << "1.2"
                                 << "" << Response::json("{}", 503) << true << false
                                 << says("Couldn't reach the update server (503).");
    QTest::addRow("automatic: no download URL silent")
        << "1.2"
        << "" << Response::json(R"json({"latestVersion":"1.3"})json") << false << false << none;
    QTest::addRow("manual: no download URL") << "1.2"
                                             << "" << Response::json(R"json({"latestVersion":"1.3"})json")
                                             << true << false << says(malformed.toUtf8());
    QTest::addRow("manual: not JSON")
        << "1.2"
        << "" << Response::json("<html>moved</html>") << true << false << says(malformed.toUtf8());
    QTest::addRow("manual: wrong type")
        << "1.2"
        << "" << Response::json(R"json({"latestVersion":13,"downloadURL":"https://x"})json") << true << false
        << says(malformed.toUtf8());
    QTest::addRow("manual: empty object")
        << "1.2"
        << "" << Response::json("{}") << true << false << says(malformed.toUtf8());
    QTest::addRow("manual: endless body")
        << "1.2"
        << "" << Response::endlessBody() << true << false << says(malformed.toUtf8());
    QTest::addRow("manual: redirected feed followed")
        << "1.2"
        << "" << Response::redirect("/moved.json") << true << true << none;
}

void UpdateCheckerTest::checks() {
    QFETCH(QString, installed);
    QFETCH(QString, skipped);
    QFETCH(Response, response);
    QFETCH(bool, userInitiated);
    QFETCH(bool, published);
    QFETCH(std::optional<QString>, message);

    m_server->serve(feedPath, response);
    m_server->serve("/moved.json", Response::json(feed("1.3")));
    if (!skipped.isEmpty())
        m_settings->setValue(UpdateChecker::skippedVersionKey, skipped);
    const auto checker = makeChecker(installed);
    QSignalSpy checking(checker.get(), &UpdateChecker::isCheckingChanged);
    QSignalSpy offered(checker.get(), &UpdateChecker::availableUpdateChanged);

    const QFuture<void> run = userInitiated ? checker->checkNow() : checker->checkIfDue();
    QVERIFY(checker->isChecking());
    QVERIFY(finish(run));

    QCOMPARE(checker->isChecking(), false);
    QCOMPARE(checking.size(), 2);
    QCOMPARE(checker->availableUpdate().has_value(), published);
    QCOMPARE(offered.size(), published ? 1 : 0);
    QCOMPARE(checker->manualCheckResult(), message);
    QCOMPARE(m_server->requests().first().path(), feedPath);
    if (published) {
        QVERIFY(UpdateChecker::isNewerVersion(checker->availableUpdate()->latestVersion, installed));
        QCOMPARE(checker->availableUpdate()->notes, std::optional<QString>("Faster."));
        QCOMPARE(checker->availableUpdate()->minimumSystemVersion, std::optional<QString>("12"));
        QCOMPARE(checker->availableUpdate()->systemRequirement(),
                 std::optional<QString>("Requires Debian 12 or later."));
        QCOMPARE(checker->availableUpdate()->releaseNotesURL, std::nullopt);
    }
}

void UpdateCheckerTest::checkNowSendsAFreshRequestAndRecordsTheTime() {
    m_server->serve(
        feedPath, Response::json(
                      R"json({"latestVersion":"1.3","downloadURL":"https://o.example/Orvelle.tar.gz"})json"));
    const auto checker = makeChecker("1.2");
    QVERIFY(finish(checker->checkNow()));

    QCOMPARE(m_settings->value(UpdateChecker::lastCheckedAtKey).toDateTime(), m_now);
    const Release expected{"1.3", QUrl("https://o.example/Orvelle.tar.gz"), {}, {}, {}, {}};
    QCOMPARE(checker->availableUpdate(), std::optional<Release>(expected));
    QCOMPARE(expected.systemRequirement(), std::nullopt);
    QCOMPARE(m_server->requests().size(), 1);
    const QByteArray cacheControl = m_server->requests().first().headers.value("cache-control");
    QVERIFY2(cacheControl.contains("no-cache"), cacheControl);
}

void UpdateCheckerTest::connectionRefusedExplainsItself() {
    qputenv("ORVELLE_UPDATE_FEED_URL", QStringLiteral("http://127.0.0.1:%1%2")
                                           .arg(LocalHttpServer::closedPort())
                                           .arg(QString::fromLatin1(feedPath))
                                           .toUtf8());
    const auto checker = makeChecker("1.2");
    QVERIFY(finish(checker->checkNow()));
    const QString message = checker->manualCheckResult().value_or(QString());
    QVERIFY2(message.startsWith("Update check failed: ") && message.size() > 21, qPrintable(message));

    const auto automatic = makeChecker("1.2");
    m_settings->remove(UpdateChecker::lastCheckedAtKey);
    QVERIFY(finish(automatic->checkIfDue()));
    QCOMPARE(automatic->manualCheckResult(), std::nullopt);
}

void UpdateCheckerTest::skipVersionClosesTheOfferAndIsRemembered() {
    m_server->serve(feedPath, Response::json(feed("1.3")));
    const auto checker = makeChecker("1.2");
    QVERIFY(finish(checker->checkIfDue()));
    QVERIFY(checker->availableUpdate());

    checker->skipVersion(*checker->availableUpdate());
    QCOMPARE(checker->availableUpdate(), std::nullopt);
    QSettings reread(m_settings->fileName(), QSettings::IniFormat);
    m_settings->sync();
    QCOMPARE(reread.value(UpdateChecker::skippedVersionKey).toString(), QStringLiteral("1.3"));

    // A later check that finds nothing newer leaves a standing offer alone.
    checker->setAvailableUpdate(Release{"9.9", QUrl("https://o.example/9.9"), {}, {}, {}, {}});
    m_server->serve(feedPath, Response::json(feed("1.2")));
    QVERIFY(finish(checker->checkNow()));
    QCOMPARE(checker->availableUpdate()->latestVersion, QStringLiteral("9.9"));
}

void UpdateCheckerTest::automaticCheckRunsOncePerDay_data() {
    QTest::addColumn<QVariant>("lastChecked");
    QTest::addColumn<bool>("sends");

    const QDateTime now = startTime();
    QTest::addRow("never checked") << QVariant() << true;
    QTest::addRow("an hour ago") << QVariant(now.addSecs(-3600)) << false;
    QTest::addRow("one second short of a day") << QVariant(now.addSecs(-86399)) << false;
    QTest::addRow("exactly a day ago") << QVariant(now.addSecs(-86400)) << true;
    QTest::addRow("a week ago") << QVariant(now.addDays(-7)) << true;
    QTest::addRow("not a date") << QVariant(QStringLiteral("yesterday")) << true;
}

void UpdateCheckerTest::automaticCheckRunsOncePerDay() {
    QFETCH(QVariant, lastChecked);
    QFETCH(bool, sends);

    m_server->serve(feedPath, Response::json(feed("1.2")));
    if (lastChecked.isValid())
        m_settings->setValue(UpdateChecker::lastCheckedAtKey, lastChecked);
    const auto checker = makeChecker("1.2");
    QVERIFY(finish(checker->checkIfDue()));
    QCOMPARE(m_server->requests().size(), sends ? 1 : 0);
    QCOMPARE(m_settings->value(UpdateChecker::lastCheckedAtKey), sends ? QVariant(m_now) : lastChecked);
}

void UpdateCheckerTest::manualCheckRestartsTheDay() {
    m_server->serve(feedPath, Response::json("{}", 500));
    const auto checker = makeChecker("1.2");
    QVERIFY(finish(checker->checkIfDue())); // a failed check still counts
    m_now = m_now.addSecs(20 * 3600);
    QVERIFY(finish(checker->checkIfDue()));
    QCOMPARE(m_server->requests().size(), 1);

    QVERIFY(finish(checker->checkNow()));
    QCOMPARE(m_server->requests().size(), 2);
    m_now = m_now.addSecs(5 * 3600); // a day after the first check, but not after the manual one
    QVERIFY(finish(checker->checkIfDue()));
    QCOMPARE(m_server->requests().size(), 2);
    m_now = m_now.addSecs(20 * 3600);
    QVERIFY(finish(checker->checkIfDue()));
    QCOMPARE(m_server->requests().size(), 3);
}

void UpdateCheckerTest::defaultFeedAddress() {
    qunsetenv("ORVELLE_UPDATE_FEED_URL");
    const QUrl url = UpdateChecker::feedUrl();
    QCOMPARE(url.scheme(), QStringLiteral("https"));
    QCOMPARE(url.path(), QStringLiteral("/Orvelle/update_checker/appcast.json"));
    QCOMPARE(UpdateChecker(m_settings.get()).installedVersion(), UpdateChecker::buildVersion());
    QCOMPARE(UpdateChecker(m_settings.get(), QString()).installedVersion(), QStringLiteral("0"));
}

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "update_checker_test.moc"

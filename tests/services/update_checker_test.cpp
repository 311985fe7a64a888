#include "services/UpdateChecker.h"

#include "support/Await.h"
#include "support/LocalHttpServer.h"
#include "support/ScratchHome.h"

#include <QSignalSpy>
#include <QTest>

using Response = LocalHttpServer::Response;
using Release = UpdateChecker::Release;

namespace {

const QByteArray feedPath = "/Orvelle/update_checker/appcast.json";
const QString malformed = QStringLiteral("The update file couldn't be read. It may be malformed.");

// An offered release on one line: its fields that are present, in order.
QString offered(const UpdateChecker::Release& release) {
    return QStringLiteral("offer %1 %2 %3 %4 %5 %6")
        .arg(release.latestVersion, release.downloadURL.toString(), release.releaseDate.value_or(""),
             release.systemRequirement().value_or(""), release.releaseNotesURL.value_or(QUrl()).toString(),
             release.notes.value_or(""))
        .simplified();
}

Response feed(const QByteArray& version) {
    return Response::json(R"({"latestVersion":")" + version + R"(","downloadURL":"https://o.example/d"})");
}

} // namespace

class UpdateCheckerTest : public QObject {
    Q_OBJECT
    std::unique_ptr<LocalHttpServer> m_server;
    std::optional<fixtures::ScratchHome> m_home;
    QDateTime m_now;

    std::unique_ptr<UpdateChecker> makeChecker() {
        return std::make_unique<UpdateChecker>(&m_home->settings, "1.2", [this] { return m_now; });
    }

private slots:
    void init() {
        m_server = std::make_unique<LocalHttpServer>();
        QVERIFY(m_server->start());
        qputenv("ORVELLE_UPDATE_FEED_URL", m_server->url(feedPath).toEncoded());
        m_home.emplace();
        m_now = QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
    }

    void isNewerVersion_data() {
        QTest::addColumn<QString>("candidate");
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("newer");
        const auto row = [](const char* a, const char* b, bool newer) {
            QTest::addRow("%s vs %s", a, b) << QString(a) << QString(b) << newer;
        };
        row("1.10", "1.9", true);   // numeric, not text order
        row("1.2.0", "1.2", false); // a trailing zero is the same version
        row("0.0.1", "", true);     // anything beats an unreadable installed version, except zero
        // How text becomes components: each row fails if its rule is broken.
        row("v2.0b3", "2.2.9", true); // letters removed: 2.3
        row("beta.2", "1", false);    // a piece without digits is 0: 0.2
    }

    void isNewerVersion() {
        QFETCH(QString, candidate);
        QFETCH(QString, current);
        QTEST(UpdateChecker::isNewerVersion(candidate, current), "newer");
    }

    void checks_data();

    void checks() {
        QFETCH(QString, skipped);
        QFETCH(Response, response);
        QFETCH(bool, userInitiated);
        QFETCH(QByteArray, address);
        m_server->serve(feedPath, response);
        if (!address.isEmpty())
            qputenv("ORVELLE_UPDATE_FEED_URL", address);
        m_home->settings.setValue(UpdateChecker::skippedVersionKey, skipped);
        const auto checker = makeChecker();
        QSignalSpy checking(checker.get(), &UpdateChecker::isCheckingChanged);
        QSignalSpy offerChanged(checker.get(), &UpdateChecker::availableUpdateChanged);
        const QFuture<void> run = userInitiated ? checker->checkNow() : checker->checkIfDue();
        QVERIFY(fixtures::await(run));

        QCOMPARE(checking.size(), 2); // on, then off
        // What the user sees: the offer, the message, or both (which would be wrong) run together.
        const std::optional<Release> offer = checker->availableUpdate();
        QTEST((offer ? offered(*offer) : QString()) + checker->manualCheckResult().value_or(""), "outcome");
        QCOMPARE(offerChanged.size(), offer ? 1 : 0);
        QCOMPARE(m_server->requests().size(), address.isEmpty() ? 1 : 0);
        if (address.isEmpty())
            QVERIFY(m_server->requests().first().headers.value("cache-control").contains("no-cache"));
    }

    // Skipping withdraws the offer and keeps the version for later checks (the table's rows start from it).
    void skipVersionIsRemembered() {
        const auto checker = makeChecker();
        const Release release{"1.3", QUrl("https://o.example/d"), {}, {}, {}, {}};
        checker->setAvailableUpdate(release);
        checker->skipVersion(release);
        QCOMPARE(checker->availableUpdate(), std::nullopt);
        QCOMPARE(m_home->settings.value(UpdateChecker::skippedVersionKey), QVariant("1.3"));
    }

    void automaticCheckRunsOncePerDay() {
        m_server->serve(feedPath, Response::json("{}", 500)); // a failed check counts all the same
        m_home->settings.setValue(UpdateChecker::lastCheckedAtKey, "yesterday");
        const auto checker = makeChecker();
        const auto check = [&](qint64 afterSeconds, bool userInitiated, int requests) {
            m_now = m_now.addSecs(afterSeconds);
            QVERIFY(fixtures::await(userInitiated ? checker->checkNow() : checker->checkIfDue()));
            QCOMPARE(m_server->requests().size(), requests);
        };
        check(0, false, 1); // a stored value that is not a date does not hold the check back
        check(20 * 3600, false, 1);
        check(0, true, 2); // the user's check restarts the day
        check(86399, false, 2);
        check(1, false, 3);
    }
};

void UpdateCheckerTest::checks_data() {
    QTest::addColumn<QString>("skipped");
    QTest::addColumn<Response>("response");
    QTest::addColumn<bool>("userInitiated");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QByteArray>("address"); // of the feed when not the test's server
    const auto row = [](const char* name, const Response& response, bool userInitiated,
                        const QString& outcome, const char* skipped = "", const QByteArray& address = {}) {
        QTest::addRow("%s", name) << QString(skipped) << response << userInitiated << outcome << address;
    };
    const auto unreadable = [&row](const char* name, const QByteArray& feed) {
        row(name, Response::json(feed), true, malformed);
    };
    const QString offer = "offer 1.3 https://o.example/d";
    const QByteArray base = R"({"latestVersion":"1.3","downloadURL":"https://o.example/d")";
    // The feed itself: a feed with the required keys alone offers a release without any optional field.
    row("every key",
        Response::json(base + R"(,"releaseDate":"March","minimumSystemVersion":"12",)"
                              R"("releaseNotesURL":"https://o.example/n","notes":"Faster."})"),
        true, offer + " March Requires Debian 12 or later. https://o.example/n Faster.");
    row("optional nulls, unknown keys",
        Response::json(base + R"(,"releaseNotesURL":null,"notes":null,"x":[1]})"), true, offer);
    unreadable("release notes URL broken", base + R"(,"releaseNotesURL":"http://[x"})");
    unreadable("missing download URL", R"({"latestVersion":"1.3"})");
    unreadable("version a number", R"({"latestVersion":1.3,"downloadURL":"https://o.example/d"})");
    row("automatic: unreadable feed silent", Response::json(R"({"latestVersion":"1.3"})"), false, "");
    // Comparing and skipping.
    row("automatic: newer offered", feed("1.3"), false, offer);
    row("automatic: same version silent", feed("1.2.0"), false, "");
    row("manual: up to date", feed("1.2.0"), true, "You're up to date \u2014 version 1.2 is the latest.");
    row("automatic: skipped version silent", feed("1.3"), false, "", "1.3");
    row("manual: skipped version offered again", feed("1.3"), true, offer, "1.3");
    row("automatic: skip rule is exact text", feed("1.3"), false, offer, "1.3.0");
    // Failures: only a check the user asked for explains itself.
    row("manual: 500 reported, not up to date", Response::json("{}", 500), true,
        "Couldn't reach the update server (500).");
    row("manual: connection refused", {}, true, "Update check failed: Connection refused", "",
        "http://127.0.0.1:" + QByteArray::number(LocalHttpServer::closedPort()) + feedPath);
    // The kernel never routes TCP to a multicast address: "Network unreachable" at once.
    row("manual: no route", {}, true, "No internet connection, so the update check couldn't run.", "",
        "http://224.0.0.1:9" + feedPath);
}

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "update_checker_test.moc"

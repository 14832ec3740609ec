// The app's own account services against a real tamlo-server: the exact client flow.
#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "serverfixture.h"

#include <QCoroTask>
#include <QTemporaryDir>
#include <QTimeZone>

using namespace Qt::StringLiterals;

namespace {
ActivitySnapshot record(const QDateTime &timestamp, const QString &category = u"Coding"_s)
{
    return ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = timestamp,
        .aiCategory = category,
        .imageHash = u"9f86d081884c7d659a2feaa0c55ad015"_s,
        .projectName = u"Website"_s,
        .activityDescription = u"Editing checkout.css"_s,
        .userNote = std::nullopt};
}

QDateTime berlin(QDate date, QTime time)
{
    return QDateTime(date, time, QTimeZone("Europe/Berlin"));
}
} // namespace

class ClientFlowTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        auth = std::make_unique<AuthService>(&nam, config(), paths.credentialsDir);
        sync = std::make_unique<ActivitySyncService>(
            &store, auth.get(), &nam, config(), &settings, &eventLog, &appClock);
    }

    [[nodiscard]] AppConfig config() const
    {
        return AppConfig(&settings, QString(), baseUrl.toString(), baseUrl.toString());
    }

    // What the browser does with the page the app opens: fill in the form, follow to the callback.
    QString browserSignIn(const QString &path, const QString &email)
    {
        const QUrl page = config().webAuthURL(path);
        const HttpResult form = send("GET", page.toString(QUrl::RemoveScheme | QUrl::RemoveAuthority));
        EXPECT_EQ(form.status, 200);
        return linkToken(email, path);
    }

    [[nodiscard]] UploadedDay serverDay(const QString &date)
    {
        const std::optional<ServerUser> user = storage->userByEmail(u"ada@example.org"_s);
        for (const UploadedDay &day : storage->days(user->id)) {
            if (day.date == date) {
                return day;
            }
        }
        return {};
    }

    QTemporaryDir home;
    AppPaths paths = AppPaths::underHome(home.path());
    Settings settings {paths.settingsFile};
    FakeClock appClock {berlin(QDate(2026, 11, 16), QTime(14, 0))};
    LogManager eventLog {&appClock};
    ActivitySnapshotStore store {paths.snapshotsFile(), &eventLog, &settings, &appClock};
    std::unique_ptr<AuthService> auth;
    std::unique_ptr<ActivitySyncService> sync;
};

TEST_P(ClientFlowTest, SignsInUploadsBackfillsAnswersRequestsAndSignsOutWhenTheSessionDies)
{
    // An unregistered address meets the app's own text.
    QCoro::waitFor(auth->verifyMagicLinkToken(browserSignIn(u"/login"_s, u"ada@example.org"_s)));
    EXPECT_EQ(auth->error(), u"Account not found. Please register on Tamloweb."_s);
    EXPECT_FALSE(auth->isAuthenticated());

    QCoro::waitFor(auth->verifyMagicLinkToken(browserSignIn(u"/register"_s, u"ada@example.org"_s)));
    ASSERT_TRUE(auth->isAuthenticated()) << auth->error().value_or(QString()).toStdString();
    EXPECT_EQ(auth->currentUser()->email, u"ada@example.org"_s);

    const ActivitySnapshot today = record(berlin(QDate(2026, 11, 16), QTime(9, 30, 12)));
    const ActivitySnapshot yesterday = record(berlin(QDate(2026, 11, 15), QTime(23, 30)), QString());
    const ActivitySnapshot older = record(berlin(QDate(2026, 11, 5), QTime(10, 0)));
    for (const ActivitySnapshot &snapshot : {older, yesterday, today}) {
        store.add(snapshot);
    }

    QCoro::waitFor(sync->syncIfNeeded(false));
    EXPECT_EQ(sync->lastError(), std::nullopt);
    EXPECT_EQ(sync->lastSyncDate(), appClock.now());
    EXPECT_EQ(serverDay(u"2026-11-16"_s).snapshots.value(0).id, today.id.toString(QUuid::WithoutBraces).toUpper());
    // A late evening in Berlin is the previous UTC hour, and its day is the local one.
    EXPECT_EQ(serverDay(u"2026-11-15"_s).snapshots.value(0).timestamp, u"2026-11-15T22:30:00Z"_s);
    EXPECT_EQ(serverDay(u"2026-11-15"_s).snapshots.value(0).activityType, u"Other"_s);

    QCoro::waitFor(sync->runHistoricalBackfill());
    EXPECT_EQ(serverDay(u"2026-11-05"_s).snapshots.size(), 1);
    const ServerUser ada = *storage->userByEmail(u"ada@example.org"_s);
    EXPECT_TRUE(storage->devices(ada.id).value(0).backfillComplete);

    // The server asks; the next poll uploads and the request is gone.
    storage->requestSync(ada.id, clock.now().toMSecsSinceEpoch());
    appClock.advance(60);
    QCoro::waitFor(sync->checkSyncRequest());
    EXPECT_EQ(sync->lastSyncDate(), appClock.now());
    EXPECT_EQ(storage->syncRequestedAt(ada.id), std::nullopt);

    // Deleted on the server: the next upload is refused, /auth/me confirms, the app signs out.
    storage->deleteUser(u"ada@example.org"_s);
    QCoro::waitFor(sync->syncIfNeeded(true));
    EXPECT_FALSE(auth->isAuthenticated());
}

INSTANTIATE_TEST_SUITE_P(Server, ClientFlowTest, ::testing::ValuesIn(testBackends()), backendName);

#include "fuzzentrypoints.h"
#include "fuzzenvironment.h"

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "core/activitysnapshotstore.h"
#include "fakeclock.h"
#include "standinserver.h"

#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>

using namespace Qt::StringLiterals;
using FuzzEnvironment::require;

namespace {
// One stand-in backend for the whole run; the route under test answers with the input.
struct BackendStandIn
{
    StandInServer server;
    QNetworkAccessManager nam;
    StandInServer::Reply reply;

    BackendStandIn()
    {
        const auto fuzzed = [this](const StandInServer::Request &) { return reply; };
        server.on("POST", "/auth/verify-token", fuzzed);
        server.on("GET", "/activity/status", fuzzed);
        server.on("POST", "/activity/sync", fuzzed);
        // The session stays valid, so a rejected upload never signs the user out here.
        server.on("GET", "/auth/me", StandInServer::Reply {200, R"({"id":"u1","email":"a@example.com"})"});
    }

    [[nodiscard]] AppConfig config() const
    {
        return AppConfig(FuzzEnvironment::settings(), QString(), server.url().toString(), server.url().toString());
    }
};

BackendStandIn &backend()
{
    static BackendStandIn standIn;
    return standIn;
}

void storeSession(const QString &dir)
{
    KeychainService storage(dir, u"mirevon.Tamlo"_s);
    storage.setValue(u"session-token"_s, u"sessionToken"_s);
    storage.setValue(u"{\"id\":\"u1\",\"email\":\"a@example.com\"}"_s, u"userData"_s);
}

void signInReply(const QString &dir)
{
    AuthService auth(&backend().nam, backend().config(), dir);
    QCoro::waitFor(auth.verifyMagicLinkToken(u"one-time"_s));
    const int status = backend().reply.status;
    const QString file = QDir(dir).filePath(u"credentials.plist"_s);
    require(!auth.isLoading(), "still loading after the exchange");
    if (auth.isAuthenticated()) {
        require(status / 100 == 2, "signed in on a failing status");
        require(!auth.error().has_value(), "signed in with an error shown");
        require(auth.currentUser().has_value(), "signed in without a user");
        require(QFile::exists(file), "a session was not stored");
    } else {
        require(auth.error().has_value() && !auth.error()->isEmpty(), "a failed sign-in shows no text");
        require(!QFile::exists(file), "a failed sign-in stored something");
        require(!auth.currentUser().has_value(), "a failed sign-in left a user");
    }
}

void syncReply(const QString &dir, bool statusPoll)
{
    storeSession(dir);
    AuthService auth(&backend().nam, backend().config(), dir);
    require(auth.isAuthenticated(), "the stored session was not restored");
    ActivitySnapshotStore store(QDir(dir).filePath(u"snapshots.json"_s), FuzzEnvironment::logManager(),
        FuzzEnvironment::settings(), FuzzEnvironment::clock());
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = FuzzEnvironment::clock()->now().addSecs(-60);
    snapshot.aiCategory = u"Coding"_s;
    store.add(snapshot);
    const QList<ActivitySnapshot> before = store.fetchAll();

    ActivitySyncService sync(&store, &auth, &backend().nam, backend().config(), FuzzEnvironment::settings(),
        FuzzEnvironment::logManager(), FuzzEnvironment::clock());
    const int status = backend().reply.status;
    if (statusPoll) {
        QCoro::waitFor(sync.checkSyncRequest());
    } else {
        QCoro::waitFor(sync.syncNow());
        require(!sync.isSyncing(), "still syncing after the reply");
        if (status / 100 == 2) {
            require(!sync.lastError().has_value(), "an accepted upload left an error");
        } else if (status != 401) {
            require(sync.lastError().has_value(), "a failed upload left no error");
        }
    }
    require(store.fetchAll() == before, "a backend reply changed the local records");
    require(auth.isAuthenticated(), "a reply signed the user out though the session is valid");
}
} // namespace

int FuzzEntry::backendReply(const uint8_t *data, size_t size)
{
    static constexpr int statuses[] = {200, 201, 204, 299, 400, 401, 403, 404, 410, 422, 429, 500, 502, 503};
    const int route = size > 0 ? data[0] % 3 : 0;
    backend().server.clearRequests();
    backend().reply = StandInServer::Reply {};
    backend().reply.status = size > 1 ? statuses[data[1] % std::size(statuses)] : 200;
    backend().reply.body = size > 2 ? FuzzEnvironment::bytes(data + 2, size - 2) : QByteArray();

    const QString dir = FuzzEnvironment::freshDirectory(u"backend"_s);
    switch (route) {
    case 0:
        signInReply(dir);
        break;
    case 1:
        syncReply(dir, true);
        break;
    default:
        syncReply(dir, false);
        break;
    }
    FuzzEnvironment::drainEvents();
    return 0;
}

#include "fuzzentrypoints.h"
#include "fuzzenvironment.h"

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/urlrouter.h"
#include "core/activitysnapshotstore.h"
#include "fakeclock.h"
#include "standinserver.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;
using FuzzEnvironment::require;

namespace {
// A signed-out application whose backend refuses every token, so no input ever signs in.
struct Application
{
    StandInServer backend;
    QNetworkAccessManager nam;
    QString dir = FuzzEnvironment::freshDirectory(u"router"_s);
    AppConfig config {FuzzEnvironment::settings(), QString(), backend.url().toString(), backend.url().toString()};
    AuthService auth {&nam, config, dir};
    ActivitySnapshotStore store {QDir(dir).filePath(u"snapshots.json"_s), FuzzEnvironment::logManager(),
        FuzzEnvironment::settings(), FuzzEnvironment::clock()};
    ActivitySyncService sync {&store, &auth, &nam, config, FuzzEnvironment::settings(), FuzzEnvironment::logManager(),
        FuzzEnvironment::clock()};
    UrlRouter router {&auth, &sync};

    Application() { backend.on("POST", "/auth/verify-token", StandInServer::Reply {401, "{}"}); }
};

// The token the callback carries, read the way the web page wrote it: the first item named exactly
// "token", percent-decoded.
std::optional<QString> callbackToken(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().toLower() != u"tamlo"_s || url.host().toLower() != u"auth"_s) {
        return std::nullopt;
    }
    for (const auto &[name, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded)) {
        if (name == u"token"_s) {
            return value.isEmpty() ? std::nullopt : std::optional<QString>(value);
        }
    }
    return std::nullopt;
}
} // namespace

int FuzzEntry::urlRouting(const uint8_t *data, size_t size)
{
    static Application app;
    app.backend.clearRequests();
    const QString text = QString::fromUtf8(FuzzEnvironment::bytes(data, size));
    const std::optional<QString> token = callbackToken(text);

    app.router.handleURL(text);
    QElapsedTimer waited;
    waited.start();
    while (token && (app.backend.requests().isEmpty() || app.auth.isLoading()) && waited.elapsed() < 5000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    // A little longer, so a request sent again after a dropped connection is counted here and not
    // with the next input.
    waited.restart();
    do {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    } while (token && waited.elapsed() < 30);

    const QList<StandInServer::Request> requests = app.backend.requests();
    if (token) {
        require(!requests.isEmpty(), "a callback with a token did not reach the backend");
        for (const StandInServer::Request &request : requests) {
            const QString sent = QJsonDocument::fromJson(request.body).object().value(u"token"_s).toString();
            require(sent == *token, "the backend got another token than the callback carried");
        }
    } else {
        require(requests.isEmpty(), "a URL without a usable token reached the backend");
    }
    require(!app.auth.isAuthenticated(), "a refused token signed the user in");
    FuzzEnvironment::drainEvents();
    return 0;
}

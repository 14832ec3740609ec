#include "account/urlrouter.h"

#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "core/maintask.h"

#include <QCoroTimer>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>

using namespace Qt::StringLiterals;

UrlRouter::UrlRouter(AuthService *authService, ActivitySyncService *syncService, QObject *parent)
    : QObject(parent), m_authService(authService), m_syncService(syncService)
{
}

void UrlRouter::handleURL(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid()) {
        return;
    }
    if (url.scheme().toLower() != u"tamlo"_s) {
        return;
    }
    const QString host = url.host().toLower();
    if (host == u"sync"_s) {
        routeSync();
    } else if (host == u"auth"_s) {
        routeAuth(url);
    }
}

void UrlRouter::routeSync()
{
    startTask(this, [auth = m_authService, sync = m_syncService]() -> QCoro::Task<> {
        // A sync asked for while signed out still reaches syncNow(), which reports it.
        if (auth->isAuthenticated()) {
            sync->startPeriodicSync();
        }
        co_await QCoro::sleepFor(syncDelay);
        co_await sync->syncNow();
    });
}

void UrlRouter::routeAuth(const QUrl &url)
{
    // The key is matched exactly: "Token" is not "token".
    const QList<std::pair<QString, QString>> items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    const auto first
        = std::find_if(items.cbegin(), items.cend(), [](const auto &item) { return item.first == u"token"_s; });
    if (first == items.cend() || first->second.isEmpty()) {
        return;
    }
    startTask(this, [auth = m_authService, token = first->second]() -> QCoro::Task<> {
        co_await auth->verifyMagicLinkToken(token);
    });
}

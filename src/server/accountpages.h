#pragma once

#include "server/httpreply.h"
#include "server/storage.h"

#include <QCache>
#include <QString>

#include <optional>

class Clock;
class QHttpServerRequest;
class QUrlQuery;
class WebPages;

// The pages of a signed-in browser: the days and a day's timeline, "Sync now", devices and
// sessions, export, deleting the account, signing out. Each answers a browser without a session
// by sending it to sign in, and each form post must carry the session's form token.
class AccountPages
{
public:
    static constexpr int daysPerPage = 30;
    // A browser session unused this long is over.
    static constexpr qint64 idleLimitMs = 30LL * 24 * 60 * 60 * 1000;
    // The last activity of a session is written at most this often.
    static constexpr qint64 touchIntervalMs = 60 * 1000;
    // Day summaries kept worked out; an upload that touches a day gives it a new key.
    static constexpr int cachedDaySummaries = 8192;

    AccountPages(Storage *storage, WebPages *pages, const Clock *clock);

    // Null for a path that is not one of these pages.
    [[nodiscard]] std::optional<HttpReply> handle(const QHttpServerRequest &request);
    // The paths of these pages, for the request log.
    [[nodiscard]] static bool isAccountPath(const QString &path);

private:
    struct Visitor
    {
        WebSessionInfo session;
        QString token;
        QString formToken;
    };

    [[nodiscard]] std::optional<Visitor> visitor(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply days(const Visitor &visitor, const QHttpServerRequest &request);
    [[nodiscard]] HttpReply day(const Visitor &visitor, const QString &date);
    [[nodiscard]] HttpReply syncPage(const Visitor &visitor);
    [[nodiscard]] HttpReply devicesPage(const Visitor &visitor);
    [[nodiscard]] HttpReply exportPage(const Visitor &visitor);
    [[nodiscard]] HttpReply exportJson(const Visitor &visitor);
    [[nodiscard]] HttpReply exportCsv(const Visitor &visitor);
    [[nodiscard]] HttpReply accountPage(const Visitor &visitor, int status, const QString &error);
    [[nodiscard]] HttpReply post(const Visitor &visitor, const QString &path, const QUrlQuery &fields);
    [[nodiscard]] HttpReply signedOut(const QString &title, const QString &content);
    [[nodiscard]] HttpReply render(
        const Visitor &visitor, const QString &current, int status, const QString &title, const QString &content) const;
    [[nodiscard]] QString form(const Visitor &visitor, const QString &path, const QString &fields,
        const QString &button, const QString &buttonClass = QString()) const;
    [[nodiscard]] HttpReply removeSessionCookie(HttpReply reply) const;

    Storage *m_storage = nullptr;
    WebPages *m_pages = nullptr;
    const Clock *m_clock = nullptr;
    // The figures of a day as the list shows them, by user, day and the time of its last upload.
    QCache<QString, QString> m_summaries {cachedDaySummaries};
};

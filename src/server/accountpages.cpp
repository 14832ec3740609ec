#include "server/accountpages.h"

#include "core/activitysnapshot.h"
#include "core/clock.h"
#include "core/referencedate.h"
#include "reports/activityreportcalculator.h"
#include "reports/dailyreportservice.h"
#include "server/admincommands.h"
#include "server/secrettoken.h"
#include "server/webpages.h"
#include "server/websecurity.h"

#include <QHttpServerRequest>
#include <QJsonDocument>
#include <QLocale>
#include <QRegularExpression>
#include <QTimeZone>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {
using Method = QHttpServerRequest::Method;

QString escaped(const QString &text)
{
    return text.toHtmlEscaped();
}

// The pages speak English whatever the machine's locale, like the rest of the server's pages.
const QLocale &pageLocale()
{
    static const QLocale locale(QLocale::English, QLocale::UnitedStates);
    return locale;
}

QTimeZone zoneOf(const QString &id)
{
    const QTimeZone zone(id.toUtf8());
    return zone.isValid() ? zone : QTimeZone::utc();
}

// A time always says which zone it is in: a page may show times of several.
QString moment(qint64 epochMs, const QString &timezone = QString())
{
    const QTimeZone zone = timezone.isEmpty() ? QTimeZone::utc() : zoneOf(timezone);
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(epochMs, zone);
    return pageLocale().toString(time, u"d MMM yyyy, HH:mm "_s)
        + (zone == QTimeZone::utc() ? u"UTC"_s : QString::fromUtf8(zone.id()));
}

bool isDayLabel(const QString &text)
{
    static const QRegularExpression pattern(u"^\\d{4}-\\d{2}-\\d{2}$"_s);
    return pattern.match(text).hasMatch() && QDate::fromString(text, Qt::ISODate).isValid();
}

ActivitySnapshot toActivitySnapshot(const UploadedSnapshot &uploaded)
{
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::fromString(uploaded.id);
    snapshot.timestamp = ReferenceDate::fromIso8601(uploaded.timestamp);
    snapshot.aiCategory = uploaded.activityType;
    snapshot.projectName = uploaded.projectName;
    snapshot.activityDescription = uploaded.activityDescription;
    snapshot.userNote = uploaded.userNote;
    return snapshot;
}

QList<ActivitySnapshot> toActivitySnapshots(const QList<UploadedSnapshot> &uploaded)
{
    QList<ActivitySnapshot> result;
    result.reserve(uploaded.size());
    for (const UploadedSnapshot &snapshot : uploaded) {
        result.append(toActivitySnapshot(snapshot));
    }
    return result;
}

// Only what the report arithmetic reads: it never consults ids or times, and parsing a time for
// each of a month's records is most of what the day list would otherwise cost.
QList<ActivitySnapshot> labelsOnly(const QList<UploadedSnapshot> &uploaded)
{
    QList<ActivitySnapshot> result;
    result.reserve(uploaded.size());
    for (const UploadedSnapshot &snapshot : uploaded) {
        ActivitySnapshot labels;
        labels.aiCategory = snapshot.activityType;
        labels.projectName = snapshot.projectName;
        labels.activityDescription = snapshot.activityDescription;
        labels.userNote = snapshot.userNote;
        result.append(std::move(labels));
    }
    return result;
}

QString sharesBlock(const QString &heading, const QList<LabelShare> &shares)
{
    QString html = u"<div><h3>%1</h3>"_s.arg(heading);
    for (const LabelShare &share : shares) {
        const qint64 percent = ActivityReportCalculator::roundedPercentage(share.percentage);
        html += u"<div class=\"share\"><span title=\"%1\">%1</span><meter min=\"0\" max=\"100\" value=\"%2\">"
                "</meter><span class=\"pct\">%2%</span></div>"_s.arg(escaped(share.name))
                    .arg(percent);
    }
    return html + u"</div>"_s;
}

QString dayHeading(const QString &date)
{
    return pageLocale().toString(QDate::fromString(date, Qt::ISODate), u"dddd, d MMMM yyyy"_s);
}

// The day's figures, exactly as the app's reports work them out.
QString daySummary(const QList<ActivitySnapshot> &snapshots)
{
    const qint64 active = ActivityReportCalculator::totalActiveSeconds(snapshots);
    if (active == 0) {
        return u"<p class=\"figure\">No active time</p><p class=\"muted\">Only screen-lock and sleep records.</p>"_s;
    }
    return u"<p class=\"figure\">%1 active</p><div class=\"shares\">%2%3</div>"_s.arg(
        ActivityReportCalculator::formatDuration(active),
        sharesBlock(u"Projects"_s, ActivityReportCalculator::projectShares(snapshots, QStringList())),
        sharesBlock(u"Categories"_s, ActivityReportCalculator::categoryShares(snapshots)));
}

HttpReply download(const QByteArray &contentType, const QByteArray &fileName, const QByteArray &body)
{
    HttpReply reply {200, contentType, body, {}};
    reply.headers.emplaceBack(QByteArray("Content-Disposition"), "attachment; filename=\"" + fileName + '"');
    reply.headers.emplaceBack(QByteArray("Cache-Control"), QByteArray("no-store"));
    return reply;
}
} // namespace

AccountPages::AccountPages(Storage *storage, WebPages *pages, const Clock *clock)
    : m_storage(storage), m_pages(pages), m_clock(clock)
{
}

bool AccountPages::isAccountPath(const QString &path)
{
    static const QStringList paths {u"/days"_s, u"/sync"_s, u"/devices"_s, u"/sessions/sign-out"_s, u"/export"_s,
        u"/export/tamlo-data.json"_s, u"/export/tamlo-days.csv"_s, u"/account"_s, u"/account/delete"_s, u"/logout"_s};
    return paths.contains(path) || path.startsWith(u"/days/"_s);
}

std::optional<AccountPages::Visitor> AccountPages::visitor(const QHttpServerRequest &request)
{
    const std::optional<QString> token = WebSecurity::cookie(request, WebSecurity::sessionCookie);
    if (!token) {
        return std::nullopt;
    }
    const QString digest = SecretToken::digest(*token);
    const std::optional<WebSessionInfo> session = m_storage->webSession(digest);
    if (!session) {
        return std::nullopt;
    }
    const qint64 now = m_clock->now().toMSecsSinceEpoch();
    const qint64 lastSeen = session->lastSeenAt.value_or(session->createdAt);
    if (now - lastSeen >= idleLimitMs) {
        m_storage->deleteSession(digest);
        return std::nullopt;
    }
    if (now - lastSeen >= touchIntervalMs) {
        m_storage->touchSession(digest, now);
    }
    return Visitor {*session, *token, WebSecurity::sessionFormToken(*token)};
}

std::optional<HttpReply> AccountPages::handle(const QHttpServerRequest &request)
{
    const QString path = request.url().path();
    if (!isAccountPath(path)) {
        return std::nullopt;
    }
    const bool posted = request.method() == Method::Post;
    if (!posted && request.method() != Method::Get) {
        HttpReply reply = m_pages->page(405, u"Not allowed"_s, u"<h1>Not allowed</h1>"_s);
        reply.headers.emplaceBack(QByteArray("Allow"), QByteArray("GET, POST"));
        return reply;
    }
    const std::optional<Visitor> who = visitor(request);
    if (!who) {
        if (posted) {
            return removeSessionCookie(m_pages->expiredForm());
        }
        return removeSessionCookie(WebPages::redirect(m_pages->link(u"/login"_s)));
    }
    if (posted) {
        const QUrlQuery fields = WebPages::formFields(request.body());
        if (!WebSecurity::equalSecrets(who->formToken, WebPages::field(fields, u"csrf"_s))) {
            return m_pages->expiredForm();
        }
        return post(*who, path, fields);
    }
    if (path == u"/days"_s) {
        return days(*who, request);
    }
    if (path.startsWith(u"/days/"_s)) {
        return day(*who, path.mid(6));
    }
    if (path == u"/sync"_s) {
        return syncPage(*who);
    }
    if (path == u"/devices"_s) {
        return devicesPage(*who);
    }
    if (path == u"/export"_s) {
        return exportPage(*who);
    }
    if (path == u"/export/tamlo-data.json"_s) {
        return exportJson(*who);
    }
    if (path == u"/export/tamlo-days.csv"_s) {
        return exportCsv(*who);
    }
    if (path == u"/account"_s) {
        return accountPage(*who, 200, QString());
    }
    return m_pages->page(405, u"Not allowed"_s, u"<h1>This address takes a form</h1>"_s);
}

HttpReply AccountPages::post(const Visitor &visitor, const QString &path, const QUrlQuery &fields)
{
    const QString userId = visitor.session.user.id;
    if (path == u"/sync"_s) {
        m_storage->requestSync(userId, m_clock->now().toMSecsSinceEpoch());
        return WebPages::redirect(m_pages->link(u"/sync"_s));
    }
    if (path == u"/sessions/sign-out"_s) {
        const QString session = WebPages::field(fields, u"session"_s);
        m_storage->revokeSession(userId, session);
        if (session == visitor.session.publicId) {
            return removeSessionCookie(WebPages::redirect(m_pages->link(u"/login"_s)));
        }
        return WebPages::redirect(m_pages->link(u"/devices"_s));
    }
    if (path == u"/logout"_s) {
        m_storage->deleteSession(SecretToken::digest(visitor.token));
        return removeSessionCookie(WebPages::redirect(m_pages->link(u"/login"_s)));
    }
    if (path == u"/account/delete"_s) {
        const QString typed = WebPages::field(fields, u"confirm"_s).trimmed().toLower();
        if (typed != visitor.session.user.email) {
            return accountPage(visitor, 400, u"Type your e-mail address exactly to confirm."_s);
        }
        m_storage->deleteUser(visitor.session.user.email);
        return removeSessionCookie(signedOut(u"Account deleted"_s,
            u"<h1>Your account is deleted</h1><div class=\"card\"><p>Your account, your days, your devices and "
            "every session are gone from this server. Tamlo on your computers is signed out at its next "
            "upload; what it keeps locally stays there.</p><p><a href=\"%1\">Create a new account</a></p></div>"_s.arg(
                escaped(m_pages->link(u"/register"_s)))));
    }
    return m_pages->page(404, u"Not found"_s, u"<h1>Not found</h1>"_s);
}

HttpReply AccountPages::render(
    const Visitor &visitor, const QString &current, int status, const QString &title, const QString &content) const
{
    QString navigation = u"<header class=\"bar\"><nav><span class=\"brand\">Tamlo</span>"_s;
    for (const auto &[path, label] :
        QList<std::pair<QString, QString>> {{u"/days"_s, u"Days"_s}, {u"/sync"_s, u"Sync now"_s},
            {u"/devices"_s, u"Devices"_s}, {u"/export"_s, u"Export"_s}, {u"/account"_s, u"Account"_s}}) {
        navigation += u"<a href=\"%1\"%2>%3</a>"_s.arg(escaped(m_pages->link(path)),
            path == current ? u" class=\"current\" aria-current=\"page\""_s : QString(), label);
    }
    navigation += form(visitor, u"/logout"_s, QString(), u"Sign out"_s) + u"</nav></header>"_s;
    HttpReply reply = m_pages->page(status, title, content, QString(), navigation);
    reply.headers.emplaceBack(QByteArray("Cache-Control"), QByteArray("no-store"));
    return reply;
}

QString AccountPages::form(const Visitor &visitor, const QString &path, const QString &fields, const QString &button,
    const QString &buttonClass) const
{
    return u"<form class=\"inline\" method=\"post\" action=\"%1\">%2%3<button type=\"submit\"%4>%5</button></form>"_s
        .arg(escaped(m_pages->link(path)), WebPages::hiddenInput(u"csrf"_s, visitor.formToken), fields,
            buttonClass.isEmpty() ? QString() : u" class=\"%1\""_s.arg(buttonClass), escaped(button));
}

HttpReply AccountPages::removeSessionCookie(HttpReply reply) const
{
    reply.headers.emplaceBack(QByteArray("Set-Cookie"),
        WebSecurity::setCookie(WebSecurity::sessionCookie, QString(), m_pages->secureCookies(), 0));
    return reply;
}

HttpReply AccountPages::signedOut(const QString &title, const QString &content)
{
    return m_pages->page(200, title, content);
}

HttpReply AccountPages::days(const Visitor &visitor, const QHttpServerRequest &request)
{
    const QString userId = visitor.session.user.id;
    const int total = m_storage->dayCount(userId);
    const int pages = std::max(1, (total + daysPerPage - 1) / daysPerPage);
    const int pageNumber = std::clamp(QUrlQuery(request.url()).queryItemValue(u"page"_s).toInt(), 1, pages);
    const QList<DayEntry> entries = m_storage->dayEntries(userId, daysPerPage, (pageNumber - 1) * daysPerPage);
    QString content = u"<h1>Your days</h1>"_s;
    if (entries.isEmpty()) {
        content += u"<div class=\"card empty\"><p>No days here yet.</p><p class=\"muted\">Once Tamlo on one of "
                   "your computers is signed in to this server, it uploads today and yesterday every half hour, "
                   "and your history once. Choose <strong>Sync now</strong> to ask for an upload at once.</p>"
                   "</div>"_s;
        return render(visitor, u"/days"_s, 200, u"Days"_s, content);
    }
    // The days not worked out before, in one query; most views of the list need none.
    auto keyOf = [&](const DayEntry &entry) {
        return userId + u'/' + entry.date + u'/' + entry.deviceId + u'/' + QString::number(entry.uploadedAt);
    };
    QStringList missing;
    for (const DayEntry &entry : entries) {
        if (!m_summaries.contains(keyOf(entry))) {
            missing.append(entry.date);
        }
    }
    if (!missing.isEmpty()) {
        const QList<UploadedDay> stored = m_storage->daysBetween(userId, missing.last(), missing.first());
        QHash<QString, const UploadedDay *> byDate;
        for (const UploadedDay &day : stored) {
            byDate.insert(day.date, &day);
        }
        for (const DayEntry &entry : entries) {
            const UploadedDay *day = byDate.value(entry.date);
            if (!day || m_summaries.contains(keyOf(entry))) {
                continue;
            }
            const QList<ActivitySnapshot> snapshots = labelsOnly(day->snapshots);
            m_summaries.insert(keyOf(entry),
                new QString(daySummary(snapshots)
                    + u"<p class=\"muted\">%1 records · time zone %2</p>"_s.arg(
                        QString::number(snapshots.size()), escaped(entry.timezone))));
        }
    }
    for (const DayEntry &entry : entries) {
        const QString *summary = m_summaries.object(keyOf(entry));
        content += u"<article class=\"card day\"><h2><a href=\"%1\">%2</a></h2>%3</article>"_s.arg(
            escaped(m_pages->link(u"/days/"_s + entry.date)), escaped(dayHeading(entry.date)),
            summary ? *summary : u"<p class=\"muted\">No records.</p>"_s);
    }
    content += u"<div class=\"pager\">"_s;
    content += pageNumber > 1
        ? u"<a href=\"%1\">← Newer days</a>"_s.arg(escaped(m_pages->link(u"/days?page=%1"_s.arg(pageNumber - 1))))
        : u"<span></span>"_s;
    content += pageNumber < pages
        ? u"<a href=\"%1\">Older days →</a>"_s.arg(escaped(m_pages->link(u"/days?page=%1"_s.arg(pageNumber + 1))))
        : u"<span></span>"_s;
    content += u"</div>"_s;
    return render(visitor, u"/days"_s, 200, u"Days"_s, content);
}

HttpReply AccountPages::day(const Visitor &visitor, const QString &date)
{
    const QString userId = visitor.session.user.id;
    const std::optional<DayEntry> entry = isDayLabel(date) ? m_storage->dayEntry(userId, date) : std::nullopt;
    if (!entry) {
        return render(visitor, u"/days"_s, 404, u"No such day"_s,
            u"<h1>No such day</h1><div class=\"card\"><p>There is nothing stored for this day. <a href=\"%1\">All "
            "days</a></p></div>"_s.arg(escaped(m_pages->link(u"/days"_s))));
    }
    const QList<UploadedDay> stored = m_storage->daysBetween(userId, date, date);
    const QList<UploadedSnapshot> uploaded = stored.isEmpty() ? QList<UploadedSnapshot>() : stored.first().snapshots;
    const QList<ActivitySnapshot> snapshots = toActivitySnapshots(uploaded);
    const QTimeZone zone = zoneOf(entry->timezone);
    auto clock = [&](const ActivitySnapshot &snapshot) {
        return pageLocale().toString(snapshot.timestamp.toTimeZone(zone), u"HH:mm"_s);
    };
    QString rows;
    for (qsizetype i = 0; i < snapshots.size(); ++i) {
        const ActivitySnapshot &snapshot = snapshots[i];
        if (snapshot.isInactiveScreenState() || snapshot.isPrivate()) {
            // A run of the same marker is one gap in the day, named for what it was; a run of
            // private ticks is one row too, worked time with nothing seen.
            qsizetype last = i;
            while (last + 1 < snapshots.size()
                && (snapshots[last + 1].isInactiveScreenState() || snapshots[last + 1].isPrivate())
                && snapshots[last + 1].activityDescription == snapshot.activityDescription) {
                ++last;
            }
            QString label = u"Screen locked"_s;
            if (snapshot.activityDescription == ActivitySnapshot::screenStateMarker(ScreenState::Sleeping)) {
                label = u"Display asleep"_s;
            } else if (snapshot.activityDescription == ActivitySnapshot::screenStateMarker(ScreenState::Away)) {
                label = u"Away"_s;
            } else if (snapshot.isPrivate()) {
                label = ActivitySnapshot::privateMarker;
            }
            rows += u"<tr class=\"gap\"><td class=\"time\">%1</td><td colspan=\"2\">%2%3</td></tr>"_s.arg(
                clock(snapshot), label, last > i ? u" until %1"_s.arg(clock(snapshots[last])) : QString());
            i = last;
            continue;
        }
        QString text = escaped(snapshot.activityDescription.value_or(QString()));
        if (snapshot.userNote && !snapshot.userNote->isEmpty()) {
            text += u"<span class=\"note\">Note: %1</span>"_s.arg(escaped(*snapshot.userNote));
        }
        rows += u"<tr><td class=\"time\">%1</td><td><span class=\"tag\">%2</span> <span class=\"tag project\">%3"
                "</span></td><td>%4</td></tr>"_s.arg(clock(snapshot),
                    escaped(ActivityReportCalculator::categoryLabel(snapshot)),
                    escaped(snapshot.effectiveProjectName(QStringList())), text);
    }
    const QString content = u"<p><a href=\"%1\">← All days</a></p><h1>%2</h1><div class=\"card day\">%3<p "
                            "class=\"muted\">Times in %4, the time zone of the device that sent this day.</p>"
                            "</div><h2>Timeline</h2><div class=\"card\"><table><thead><tr><th>Time</th><th>Labels"
                            "</th><th>Description</th></tr></thead><tbody>%5</tbody></table></div>"_s.arg(
                                escaped(m_pages->link(u"/days"_s)), escaped(dayHeading(date)), daySummary(snapshots),
                                escaped(entry->timezone), rows);
    return render(visitor, u"/days"_s, 200, dayHeading(date), content);
}

HttpReply AccountPages::syncPage(const Visitor &visitor)
{
    const QString userId = visitor.session.user.id;
    const std::optional<qint64> requested = m_storage->syncRequestedAt(userId);
    QString content = u"<h1>Sync now</h1><div class=\"card highlighted\">"_s;
    if (requested) {
        content += u"<p><span class=\"status\">Waiting for your devices</span></p><p>Requested at %1. Each signed-in "
                   "Tamlo asks this server once a minute and uploads today and yesterday when it sees the "
                   "request; the request stands for each computer until that computer has uploaded.</p>"_s.arg(
                       escaped(moment(*requested)));
    } else {
        content += u"<p>Ask every computer signed in to your account to upload today and yesterday now, instead "
                   "of at its next half-hourly sync.</p>"_s;
    }
    content += form(visitor, u"/sync"_s, QString(), requested ? u"Ask again"_s : u"Sync now"_s) + u"</div>"_s;
    content += u"<h2>Last uploads</h2><div class=\"card\">"_s;
    const QList<DeviceRecord> devices = m_storage->devices(userId);
    if (devices.isEmpty()) {
        content += u"<p class=\"muted\">No device has uploaded yet.</p>"_s;
    } else {
        content += u"<table><thead><tr><th>Device</th><th>Last upload</th><th>Sync request</th></tr></thead><tbody>"_s;
        for (const DeviceRecord &device : devices) {
            QString request = u"—"_s;
            if (device.syncPending) {
                request = u"waiting"_s;
            } else if (requested) {
                request = u"uploaded since"_s;
            }
            content += u"<tr><td><code>%1</code></td><td>%2</td><td>%3</td></tr>"_s.arg(
                escaped(device.deviceId.left(8)), escaped(moment(device.lastUploadAt, device.timezone)), request);
        }
        content += u"</tbody></table>"_s;
    }
    content += u"</div>"_s;
    return render(visitor, u"/sync"_s, 200, u"Sync now"_s, content);
}

HttpReply AccountPages::devicesPage(const Visitor &visitor)
{
    const QString userId = visitor.session.user.id;
    QHash<QString, DeviceRecord> deviceById;
    QString content = u"<h1>Devices and sessions</h1><h2>Devices</h2><div class=\"card\">"_s;
    const QList<DeviceRecord> devices = m_storage->devices(userId);
    if (devices.isEmpty()) {
        content += u"<p class=\"muted\">No device has uploaded yet.</p>"_s;
    } else {
        content += u"<table><thead><tr><th>Device</th><th>Last upload</th><th>History</th></tr></thead><tbody>"_s;
        for (const DeviceRecord &device : devices) {
            deviceById.insert(device.deviceId, device);
            content += u"<tr><td><code>%1</code></td><td>%2</td><td>%3</td></tr>"_s.arg(
                escaped(device.deviceId.left(8)), escaped(moment(device.lastUploadAt, device.timezone)),
                device.backfillComplete ? u"sent"_s : u"not yet"_s);
        }
        content += u"</tbody></table>"_s;
    }
    content += u"</div><h2>Sessions</h2><div class=\"card\"><p class=\"muted\">Signing a session out ends it at "
               "once: Tamlo on that computer is signed out at its next upload.</p><table><thead><tr><th>Session"
               "</th><th>Signed in</th><th>Last activity</th><th></th></tr></thead><tbody>"_s;
    for (const SessionRecord &session : m_storage->sessions(userId)) {
        QString what = session.kind == SessionKind::Web ? u"Browser"_s : u"Tamlo app"_s;
        if (session.deviceId) {
            what += u" on <code>%1</code>"_s.arg(escaped(session.deviceId->left(8)));
        }
        const bool current = session.publicId == visitor.session.publicId;
        if (current) {
            what += u" <span class=\"status\">this browser</span>"_s;
        }
        content += u"<tr><td>%1</td><td>%2</td><td>%3</td><td>%4</td></tr>"_s.arg(what,
            escaped(moment(session.createdAt)), session.lastSeenAt ? escaped(moment(*session.lastSeenAt)) : u"—"_s,
            form(visitor, u"/sessions/sign-out"_s, WebPages::hiddenInput(u"session"_s, session.publicId),
                u"Sign out"_s));
    }
    content += u"</tbody></table></div>"_s;
    return render(visitor, u"/devices"_s, 200, u"Devices"_s, content);
}

HttpReply AccountPages::exportPage(const Visitor &visitor)
{
    const QString content
        = u"<h1>Export your data</h1><div class=\"card\"><h2>Everything, as JSON</h2><p>Your account, your devices "
          "and every day with all of its records, in the same field names the app uploads.</p><p><a "
          "class=\"button\" href=\"%1\">Download tamlo-data.json</a></p></div><div class=\"card\"><h2>Your days, "
          "as CSV</h2><p>One row per record, oldest first, with the same columns as the work logs Tamlo writes on "
          "your computer.</p><p><a class=\"button\" href=\"%2\">Download tamlo-days.csv</a></p></div>"_s.arg(
              escaped(m_pages->link(u"/export/tamlo-data.json"_s)),
              escaped(m_pages->link(u"/export/tamlo-days.csv"_s)));
    return render(visitor, u"/export"_s, 200, u"Export"_s, content);
}

HttpReply AccountPages::exportJson(const Visitor &visitor)
{
    return download("application/json", "tamlo-data.json",
        QJsonDocument(AdminCommands::exportJson(m_storage, visitor.session.user)).toJson(QJsonDocument::Indented));
}

HttpReply AccountPages::exportCsv(const Visitor &visitor)
{
    QList<ActivitySnapshot> all;
    for (const UploadedDay &day : m_storage->days(visitor.session.user.id)) {
        all.append(toActivitySnapshots(day.snapshots));
    }
    // The uploaded project is already the effective one, so no list of projects is needed.
    return download("text/csv; charset=utf-8", "tamlo-days.csv",
        DailyReportService::workLogCSVContent(all, QStringList()).toUtf8());
}

HttpReply AccountPages::accountPage(const Visitor &visitor, int status, const QString &error)
{
    const ServerUser &user = visitor.session.user;
    QString content
        = u"<h1>Your account</h1><div class=\"card\"><p><strong>%1</strong>%2</p><p class=\"muted\">"
          "Member since %3.</p></div><h2>Delete your account</h2><div class=\"card\">"_s.arg(escaped(user.email),
              user.name ? u" · "_s + escaped(*user.name) : QString(), escaped(moment(user.createdAt)));
    if (!error.isEmpty()) {
        content += u"<p class=\"error\" role=\"alert\">%1</p>"_s.arg(escaped(error));
    }
    content += u"<p>This removes your account, every day and record, your devices and every session from this "
               "server, at once and for good. <a href=\"%1\">Export your data</a> first if you want to keep it."
               "</p><form method=\"post\" action=\"%2\">%3<label for=\"confirm\">Type your e-mail address to "
               "confirm</label><input id=\"confirm\" name=\"confirm\" type=\"email\" autocomplete=\"off\" required>"
               "<button type=\"submit\" class=\"danger\">Delete my account</button></form></div>"_s.arg(
                   escaped(m_pages->link(u"/export"_s)), escaped(m_pages->link(u"/account/delete"_s)),
                   WebPages::hiddenInput(u"csrf"_s, visitor.formToken));
    return render(visitor, u"/account"_s, status, u"Account"_s, content);
}

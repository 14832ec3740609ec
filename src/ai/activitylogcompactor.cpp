#include "ai/activitylogcompactor.h"

#include "core/userpreferences.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
constexpr qint64 secondsPerSnapshot = 30;

struct GroupKey
{
    QString category;
    QString project;
    QString description;

    friend bool operator==(const GroupKey &, const GroupKey &) = default;
};

struct Group
{
    GroupKey key;
    QDateTime start;
    QDateTime end;
    qint64 count = 0;
    QStringList notes;
};

QList<ActivitySnapshot> activeInTimeOrder(const QList<ActivitySnapshot> &snapshots)
{
    QList<ActivitySnapshot> active;
    std::copy_if(snapshots.cbegin(), snapshots.cend(), std::back_inserter(active),
        [](const ActivitySnapshot &snapshot) { return !snapshot.isInactiveScreenState(); });
    std::stable_sort(active.begin(), active.end(),
        [](const ActivitySnapshot &a, const ActivitySnapshot &b) { return a.timestamp < b.timestamp; });
    return active;
}

// The locale's own short time, cut to hour and minute: "9:05 AM" in en_US, "09:05" in de_DE.
QString hourAndMinuteFormat()
{
    static const QRegularExpression secondsAndZone(u"[.:]?s+|\\s*t+"_s);
    QString format = QLocale().timeFormat(QLocale::ShortFormat);
    format.remove(secondsAndZone);
    return format.trimmed();
}

QString formatTime(const QDateTime &date, const QString &format)
{
    return QLocale().toString(date.toLocalTime().time(), format);
}

QString formatTimeRange(const QDateTime &start, const QDateTime &end, qint64 count, const QString &format)
{
    const QString from = formatTime(start, format);
    if (count < 2) {
        return from;
    }
    const QString to = formatTime(end, format);
    if (from == to) {
        return from;
    }
    return from + u"–"_s + to;
}

// Never zero, unlike the report files: even one capture counts as a minute here.
QString formatDuration(qint64 seconds)
{
    if (seconds < 60) {
        return u"1m"_s;
    }
    const qint64 minutes = seconds / 60;
    if (seconds < 3600) {
        return QString::number(minutes) + u"m"_s;
    }
    const qint64 hours = minutes / 60;
    const qint64 rest = minutes % 60;
    if (rest == 0) {
        return QString::number(hours) + u"h"_s;
    }
    return QString::number(hours) + u"h "_s + QString::number(rest) + u"m"_s;
}

// Keeps both ends of the day and stands one marker in for the middle.
QList<Group> downsample(const QList<Group> &groups, qsizetype limit)
{
    const qsizetype n = groups.size();
    if (n <= limit) {
        return groups;
    }
    const qsizetype headSize = limit / 2;
    const qsizetype tailSize = limit - headSize;
    const qsizetype omitted = n - headSize - tailSize;
    QList<Group> result = groups.first(headSize);
    if (tailSize > 0 && omitted >= 1) {
        const Group &firstOfTail = groups.at(n - tailSize);
        Group marker;
        marker.key
            = {u"…"_s, u"…"_s, u"["_s + QString::number(omitted) + u" similar activity groups omitted for brevity]"_s};
        marker.start = firstOfTail.start;
        marker.end = firstOfTail.end;
        marker.count = omitted;
        result.append(marker);
    }
    result.append(groups.last(tailSize));
    return result;
}

QString groupLine(const Group &group, const QString &timeFormat)
{
    QString line = u"["_s + formatTimeRange(group.start, group.end, group.count, timeFormat) + u"] ["_s
        + group.key.category + u"] ["_s + group.key.project + u"] "_s + group.key.description;
    if (group.count >= 2) {
        line += u" (×"_s + QString::number(group.count) + u", ~"_s + formatDuration(group.count * secondsPerSnapshot)
            + u")"_s;
    }
    if (!group.notes.isEmpty()) {
        line += u" | notes: "_s + group.notes.join(u"; "_s);
    }
    return line;
}
} // namespace

QStringList ActivityLogCompactor::compactLines(
    const QList<ActivitySnapshot> &snapshots, int maxGroups, const QStringList &userProjects)
{
    QList<Group> groups;
    for (const ActivitySnapshot &snapshot : activeInTimeOrder(snapshots)) {
        const GroupKey key {
            snapshot.aiCategory.isEmpty() ? UserPreferences::otherLabel : snapshot.aiCategory,
            snapshot.effectiveProjectName(userProjects),
            snapshot.activityDescription.value_or(QString()),
        };
        const QString note = snapshot.userNote.value_or(QString()).trimmed();
        if (!groups.isEmpty() && groups.last().key == key) {
            Group &last = groups.last();
            last.end = snapshot.timestamp;
            ++last.count;
            if (!note.isEmpty() && !last.notes.contains(note)) {
                last.notes.append(note);
            }
        } else {
            groups.append(Group {
                key, snapshot.timestamp, snapshot.timestamp, 1, note.isEmpty() ? QStringList() : QStringList {note}});
        }
    }
    if (groups.size() > maxGroups) {
        groups = downsample(groups, std::max(maxGroups, 0));
    }

    const QString timeFormat = hourAndMinuteFormat();
    QStringList lines;
    lines.reserve(groups.size());
    for (const Group &group : std::as_const(groups)) {
        lines.append(groupLine(group, timeFormat));
    }
    return lines;
}

QStringList ActivityLogCompactor::noteLines(const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects)
{
    const QString timeFormat = hourAndMinuteFormat();
    QStringList lines;
    for (const ActivitySnapshot &snapshot : activeInTimeOrder(snapshots)) {
        const QString note = snapshot.userNote.value_or(QString()).trimmed();
        if (!note.isEmpty()) {
            lines.append(u"- ["_s + formatTime(snapshot.timestamp, timeFormat) + u"] ["_s
                + snapshot.effectiveProjectName(userProjects) + u"] "_s + note);
        }
    }
    return lines;
}

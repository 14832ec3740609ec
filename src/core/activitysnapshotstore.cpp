#include "core/activitysnapshotstore.h"

#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/storefile.h"
#include "core/tamlodatapaths.h"
#include "core/userpreferences.h"
#include "reports/dailyreportstore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
// Names what is wrong with an entry that does not decode, so the user knows where to look.
QString describeBadEntry(const QJsonValue &entry, qsizetype index)
{
    const QString prefix = u"Entry %1 is not a valid snapshot"_s.arg(index + 1);
    if (!entry.isObject()) {
        return prefix + u"."_s;
    }
    const QJsonObject object = entry.toObject();
    if (!object.value(u"id"_s).isString() || QUuid::fromString(object.value(u"id"_s).toString()).isNull()) {
        return prefix + u": “id” is missing or not a UUID."_s;
    }
    if (!object.value(u"timestamp"_s).isDouble()) {
        return prefix + u": “timestamp” is missing or not a number."_s;
    }
    if (!object.value(u"aiCategory"_s).isString()) {
        return prefix + u": “aiCategory” is missing or not text."_s;
    }
    return prefix + u": an optional field is not text."_s;
}

QList<ActivitySnapshot> sortedByTime(QList<ActivitySnapshot> snapshots, bool ascending)
{
    // Stable, so records of the same moment keep the order in which they arrived.
    if (ascending) {
        std::stable_sort(snapshots.begin(), snapshots.end(),
            [](const ActivitySnapshot &a, const ActivitySnapshot &b) { return a.timestamp < b.timestamp; });
    } else {
        std::stable_sort(snapshots.begin(), snapshots.end(),
            [](const ActivitySnapshot &a, const ActivitySnapshot &b) { return b.timestamp < a.timestamp; });
    }
    return snapshots;
}
} // namespace

ActivitySnapshotStore::ActivitySnapshotStore(
    QString filePath, LogManager *logManager, const Settings *settings, const Clock *clock)
    : m_filePath(std::move(filePath)), m_logManager(logManager), m_settings(settings), m_clock(clock)
{
    // A folder that cannot be made shows up as a failed save, which says so.
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    // What the user did all day is no one else's to read.
    QFile::setPermissions(QFileInfo(m_filePath).absolutePath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    load();
}

void ActivitySnapshotStore::add(const ActivitySnapshot &snapshot)
{
    m_snapshots.append(snapshot);
    m_encoded.append(QByteArray());
    persist();
}

void ActivitySnapshotStore::save()
{
    persist();
}

QList<ActivitySnapshot> ActivitySnapshotStore::fetchToday() const
{
    const QDate today = m_clock->now().toLocalTime().date();
    // The calendar's next midnight, so days of 23 or 25 hours are whole.
    const QDateTime start = today.startOfDay();
    const QDateTime end = today.addDays(1).startOfDay();
    if (!start.isValid() || !end.isValid()) {
        return {};
    }
    return fetch(start, end, false);
}

QList<ActivitySnapshot> ActivitySnapshotStore::fetch(
    const QDateTime &from, const QDateTime &to, bool sortAscending) const
{
    QList<ActivitySnapshot> inRange;
    for (const ActivitySnapshot &snapshot : m_snapshots) {
        if (from <= snapshot.timestamp && snapshot.timestamp < to) {
            inRange.append(snapshot);
        }
    }
    return sortedByTime(std::move(inRange), sortAscending);
}

void ActivitySnapshotStore::updateNote(const QUuid &id, const QString &note)
{
    const auto found = std::find_if(
        m_snapshots.begin(), m_snapshots.end(), [&id](const ActivitySnapshot &snapshot) { return snapshot.id == id; });
    if (found == m_snapshots.end()) {
        return;
    }
    found->userNote = note;
    m_encoded[std::distance(m_snapshots.begin(), found)].clear();
    const QStringList projects = UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
    const QString project = UserPreferences::normalizedLabel(note, projects);
    if (project != UserPreferences::otherLabel) {
        found->projectName = project;
    }
    persist();
}

void ActivitySnapshotStore::deleteBefore(const QDateTime &date)
{
    removeIf([&date](const ActivitySnapshot &snapshot) { return snapshot.timestamp < date; });
}

void ActivitySnapshotStore::deleteRange(const QDateTime &from, const QDateTime &to)
{
    removeIf([&from, &to](
                 const ActivitySnapshot &snapshot) { return from <= snapshot.timestamp && snapshot.timestamp < to; });
}

void ActivitySnapshotStore::trim(qsizetype maxRecords, const DailyReportStore &reportStore)
{
    const QDateTime startOfToday = m_clock->now().toLocalTime().date().startOfDay();

    // Past days go only once their report is on disk: a report that only lives in memory would
    // vanish with the records at the next start.
    QSet<QUuid> removal;
    for (const ActivitySnapshot &snapshot : std::as_const(m_snapshots)) {
        if (snapshot.timestamp < startOfToday
            && reportStore.hasSavedReport(TamloDataPaths::dateLabel(snapshot.timestamp))) {
            removal.insert(snapshot.id);
        }
    }

    QList<ActivitySnapshot> todays;
    qsizetype remaining = 0;
    for (const ActivitySnapshot &snapshot : std::as_const(m_snapshots)) {
        if (removal.contains(snapshot.id)) {
            continue;
        }
        ++remaining;
        if (snapshot.timestamp >= startOfToday) {
            todays.append(snapshot);
        }
    }
    const qsizetype excess = remaining - maxRecords;
    if (excess > 0) {
        todays = sortedByTime(std::move(todays), true);
        for (qsizetype i = 0; i < std::min(excess, todays.size()); ++i) {
            removal.insert(todays.at(i).id);
        }
    }

    if (removal.isEmpty()) {
        return;
    }
    removeRecordsIf([&removal](const ActivitySnapshot &snapshot) { return removal.contains(snapshot.id); });
    persist();
}

void ActivitySnapshotStore::removeIf(const std::function<bool(const ActivitySnapshot &)> &predicate)
{
    if (removeRecordsIf(predicate) > 0) {
        persist();
    }
}

qsizetype ActivitySnapshotStore::removeRecordsIf(const std::function<bool(const ActivitySnapshot &)> &predicate)
{
    qsizetype kept = 0;
    for (qsizetype i = 0; i < m_snapshots.size(); ++i) {
        if (predicate(m_snapshots.at(i))) {
            continue;
        }
        if (kept != i) {
            m_snapshots[kept] = std::move(m_snapshots[i]);
            m_encoded[kept] = std::move(m_encoded[i]);
        }
        ++kept;
    }
    const qsizetype removed = m_snapshots.size() - kept;
    m_snapshots.resize(kept);
    m_encoded.resize(kept);
    return removed;
}

void ActivitySnapshotStore::load()
{
    if (!QFile::exists(m_filePath)) {
        return;
    }
    const QString error = StoreFile::readRecords(m_filePath, m_snapshots, describeBadEntry);
    if (error.isEmpty()) {
        m_encoded = QList<QByteArray>(m_snapshots.size());
        return;
    }
    // One bad record empties the list in memory, so the file must be out of the way before the
    // next capture rewrites it.
    const QString keptAs = StoreFile::setAside(m_filePath);
    m_writeBlocked = keptAs.isEmpty();
    m_snapshots.clear();
    m_logManager->log(
        u"⚠️ Failed to load snapshots: "_s + error + u' ' + StoreFile::setAsideNotice(keptAs), LogType::Warning);
}

void ActivitySnapshotStore::persist()
{
    QString error;
    if (m_writeBlocked) {
        error = StoreFile::writeBlockedNotice(m_filePath);
    } else {
        for (qsizetype i = 0; i < m_snapshots.size(); ++i) {
            if (m_encoded.at(i).isEmpty()) {
                m_encoded[i] = StoreFile::compactJson(m_snapshots.at(i).toJson());
            }
        }
        error = StoreFile::writeAtomically(m_filePath, StoreFile::joinedArray(m_encoded));
    }
    if (!error.isEmpty()) {
        m_logManager->log(u"❌ Failed to save snapshots: "_s + error, LogType::Error);
    }
}

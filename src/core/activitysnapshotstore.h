#pragma once

#include "core/activitysnapshot.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <functional>

class Clock;
class DailyReportStore;
class LogManager;
class Settings;

// Every recorded observation, in order of arrival, held in memory and mirrored whole to
// snapshots.json after each change. Nothing here throws: failures go to the event log.
class ActivitySnapshotStore
{
public:
    // Reads the file once. An unreadable file is set aside beside the original (".unreadable"
    // suffix) before the store can write over it; the store then starts empty.
    ActivitySnapshotStore(QString filePath, LogManager *logManager, const Settings *settings, const Clock *clock);
    ActivitySnapshotStore(const ActivitySnapshotStore &) = delete;
    ActivitySnapshotStore &operator=(const ActivitySnapshotStore &) = delete;

    void add(const ActivitySnapshot &snapshot);
    // Rewrites the file whether or not anything changed.
    void save();

    [[nodiscard]] QList<ActivitySnapshot> fetchAll() const { return m_snapshots; }
    [[nodiscard]] qsizetype count() const { return m_snapshots.size(); }
    // Records of the current local day, newest first.
    [[nodiscard]] QList<ActivitySnapshot> fetchToday() const;
    // Records with from <= timestamp < to, by time; records with equal times keep their stored order.
    [[nodiscard]] QList<ActivitySnapshot> fetch(const QDateTime &from, const QDateTime &to, bool sortAscending) const;

    // Sets the note of one record; a note naming one of the user's projects moves the record to it.
    void updateNote(const QUuid &id, const QString &note);
    // Both rewrite the file only when something was removed.
    void deleteBefore(const QDateTime &date);
    void deleteRange(const QDateTime &from, const QDateTime &to);
    // Removes records of past days that have a report, then, when more than maxRecords remain,
    // today's oldest. A past day without a report is never touched: it still has to be finalised.
    // Nor is any past day while the report store has changes it could not write.
    void trim(qsizetype maxRecords, const DailyReportStore &reportStore);

    [[nodiscard]] QString filePath() const { return m_filePath; }

private:
    void load();
    void persist();
    void removeIf(const std::function<bool(const ActivitySnapshot &)> &predicate);
    // Removes the records the predicate picks, with their encodings; returns how many went.
    qsizetype removeRecordsIf(const std::function<bool(const ActivitySnapshot &)> &predicate);

    QString m_filePath;
    LogManager *m_logManager = nullptr;
    const Settings *m_settings = nullptr;
    const Clock *m_clock = nullptr;
    QList<ActivitySnapshot> m_snapshots;
    // Each record's compact JSON, index for index with m_snapshots; empty until first written and
    // again after the record changes. Encoding every record on every save dwarfs the write itself.
    QList<QByteArray> m_encoded;
    // Set when an unreadable file could not be moved out of the way: the store then never writes
    // over it, so whatever it holds can still be rescued by hand.
    bool m_writeBlocked = false;
};

#pragma once

#include "reports/dailyreport.h"

#include <QList>
#include <QSet>
#include <QString>

#include <optional>

class LogManager;

// Every daily report, one per day, kept in memory and mirrored whole to daily-reports.json.
// The file is read once, at construction; after that memory is the truth.
class DailyReportStore
{
public:
    // An unreadable file is set aside beside the original (".unreadable" suffix) before the store
    // can write over it; the store then starts empty.
    DailyReportStore(QString filePath, LogManager *logManager);
    DailyReportStore(const DailyReportStore &) = delete;
    DailyReportStore &operator=(const DailyReportStore &) = delete;

    // Ascending by date.
    [[nodiscard]] QList<DailyReport> reports() const { return m_reports; }
    [[nodiscard]] std::optional<DailyReport> fetch(const QString &date) const;
    [[nodiscard]] bool hasReport(const QString &date) const;
    // Whether the report of that date is in the file, not only in memory. Records may leave the
    // snapshot store only for such a day: a report held in memory dies with the process.
    [[nodiscard]] bool hasSavedReport(const QString &date) const { return m_savedDates.contains(date); }
    // Replaces the report of the same date or adds it, then rewrites the file. Returns whether the
    // file was written; on failure the change stays in memory and the next upsert writes it all.
    bool upsert(const DailyReport &report);

    [[nodiscard]] QString filePath() const { return m_filePath; }

private:
    void load();
    bool persist();
    void rememberSavedDates();

    QString m_filePath;
    LogManager *m_logManager = nullptr;
    QList<DailyReport> m_reports;
    // Set when an unreadable file could not be moved out of the way: the store then never writes
    // over it, so whatever it holds can still be rescued by hand.
    bool m_writeBlocked = false;
    QSet<QString> m_savedDates;
};

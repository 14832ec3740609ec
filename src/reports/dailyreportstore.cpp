#include "reports/dailyreportstore.h"

#include "core/logmanager.h"
#include "core/storefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

DailyReportStore::DailyReportStore(QString filePath, LogManager *logManager)
    : m_filePath(std::move(filePath)), m_logManager(logManager)
{
    // A folder that cannot be made shows up as a failed save, which says so.
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    // What the user did all day is no one else's to read.
    QFile::setPermissions(QFileInfo(m_filePath).absolutePath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    load();
}

std::optional<DailyReport> DailyReportStore::fetch(const QString &date) const
{
    const auto found = std::find_if(
        m_reports.cbegin(), m_reports.cend(), [&date](const DailyReport &report) { return report.date == date; });
    if (found == m_reports.cend()) {
        return std::nullopt;
    }
    return *found;
}

bool DailyReportStore::hasReport(const QString &date) const
{
    return std::any_of(
        m_reports.cbegin(), m_reports.cend(), [&date](const DailyReport &report) { return report.date == date; });
}

bool DailyReportStore::upsert(const DailyReport &report)
{
    const auto found = std::find_if(m_reports.begin(), m_reports.end(),
        [&report](const DailyReport &stored) { return stored.date == report.date; });
    if (found != m_reports.end()) {
        *found = report;
    } else {
        m_reports.append(report);
    }
    std::stable_sort(
        m_reports.begin(), m_reports.end(), [](const DailyReport &a, const DailyReport &b) { return a.date < b.date; });
    return persist();
}

void DailyReportStore::load()
{
    if (!QFile::exists(m_filePath)) {
        return;
    }
    const QString error = StoreFile::readRecords(m_filePath, m_reports, [](const QJsonValue &, qsizetype index) {
        return u"Entry %1 is not a complete daily report."_s.arg(index + 1);
    });
    if (error.isEmpty()) {
        rememberSavedDates();
        return;
    }
    const QString keptAs = StoreFile::setAside(m_filePath);
    m_writeBlocked = keptAs.isEmpty();
    m_reports.clear();
    m_logManager->log(u"⚠️ Failed to load daily reports: "_s + error + u' ' + StoreFile::setAsideNotice(keptAs),
        LogType::Warning);
}

bool DailyReportStore::persist()
{
    const QString error
        = m_writeBlocked ? StoreFile::writeBlockedNotice(m_filePath) : StoreFile::writeRecords(m_filePath, m_reports);
    if (!error.isEmpty()) {
        m_logManager->log(u"❌ Failed to save daily reports: "_s + error, LogType::Error);
        return false;
    }
    rememberSavedDates();
    return true;
}

void DailyReportStore::rememberSavedDates()
{
    m_savedDates.clear();
    for (const DailyReport &report : std::as_const(m_reports)) {
        m_savedDates.insert(report.date);
    }
}

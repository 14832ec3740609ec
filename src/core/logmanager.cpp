#include "core/logmanager.h"

#include "core/clock.h"

using namespace Qt::StringLiterals;

LogManager::LogManager(const Clock *clock, QObject *parent) : QObject(parent), m_clock(clock) { }

void LogManager::log(const QString &message, LogType type, const std::optional<QString> &category)
{
    QMetaObject::invokeMethod(
        this, [this, message, type, category] { append(message, type, category); }, Qt::QueuedConnection);
}

void LogManager::append(const QString &message, LogType type, const std::optional<QString> &category)
{
    m_logs.prepend(LogEntry {QUuid::createUuid(), m_clock->now(), message, type});
    if (m_logs.size() > maxLogs) {
        m_logs.removeLast();
    }
    Q_EMIT logsChanged();

    if (type == LogType::Ai && category) {
        m_categoriesInBatch.append(*category);
        if (m_categoriesInBatch.size() >= statsThreshold) {
            updateStatistics();
        }
    }
}

void LogManager::updateStatistics()
{
    QHash<QString, int> stats = m_categoryStats;
    for (const QString &category : std::as_const(m_categoriesInBatch)) {
        ++stats[category];
    }
    m_categoriesInBatch.clear();
    m_categoryStats = stats;
    Q_EMIT categoryStatsChanged();
    log(u"📊 Category statistics updated"_s, LogType::Success);
}

#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

class Clock;

enum class LogType {
    Info,
    Success,
    Warning,
    Error,
    Ai,
};

struct LogEntry
{
    QUuid id;
    QDateTime timestamp;
    QString message;
    LogType type = LogType::Info;
};

// The in-app event log: the 30 newest entries, newest first, in memory only, plus the
// categories the model returned, folded five at a time.
class LogManager : public QObject
{
    Q_OBJECT
public:
    static constexpr int statsThreshold = 5;
    static constexpr int maxLogs = 30;

    explicit LogManager(const Clock *clock, QObject *parent = nullptr);

    // Safe from any thread. The entry is made later on this object's thread, even when called
    // from it, so entries keep the order in which calls reached that thread.
    void log(
        const QString &message, LogType type = LogType::Info, const std::optional<QString> &category = std::nullopt);

    [[nodiscard]] QList<LogEntry> logs() const { return m_logs; }
    [[nodiscard]] QHash<QString, int> categoryStats() const { return m_categoryStats; }

Q_SIGNALS:
    void logsChanged();
    void categoryStatsChanged();

private:
    void append(const QString &message, LogType type, const std::optional<QString> &category);
    void updateStatistics();

    const Clock *m_clock = nullptr;
    QList<LogEntry> m_logs;
    QHash<QString, int> m_categoryStats;
    QStringList m_categoriesInBatch;
};

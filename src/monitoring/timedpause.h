#pragma once

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <optional>

class Clock;
class Settings;

// A pause with an end. The end is stored, so it outlives a restart, and the timer only wakes the
// check, which reads the clock each time: a suspended machine or a clock set forward ends the
// pause at the next wake instead of a full timer's length later.
class TimedPause : public QObject
{
    Q_OBJECT
public:
    enum class Length {
        ThirtyMinutes,
        OneHour,
        UntilTomorrow,
    };
    Q_ENUM(Length)

    // The longest the check sleeps, however far away the end.
    static constexpr auto longestWait = std::chrono::seconds(60);

    TimedPause(Settings *settings, const Clock *clock, QObject *parent = nullptr);

    // Tomorrow is the start of the next local day.
    [[nodiscard]] static QDateTime endOf(Length length, const QDateTime &now);
    // What the panel and the tray offer, in the order of Length.
    [[nodiscard]] static QString label(Length length);

    // The stored end, while it lies ahead.
    [[nodiscard]] std::optional<QDateTime> end() const;
    void start(const QDateTime &end);
    void clear();
    // At launch: true when a stored pause still runs, whose check is then armed.
    [[nodiscard]] bool resumeStored();
    // The wake: ends the pause once the clock has reached its end.
    void check();

Q_SIGNALS:
    void endChanged();
    void ended();

private:
    void arm(const QDateTime &end);

    Settings *m_settings = nullptr;
    const Clock *m_clock = nullptr;
    QTimer m_wake;
};

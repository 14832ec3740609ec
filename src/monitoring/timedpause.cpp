#include "monitoring/timedpause.h"

#include "core/clock.h"
#include "core/settings.h"

#include <algorithm>

using namespace Qt::StringLiterals;

TimedPause::TimedPause(Settings *settings, const Clock *clock, QObject *parent)
    : QObject(parent), m_settings(settings), m_clock(clock), m_wake(this)
{
    m_wake.setSingleShot(true);
    m_wake.setObjectName(u"timedPauseTimer"_s);
    connect(&m_wake, &QTimer::timeout, this, &TimedPause::check);
}

QDateTime TimedPause::endOf(Length length, const QDateTime &now)
{
    switch (length) {
    case Length::ThirtyMinutes:
        return now.addSecs(30 * 60);
    case Length::OneHour:
        return now.addSecs(60 * 60);
    case Length::UntilTomorrow:
        return now.toLocalTime().date().addDays(1).startOfDay();
    }
    return now;
}

QString TimedPause::label(Length length)
{
    switch (length) {
    case Length::ThirtyMinutes:
        return u"Pause for 30 minutes"_s;
    case Length::OneHour:
        return u"Pause for 1 hour"_s;
    case Length::UntilTomorrow:
        return u"Pause until tomorrow"_s;
    }
    return {};
}

std::optional<QDateTime> TimedPause::end() const
{
    const std::optional<QDateTime> stored = m_settings->date(SettingsKey::pausedUntil);
    if (!stored || *stored <= m_clock->now()) {
        return std::nullopt;
    }
    return stored;
}

void TimedPause::start(const QDateTime &end)
{
    m_settings->setDate(SettingsKey::pausedUntil, end);
    arm(end);
    Q_EMIT endChanged();
}

void TimedPause::clear()
{
    m_wake.stop();
    if (m_settings->contains(SettingsKey::pausedUntil)) {
        m_settings->remove(SettingsKey::pausedUntil);
        Q_EMIT endChanged();
    }
}

bool TimedPause::resumeStored()
{
    const std::optional<QDateTime> stored = end();
    if (!stored) {
        clear();
        return false;
    }
    arm(*stored);
    return true;
}

void TimedPause::check()
{
    const std::optional<QDateTime> stored = m_settings->date(SettingsKey::pausedUntil);
    if (!stored) {
        return;
    }
    if (*stored > m_clock->now()) {
        arm(*stored);
        return;
    }
    clear();
    Q_EMIT ended();
}

void TimedPause::arm(const QDateTime &end)
{
    const auto left = std::chrono::milliseconds(m_clock->now().msecsTo(end));
    m_wake.start(std::clamp(left, std::chrono::milliseconds(0), std::chrono::milliseconds(longestWait)));
}

#pragma once

#include "core/clock.h"

// A clock that moves only when a test moves it.
class FakeClock final : public Clock
{
public:
    explicit FakeClock(QDateTime now = QDateTime(QDate(2026, 3, 9), QTime(10, 0))) : m_now(std::move(now)) { }
    [[nodiscard]] QDateTime now() const override { return m_now; }
    void set(QDateTime now) { m_now = std::move(now); }
    void advance(qint64 seconds) { m_now = m_now.addSecs(seconds); }

private:
    QDateTime m_now;
};

#include "server/ratelimiter.h"

#include "core/clock.h"

namespace {
// Old windows are swept at most this often, so the table does not grow with every address seen.
constexpr qint64 sweepIntervalMs = 60 * 1000;
} // namespace

RateLimiter::RateLimiter(const Clock *clock) : m_clock(clock) { }

std::optional<qint64> RateLimiter::hit(const QString &key, Rule rule)
{
    const qint64 now = m_clock->now().toMSecsSinceEpoch();
    forgetExpired(now);
    const qint64 length = std::chrono::duration_cast<std::chrono::milliseconds>(rule.window).count();
    Window &window = m_windows[key];
    if (window.length == 0 || now - window.start >= window.length) {
        window = Window {now, length, 0};
    }
    if (window.count >= rule.limit) {
        const qint64 leftMs = window.start + window.length - now;
        return std::max<qint64>(1, (leftMs + 999) / 1000);
    }
    ++window.count;
    return std::nullopt;
}

void RateLimiter::forgetExpired(qint64 now)
{
    if (now - m_lastSweep < sweepIntervalMs) {
        return;
    }
    m_lastSweep = now;
    for (auto it = m_windows.begin(); it != m_windows.end();) {
        it = now - it->start >= it->length ? m_windows.erase(it) : std::next(it);
    }
}

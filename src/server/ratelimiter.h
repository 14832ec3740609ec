#pragma once

#include <QHash>
#include <QString>
#include <QtGlobal>

#include <chrono>
#include <optional>

class Clock;

// Counts attempts per key in fixed windows, in memory: enough to slow down guessing and mail
// bombing from one address or at one e-mail address. A restart forgets the counts.
class RateLimiter
{
public:
    struct Rule
    {
        int limit = 0;
        std::chrono::seconds window {0};
    };

    // Sign-in forms and token exchanges, each per client address and per e-mail address (an
    // exchange's address is the one its link was made for).
    static constexpr Rule signInPerClient {20, std::chrono::minutes(10)};
    static constexpr Rule signInPerEmail {5, std::chrono::minutes(30)};
    static constexpr Rule tokenExchangePerClient {30, std::chrono::minutes(10)};
    static constexpr Rule tokenExchangePerEmail {10, std::chrono::minutes(30)};

    explicit RateLimiter(const Clock *clock);

    // Counts one attempt; returns the seconds to wait when the key is over its limit, without counting it.
    [[nodiscard]] std::optional<qint64> hit(const QString &key, Rule rule);

private:
    struct Window
    {
        qint64 start = 0; // epoch milliseconds
        qint64 length = 0;
        int count = 0;
    };

    void forgetExpired(qint64 now);

    const Clock *m_clock = nullptr;
    QHash<QString, Window> m_windows;
    qint64 m_lastSweep = 0;
};

#pragma once

#include <QCoroTask>
#include <QList>

#include <chrono>
#include <optional>

// How long the user has left keyboard and pointer alone, as the desktop knows it.
class IdleTimeSource
{
public:
    virtual ~IdleTimeSource() = default;

    // Nothing when this source cannot tell on this desktop. A source that only learns "idle for
    // at least so long" answers with at least threshold once the user has been idle that long,
    // and with less before.
    [[nodiscard]] virtual QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(
        std::chrono::milliseconds threshold)
        = 0;
};

// The desktop's sources, asked in order; the first answer counts.
class CompositeIdleTimeSource final : public IdleTimeSource
{
public:
    explicit CompositeIdleTimeSource(QList<IdleTimeSource *> sources) : m_sources(std::move(sources)) { }

    [[nodiscard]] QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(
        std::chrono::milliseconds threshold) override
    {
        for (IdleTimeSource *source : std::as_const(m_sources)) {
            if (const std::optional<std::chrono::milliseconds> idle = co_await source->idleTime(threshold)) {
                co_return idle;
            }
        }
        co_return std::nullopt;
    }

private:
    QList<IdleTimeSource *> m_sources;
};

#pragma once

#include <QDateTime>

// Where "now" comes from, so tests can move time instead of waiting for it.
class Clock
{
public:
    virtual ~Clock() = default;
    [[nodiscard]] virtual QDateTime now() const = 0;
};

class SystemClock final : public Clock
{
public:
    [[nodiscard]] QDateTime now() const override { return QDateTime::currentDateTime(); }
};

#pragma once

#include <QtGlobal>

#include <functional>

enum class ScreenEvent {
    Locked,
    Unlocked,
    DisplaysSleep,
    DisplaysWake,
};

// Where the screen's lock, unlock, sleep and wake come from. Handlers run on the thread that
// owns the source, which is the main thread.
class ScreenEventSource
{
public:
    using Token = quint64;

    virtual ~ScreenEventSource() = default;

    virtual Token addObserver(ScreenEvent event, std::function<void()> handler) = 0;
    // Unknown or already removed tokens are ignored.
    virtual void removeObserver(Token token) = 0;
    [[nodiscard]] virtual int observerCount() const = 0;
};

// The displays waking after a sleep, which the day rollover follows for the whole life of the
// monitor, apart from the screen-state observers that exist only while monitoring.
class WakeEventSource
{
public:
    using Token = quint64;

    virtual ~WakeEventSource() = default;

    virtual Token addWakeObserver(std::function<void()> handler) = 0;
    virtual void removeWakeObserver(Token token) = 0;
    [[nodiscard]] virtual int wakeObserverCount() const = 0;
};

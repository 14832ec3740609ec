#pragma once

#include <QCoroTask>

// What the delegate starts once the launch has ended: the monitor's launch sequence.
class LaunchTarget
{
public:
    virtual ~LaunchTarget() = default;
    // Safe to call more than once; later calls return at once.
    virtual QCoro::Task<> configure() = 0;
};

#pragma once

#include "monitoring/screengrabber.h"

class CountingGrabber final : public ScreenGrabber
{
public:
    explicit CountingGrabber(ScreenGrabber &real) : m_real(real) { }

    QCoro::Task<ScreenGrab> grab() override
    {
        ++grabs;
        co_return co_await m_real.grab();
    }

    int grabs = 0;

private:
    ScreenGrabber &m_real;
};

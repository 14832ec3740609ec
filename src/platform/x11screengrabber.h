#pragma once

#include "monitoring/screengrabber.h"

// Grabs the primary screen of an X11 session whole, the program's own windows included.
class X11ScreenGrabber final : public ScreenGrabber
{
public:
    [[nodiscard]] QCoro::Task<ScreenGrab> grab() override;
};

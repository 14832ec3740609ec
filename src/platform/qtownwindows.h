#pragma once

#include "monitoring/ownwindowsource.h"

// The program's visible top-level windows on the primary screen, as the X11 grab sees it. A
// Wayland client is not told where its windows are, so there it names none.
class QtOwnWindows final : public OwnWindowSource
{
public:
    [[nodiscard]] QList<QRect> ownWindowAreas() const override;
};

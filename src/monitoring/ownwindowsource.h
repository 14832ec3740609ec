#pragma once

#include <QList>
#include <QRect>

// Where the program's own windows are in a screenshot, in its pixels. They show what Tamlo has
// recorded, not what the user does, so they do not count as a change of the screen.
class OwnWindowSource
{
public:
    virtual ~OwnWindowSource() = default;
    [[nodiscard]] virtual QList<QRect> ownWindowAreas() const = 0;
};

#include "ui/tamlotheme.h"

double TamloTheme::primaryButtonOpacity(bool pressed, bool enabled)
{
    if (pressed) {
        return 0.85;
    }
    return enabled ? 1.0 : 0.45;
}

QColor TamloTheme::cardFill(bool highlighted)
{
    return highlighted ? withOpacity(brandLime(), 0.45) : surfaceControl();
}

QColor TamloTheme::cardOutline(bool highlighted)
{
    return highlighted ? withOpacity(brandGreen(), 0.55) : QColor(Qt::transparent);
}

QColor TamloTheme::withOpacity(const QColor &color, double opacity)
{
    QColor result = color;
    result.setAlphaF(float(color.alphaF() * opacity));
    return result;
}

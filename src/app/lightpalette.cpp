#include "app/lightpalette.h"

#include <QColor>

QPalette LightPalette::palette()
{
    const QColor window(245, 245, 247);
    const QColor text(0x1d, 0x1d, 0x1f);
    const QColor accent(0x00, 0x7a, 0xff);
    QPalette palette(window);
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        palette.setColor(group, QPalette::Window, window);
        palette.setColor(group, QPalette::WindowText, text);
        palette.setColor(group, QPalette::Base, Qt::white);
        palette.setColor(group, QPalette::AlternateBase, window);
        palette.setColor(group, QPalette::Text, text);
        palette.setColor(group, QPalette::Button, Qt::white);
        palette.setColor(group, QPalette::ButtonText, text);
        palette.setColor(group, QPalette::Highlight, accent);
        palette.setColor(group, QPalette::HighlightedText, Qt::white);
        palette.setColor(group, QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
        palette.setColor(group, QPalette::ToolTipBase, Qt::white);
        palette.setColor(group, QPalette::ToolTipText, text);
        palette.setColor(group, QPalette::Link, accent);
    }
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0xae, 0xae, 0xb2));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0xae, 0xae, 0xb2));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0xae, 0xae, 0xb2));
    return palette;
}

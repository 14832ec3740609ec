#pragma once

#include <QColor>
#include <QString>

// The colour of an activity category, chosen by keywords in the label.
namespace ActivityLabelStyle {
[[nodiscard]] QColor color(const QString &label);
} // namespace ActivityLabelStyle

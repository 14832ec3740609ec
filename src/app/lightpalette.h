#pragma once

#include <QPalette>

// The one light palette of the program, used whatever the desktop's own theme is.
namespace LightPalette {
[[nodiscard]] QPalette palette();
} // namespace LightPalette

#pragma once

#include <QDateTime>
#include <QString>

// Date forms used in files and on the wire.
namespace ReferenceDate {
// Files store dates as seconds since 2001-01-01T00:00:00Z, with fraction.
[[nodiscard]] double toSeconds(const QDateTime &date);
[[nodiscard]] QDateTime fromSeconds(double seconds);
// The wire and the work logs use ISO 8601 in UTC with whole seconds: 2026-03-09T08:05:00Z.
[[nodiscard]] QString toIso8601(const QDateTime &date);
[[nodiscard]] QDateTime fromIso8601(const QString &text);
} // namespace ReferenceDate

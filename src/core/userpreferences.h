#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Turns the user's free-text lists into labels. A label never leaves outside the list but as "Other".
namespace UserPreferences {
inline const QString otherLabel = QStringLiteral("Other");

// Commas or line ends separate entries; blanks are dropped, order and duplicates kept. An entry
// is a label: no control characters, and one too long for the server keeps what fits.
[[nodiscard]] QStringList parsedList(const QString &text);
// An exact (case-insensitive) match anywhere in the list wins over any containment match.
[[nodiscard]] QString normalizedLabel(const std::optional<QString> &label, const QStringList &allowed);
} // namespace UserPreferences

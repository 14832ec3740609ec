#pragma once

#include <QString>
#include <QStringView>

// How long a label or a text may be, in the one place the app and tamlo-server both read, so that
// nothing the app stores is more than the server accepts.
namespace TextLimits {
inline constexpr qsizetype maxLabelLength = 200; // a category or a project
inline constexpr qsizetype maxTextLength = 4096; // a description or a note

// Characters as people count them: a pair of surrogates is one.
[[nodiscard]] qsizetype characterCount(QStringView text);
// Without NUL and at most maxTextLength: a longer text is cut at its last word boundary within the
// limit (mid-word only when its words are too long for that) and ends in "…".
[[nodiscard]] QString fittedText(const QString &text);
// Without NUL and at most maxLabelLength: a longer label keeps its beginning, so that a label
// that names it in full still contains it.
[[nodiscard]] QString fittedLabel(const QString &label);
// Tabs and line breaks become spaces; every other control character goes.
[[nodiscard]] QString withoutControlCharacters(const QString &text);
} // namespace TextLimits

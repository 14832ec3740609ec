#include "core/userpreferences.h"

#include "core/textlimits.h"

#include <QLocale>

using namespace Qt::StringLiterals;

QStringList UserPreferences::parsedList(const QString &text)
{
    QString joined = text;
    joined.replace(u'\n', u',');
    QStringList result;
    for (const QString &piece : joined.split(u',', Qt::SkipEmptyParts)) {
        const QString trimmed = TextLimits::withoutControlCharacters(piece).trimmed();
        if (!trimmed.isEmpty()) {
            result.append(TextLimits::fittedLabel(trimmed));
        }
    }
    return result;
}

namespace {
// Case folded with the user's locale, so the containment search follows their language.
QString folded(const QString &text)
{
    return QLocale().toLower(text);
}
} // namespace

QString UserPreferences::normalizedLabel(const std::optional<QString> &label, const QStringList &allowed)
{
    const QString trimmed = label.value_or(QString()).trimmed();
    if (trimmed.isEmpty() || allowed.isEmpty()) {
        return otherLabel;
    }
    for (const QString &entry : allowed) {
        if (entry.compare(trimmed, Qt::CaseInsensitive) == 0) {
            return entry;
        }
    }
    const QString foldedLabel = folded(trimmed);
    for (const QString &entry : allowed) {
        const QString foldedEntry = folded(entry);
        if (foldedLabel.contains(foldedEntry) || foldedEntry.contains(foldedLabel)) {
            return entry;
        }
    }
    return otherLabel;
}

#include "core/textlimits.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
QString withoutNul(const QString &text)
{
    QString clean = text;
    if (clean.contains(QChar(0))) {
        clean.remove(QChar(0));
    }
    return clean;
}

// Where the first count characters of text end, never between the two halves of a pair.
qsizetype endOfCharacters(const QString &text, qsizetype count)
{
    qsizetype end = 0;
    for (qsizetype kept = 0; end < text.size() && kept < count; ++end) {
        if (!text.at(end).isHighSurrogate()) {
            ++kept;
        }
    }
    return end;
}
} // namespace

qsizetype TextLimits::characterCount(QStringView text)
{
    return std::count_if(text.cbegin(), text.cend(), [](QChar c) { return !c.isLowSurrogate(); });
}

QString TextLimits::fittedText(const QString &text)
{
    const QString clean = withoutNul(text);
    if (characterCount(clean) <= maxTextLength) {
        return clean;
    }
    qsizetype end = endOfCharacters(clean, maxTextLength - 1); // room for the ellipsis
    // A word is cut in half only when no word boundary lies in the kept text's second half.
    qsizetype space = end;
    while (space > end / 2 && !clean.at(space).isSpace()) {
        --space;
    }
    if (space > end / 2) {
        end = space;
    }
    return QStringView(clean).left(end).trimmed().toString() + u'…';
}

QString TextLimits::fittedLabel(const QString &label)
{
    const QString clean = withoutNul(label);
    return clean.left(endOfCharacters(clean, maxLabelLength));
}

QString TextLimits::withoutControlCharacters(const QString &text)
{
    if (std::none_of(text.cbegin(), text.cend(), [](QChar c) { return c.category() == QChar::Other_Control; })) {
        return text;
    }
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        if (c.category() != QChar::Other_Control) {
            result.append(c);
        } else if (c.isSpace()) {
            result.append(u' ');
        }
    }
    return result;
}

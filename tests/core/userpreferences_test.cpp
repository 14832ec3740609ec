#include "core/userpreferences.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(UserPreferencesTest, ParsedListSplitsOnCommasAndLineEndsAndDropsBlanks)
{
    EXPECT_EQ(UserPreferences::parsedList(u" Tamlo, Website\nClient A,,  ,\n\nOps "_s),
        (QStringList {u"Tamlo"_s, u"Website"_s, u"Client A"_s, u"Ops"_s}));
    EXPECT_EQ(UserPreferences::parsedList(u"b, a, b"_s), (QStringList {u"b"_s, u"a"_s, u"b"_s}));
    EXPECT_TRUE(UserPreferences::parsedList(QString()).isEmpty());

    // An entry is a label the server takes: no control characters, and whole characters up to its limit.
    const QString rocket = u"🚀"_s;
    EXPECT_EQ(UserPreferences::parsedList(rocket.repeated(250) + u"\n\u0007Ops\t,\u0007"_s),
        (QStringList {rocket.repeated(200), u"Ops"_s}));
}

TEST(UserPreferencesTest, NormalizedLabelReturnsTheListSpellingOrOther)
{
    const QStringList list {u"Web"_s, u"Website"_s, u"Client Work"_s};
    struct Row
    {
        std::optional<QString> label;
        QStringList list;
        QString expected;
        const char *why;
    };
    const QList<Row> rows {
        {std::nullopt, list, u"Other"_s, "no label"},
        {u"   \n"_s, list, u"Other"_s, "blank label"},
        {u"Coding"_s, {}, u"Other"_s, "empty list"},
        {u"Gardening"_s, list, u"Other"_s, "no match"},
        {u"  client work \n"_s, list, u"Client Work"_s, "trimmed, any case"},
        {u"website"_s, list, u"Website"_s, "the exact pass runs over the whole list before containment"},
        {u"Reviewing the CLIENT WORK contract"_s, list, u"Client Work"_s, "a sentence naming an entry"},
        {u"Clie"_s, {u"Client Work"_s}, u"Client Work"_s, "a fragment of an entry"},
        {u"website redesign"_s, list, u"Web"_s, "label-contains-entry tried per entry in order"},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(UserPreferences::normalizedLabel(row.label, row.list), row.expected) << row.why;
    }
}

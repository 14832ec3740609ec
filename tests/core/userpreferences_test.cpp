#include "core/userpreferences.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(UserPreferencesTest, ListsSplitOnCommasAndLineEndsAndLabelsTakeTheListsSpellingOrOther)
{
    EXPECT_EQ(UserPreferences::parsedList(u" Tamlo, Website\nClient A,,  ,\n\nOps ,Tamlo"_s),
        (QStringList {u"Tamlo"_s, u"Website"_s, u"Client A"_s, u"Ops"_s, u"Tamlo"_s}));
    // An entry is a label the server takes: no control characters, and whole characters up to its limit.
    const QString rocket = u"🚀"_s;
    EXPECT_EQ(UserPreferences::parsedList(rocket.repeated(250) + u"\n\u0007Ops\t,\u0007"_s),
        (QStringList {rocket.repeated(200), u"Ops"_s}));

    const QStringList list {u"Web"_s, u"Website"_s, u"Client Work"_s};
    for (const auto &[label, entries, expected] : {std::tuple {std::optional<QString>(), list, u"Other"_s},
             {u"   \n"_s, list, u"Other"_s}, {u"Coding"_s, QStringList(), u"Other"_s},
             {u"Gardening"_s, list, u"Other"_s}, {u"  client work \n"_s, list, u"Client Work"_s},
             // The exact pass runs over the whole list before containment, which goes entry by entry.
             {u"website"_s, list, u"Website"_s}, {u"website redesign"_s, list, u"Web"_s},
             {u"Reviewing the CLIENT WORK contract"_s, list, u"Client Work"_s},
             {u"Clie"_s, QStringList {u"Client Work"_s}, u"Client Work"_s}}) {
        EXPECT_EQ(UserPreferences::normalizedLabel(label, entries), expected) << label.value_or(u"-"_s).toStdString();
    }
}

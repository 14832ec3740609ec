#include "core/activitysnapshot.h"
#include "core/userpreferences.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(UserPreferencesTest, ParsedListSplitsOnCommasAndLineEndsAndDropsBlanks)
{
    EXPECT_EQ(UserPreferences::parsedList(u" Tamlo, Website\nClient A,,  ,\n\nOps "_s),
        (QStringList {u"Tamlo"_s, u"Website"_s, u"Client A"_s, u"Ops"_s}));
    EXPECT_EQ(UserPreferences::parsedList(u"b, a, b"_s), (QStringList {u"b"_s, u"a"_s, u"b"_s}));
    EXPECT_TRUE(UserPreferences::parsedList(QString()).isEmpty());
}

TEST(UserPreferencesTest, NormalizedLabelFallsBackToOther)
{
    const QStringList list {u"Coding"_s};
    EXPECT_EQ(UserPreferences::normalizedLabel(std::nullopt, list), u"Other"_s);
    EXPECT_EQ(UserPreferences::normalizedLabel(u"   \n"_s, list), u"Other"_s);
    EXPECT_EQ(UserPreferences::normalizedLabel(u"Coding"_s, {}), u"Other"_s);
    EXPECT_EQ(UserPreferences::normalizedLabel(u"Gardening"_s, list), u"Other"_s);
}

TEST(UserPreferencesTest, NormalizedLabelReturnsTheListSpelling)
{
    const QStringList list {u"Web"_s, u"Website"_s, u"Client Work"_s};
    EXPECT_EQ(UserPreferences::normalizedLabel(u"  client work \n"_s, list), u"Client Work"_s);
    // The exact pass runs over the whole list before any containment test.
    EXPECT_EQ(UserPreferences::normalizedLabel(u"website"_s, list), u"Website"_s);
    // Containment in both directions: a sentence naming an entry, and a fragment of one.
    EXPECT_EQ(UserPreferences::normalizedLabel(u"Reviewing the CLIENT WORK contract"_s, list), u"Client Work"_s);
    EXPECT_EQ(UserPreferences::normalizedLabel(u"Clie"_s, {u"Client Work"_s}), u"Client Work"_s);
    // Label-contains-entry is tried for each entry in order, so the earlier entry wins.
    EXPECT_EQ(UserPreferences::normalizedLabel(u"website redesign"_s, list), u"Web"_s);
}

TEST(ActivitySnapshotTest, NoteOutranksProjectOnlyWhenItNamesAProject)
{
    const QStringList projects {u"Tamlo"_s, u"Website"_s};
    ActivitySnapshot snapshot {.id = QUuid::createUuid(), .projectName = u"Website"_s};
    snapshot.userNote = u"fixing tamlo sync"_s;
    EXPECT_EQ(snapshot.effectiveProjectName(projects), u"Tamlo"_s);

    snapshot.userNote = u"lunch with friends"_s;
    EXPECT_EQ(snapshot.effectiveProjectName(projects), u"Website"_s);

    // The model's project is reported as it came, not normalised.
    snapshot.projectName = u"  Side Quest "_s;
    EXPECT_EQ(snapshot.effectiveProjectName(projects), u"Side Quest"_s);

    snapshot.userNote = u"  "_s;
    snapshot.projectName = u" \t"_s;
    EXPECT_EQ(snapshot.effectiveProjectName(projects), u"Other"_s);
}

TEST(ActivitySnapshotTest, OnlyTheExactMarkersAreInactive)
{
    ActivitySnapshot snapshot;
    EXPECT_FALSE(snapshot.isInactiveScreenState());
    snapshot.activityDescription = u"Screen Locked"_s;
    EXPECT_TRUE(snapshot.isInactiveScreenState());
    snapshot.activityDescription = u"Display Sleeping"_s;
    EXPECT_TRUE(snapshot.isInactiveScreenState());
    snapshot.activityDescription = u"Reading why the Screen Locked early"_s;
    EXPECT_FALSE(snapshot.isInactiveScreenState());
    snapshot.activityDescription = u"screen locked"_s;
    EXPECT_FALSE(snapshot.isInactiveScreenState());
    snapshot.activityDescription = u"Active"_s;
    snapshot.aiCategory = QString();
    EXPECT_FALSE(snapshot.isInactiveScreenState());
}

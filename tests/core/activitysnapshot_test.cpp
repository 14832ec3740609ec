#include "core/activitysnapshot.h"
#include "core/tamlodatapaths.h"

#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ActivitySnapshotTest, JsonCountsFrom2001LeavesOutAbsentFieldsAndRejectsMissingOrMistypedOnes)
{
    const ActivitySnapshot marker {.id = QUuid(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s),
        .timestamp = QDateTime(QDate(2001, 1, 1), QTime(0, 1, 30), QTimeZone::utc()),
        .activityDescription = u"Screen Locked"_s};
    EXPECT_EQ(QJsonDocument(marker.toJson()).toJson(QJsonDocument::Compact),
        R"({"activityDescription":"Screen Locked","aiCategory":"","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":90})");

    // An empty note is a value, not an absence.
    const ActivitySnapshot full {.id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(8, 5, 0, 250)),
        .aiCategory = u"Coding"_s,
        .imageHash = QString(64, u'a'),
        .projectName = u"Tamlo"_s,
        .activityDescription = u"Writing tests"_s,
        .userNote = QString()};
    EXPECT_EQ(ActivitySnapshot::fromJson(full.toJson()), full);
    for (const auto &[key, value] :
        {std::pair {u"id"_s, QJsonValue(QJsonValue::Undefined)}, {u"timestamp"_s, QJsonValue::Undefined},
            {u"aiCategory"_s, QJsonValue::Undefined}, {u"userNote"_s, 3}, {u"id"_s, u"not-a-uuid"_s}}) {
        // Inserting undefined removes the key.
        QJsonObject changed = full.toJson();
        changed.insert(key, value);
        EXPECT_FALSE(ActivitySnapshot::fromJson(changed).has_value()) << key.toStdString();
    }
}

// A note naming a project is covered where it counts: the reports, the compacted log, the upload.
TEST(ActivitySnapshotTest, TheModelsProjectIsTrimmedAndOnlyTheExactMarkersAreInactive)
{
    ActivitySnapshot snapshot {.projectName = u"  Side Quest "_s, .userNote = u"lunch with friends"_s};
    EXPECT_EQ(snapshot.effectiveProjectName({u"Tamlo"_s}), u"Side Quest"_s);
    snapshot.projectName = u" \t"_s;
    EXPECT_EQ(snapshot.effectiveProjectName({u"Tamlo"_s}), u"Other"_s);
    for (const auto &[description, inactive] :
        {std::pair {u"Screen Locked"_s, true}, {u"Display Sleeping"_s, true}, {u"Away"_s, true}, {u"away"_s, false},
            {u"Reading why the Screen Locked early"_s, false}, {u"Private"_s, false}}) {
        EXPECT_EQ(ActivitySnapshot {.activityDescription = description}.isInactiveScreenState(), inactive)
            << description.toStdString();
    }
}

TEST(TamloDataPathsTest, DateLabelTurnsAtLocalMidnight)
{
    // CTest pins TZ to Europe/Berlin, an hour ahead of UTC in winter.
    const QDateTime midnight(QDate(2026, 1, 15), QTime(0, 0));
    EXPECT_EQ(TamloDataPaths::dateLabel(midnight.addSecs(-1)), u"2026-01-14"_s);
    EXPECT_EQ(TamloDataPaths::dateLabel(midnight), u"2026-01-15"_s);
    EXPECT_EQ(
        TamloDataPaths::dateLabel(QDateTime(QDate(2026, 1, 14), QTime(23, 30), QTimeZone::utc())), u"2026-01-15"_s);
}

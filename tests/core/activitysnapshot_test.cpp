#include "core/activitysnapshot.h"
#include "core/tamlodatapaths.h"

#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ActivitySnapshotJsonTest, LeavesOutAbsentFieldsCountsFrom2001AndRoundTrips)
{
    const ActivitySnapshot marker {
        .id = QUuid(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s),
        .timestamp = QDateTime(QDate(2001, 1, 1), QTime(0, 1, 30), QTimeZone::utc()),
        .aiCategory = QString(),
        .activityDescription = u"Screen Locked"_s,
    };
    EXPECT_EQ(QJsonDocument(marker.toJson()).toJson(QJsonDocument::Compact),
        R"({"activityDescription":"Screen Locked","aiCategory":"","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":90})");

    const ActivitySnapshot full {
        .id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(8, 5, 0, 250)),
        .aiCategory = u"Coding"_s,
        .imageHash = QString(64, u'a'),
        .projectName = u"Tamlo"_s,
        .activityDescription = u"Writing tests"_s,
        .userNote = QString(), // an empty note is a value, not an absence
    };
    EXPECT_EQ(ActivitySnapshot::fromJson(full.toJson()), full);
}

TEST(ActivitySnapshotJsonTest, RejectsMissingRequiredOrMistypedFields)
{
    const QJsonObject good
        = ActivitySnapshot {.id = QUuid::createUuid(), .timestamp = QDateTime::currentDateTime()}.toJson();
    const auto with = [&good](const QString &key, const QJsonValue &value) {
        QJsonObject changed = good;
        if (value.isUndefined()) {
            changed.remove(key);
        } else {
            changed.insert(key, value);
        }
        return ActivitySnapshot::fromJson(changed);
    };
    for (const QString &key : {u"id"_s, u"timestamp"_s, u"aiCategory"_s}) {
        EXPECT_FALSE(with(key, QJsonValue::Undefined).has_value()) << key.toStdString();
    }
    EXPECT_FALSE(with(u"userNote"_s, 3).has_value());
    EXPECT_FALSE(with(u"id"_s, u"not-a-uuid"_s).has_value());
    // A null optional reads as absent (an earlier build wrote them).
    ASSERT_TRUE(with(u"userNote"_s, QJsonValue::Null).has_value());
    EXPECT_FALSE(with(u"userNote"_s, QJsonValue::Null)->userNote.has_value());
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
    EXPECT_FALSE(ActivitySnapshot().isInactiveScreenState());
    for (const auto &[description, inactive] :
        {std::pair {u"Screen Locked"_s, true}, {u"Display Sleeping"_s, true}, {u"Away"_s, true}, {u"away"_s, false},
            {u"Reading why the Screen Locked early"_s, false}, {u"screen locked"_s, false}, {u"Active"_s, false}}) {
        const ActivitySnapshot snapshot {.aiCategory = QString(), .activityDescription = description};
        EXPECT_EQ(snapshot.isInactiveScreenState(), inactive) << description.toStdString();
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

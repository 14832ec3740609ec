#include "core/activitysnapshot.h"
#include "core/referencedate.h"
#include "core/tamlodatapaths.h"

#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ActivitySnapshotJsonTest, LeavesOutAbsentFieldsAndCountsFrom2001)
{
    const ActivitySnapshot marker {
        .id = QUuid(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s),
        .timestamp = QDateTime(QDate(2001, 1, 1), QTime(0, 1, 30), QTimeZone::utc()),
        .aiCategory = QString(),
        .activityDescription = u"Screen Locked"_s,
    };
    EXPECT_EQ(QJsonDocument(marker.toJson()).toJson(QJsonDocument::Compact),
        R"({"activityDescription":"Screen Locked","aiCategory":"","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":90})");
}

TEST(ActivitySnapshotJsonTest, RoundTripsEveryField)
{
    const ActivitySnapshot full {
        .id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(8, 5, 0, 250)),
        .aiCategory = u"Coding"_s,
        .imageHash = QString(64, u'a'),
        .projectName = u"Tamlo"_s,
        .activityDescription = u"Writing tests"_s,
        .userNote = QString(),
    };
    const auto decoded = ActivitySnapshot::fromJson(full.toJson());
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(*decoded, full);
    // An empty note is a value, not an absence.
    EXPECT_TRUE(full.toJson().contains(u"userNote"_s));
}

TEST(ActivitySnapshotJsonTest, RejectsMissingRequiredOrMistypedFields)
{
    const QJsonObject good
        = ActivitySnapshot {.id = QUuid::createUuid(), .timestamp = QDateTime::currentDateTime()}.toJson();
    for (const QString &key : {u"id"_s, u"timestamp"_s, u"aiCategory"_s}) {
        QJsonObject broken = good;
        broken.remove(key);
        EXPECT_FALSE(ActivitySnapshot::fromJson(broken).has_value()) << key.toStdString();
    }
    QJsonObject nullNote = good;
    nullNote.insert(u"userNote"_s, QJsonValue::Null);
    ASSERT_TRUE(ActivitySnapshot::fromJson(nullNote).has_value());
    EXPECT_FALSE(ActivitySnapshot::fromJson(nullNote)->userNote.has_value());
    QJsonObject numberNote = good;
    numberNote.insert(u"userNote"_s, 3);
    EXPECT_FALSE(ActivitySnapshot::fromJson(numberNote).has_value());
    QJsonObject badId = good;
    badId.insert(u"id"_s, u"not-a-uuid"_s);
    EXPECT_FALSE(ActivitySnapshot::fromJson(badId).has_value());
}

TEST(ReferenceDateTest, WireFormIsUtcWithWholeSeconds)
{
    const QDateTime berlinMorning(QDate(2026, 3, 9), QTime(9, 5, 0, 900), QTimeZone("Europe/Berlin"));
    EXPECT_EQ(ReferenceDate::toIso8601(berlinMorning), u"2026-03-09T08:05:00Z"_s);
    EXPECT_EQ(ReferenceDate::fromIso8601(u"2026-03-09T08:05:00Z"_s).toUTC(),
        QDateTime(QDate(2026, 3, 9), QTime(8, 5), QTimeZone::utc()));
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

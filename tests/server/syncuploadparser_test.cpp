#include "server/syncuploadparser.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SyncUploadParserTest, ReadsTheWorkedExampleAndIgnoresKeysItDoesNotDefine)
{
    const QByteArray body
        = R"({"timezone":"Europe/Berlin","deviceId":"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11",)"
          R"("backfillComplete":false,"extra":{"nested":null},"days":[{"date":"2026-11-16",)"
          R"("snapshots":[{"id":"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90","timestamp":"2026-11-16T09:30:12Z",)"
          R"("activityType":"Coding","projectName":"Website","activityDescription":"Editing checkout.css in the editor.",)"
          R"("userNote":"fixed the header","imageHash":"abc"},{"id":"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118",)"
          R"("timestamp":"2026-11-16T12:01:00Z","activityType":"Other","projectName":"Other",)"
          R"("activityDescription":"Screen Locked"}]}]})";
    const SyncUploadParser::Result result = SyncUploadParser::parse(body);
    ASSERT_TRUE(result.upload) << result.error.toStdString();
    ASSERT_EQ(result.upload->days.size(), 1);
    const QList<UploadedSnapshot> &snapshots = result.upload->days[0].snapshots;
    ASSERT_EQ(snapshots.size(), 2);
    EXPECT_EQ(snapshots[0].userNote, u"fixed the header"_s);
    EXPECT_EQ(snapshots[1].userNote, std::nullopt);
    EXPECT_EQ(snapshots[1].activityDescription, u"Screen Locked"_s);
}

TEST(SyncUploadParserTest, ValueChecksAcceptOnlyTheExactForms)
{
    EXPECT_TRUE(SyncUploadParser::isUtcTimestamp(u"2024-02-29T23:59:59Z"_s));
    for (const QString &bad : {u"2023-02-29T10:00:00Z"_s, u"2026-11-16T24:00:00Z"_s, u"2026-11-16 09:30:12Z"_s,
             u"2026-11-16T09:30:12z"_s, u"2026-11-16T09:30:1٢Z"_s, u"2026-11-16T09:30:12"_s}) {
        EXPECT_FALSE(SyncUploadParser::isUtcTimestamp(bad)) << bad.toStdString();
    }
    EXPECT_TRUE(SyncUploadParser::isDayLabel(u"2026-01-31"_s));
    EXPECT_FALSE(SyncUploadParser::isDayLabel(u"2026-1-31"_s));
    EXPECT_FALSE(SyncUploadParser::isUpperCaseUuid(u"{6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90}"_s));
    EXPECT_FALSE(SyncUploadParser::isUpperCaseUuid(u"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F9G"_s));
}

TEST(SyncUploadParserTest, LengthsCountCharactersNotCodeUnits)
{
    // 200 emoji are 400 UTF-16 units but 200 characters: a label may be that long.
    QString emoji;
    for (int i = 0; i < 200; ++i) {
        emoji += u"🚀"_s;
    }
    const QByteArray body = u"{\"timezone\":\"UTC\",\"deviceId\":\"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11\","
                            "\"backfillComplete\":false,\"days\":[{\"date\":\"2026-11-16\",\"snapshots\":[{\"id\":"
                            "\"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90\",\"timestamp\":\"2026-11-16T09:30:12Z\","
                            "\"activityType\":\"%1\",\"projectName\":\"%1\"}]}]}"_s.arg(emoji)
                                .toUtf8();
    EXPECT_TRUE(SyncUploadParser::parse(body).upload.has_value());
    const QByteArray longer = QByteArray(body).replace("\"activityType\":\"", "\"activityType\":\"x");
    EXPECT_EQ(
        SyncUploadParser::parse(longer).error, u"days[0].snapshots[0].activityType must be 1 to 200 characters long"_s);
}

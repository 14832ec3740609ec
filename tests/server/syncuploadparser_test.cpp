#include "server/syncuploadparser.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QByteArray body(const QString &snapshot)
{
    return (uR"({"timezone":"UTC","deviceId":"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11","backfillComplete":false,)"
            uR"("extra":{"nested":null},"days":[{"date":"2026-11-16","snapshots":[{)"
            uR"("id":"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90","timestamp":"2026-11-16T09:30:12Z",)"_s
        + snapshot + u"}]}]}"_s)
        .toUtf8();
}
} // namespace

TEST(SyncUploadParserTest, IgnoresKeysItDoesNotDefineAndCountsCharactersNotCodeUnits)
{
    const SyncUploadParser::Result result
        = SyncUploadParser::parse(body(uR"("activityType":"Coding","projectName":"Website","imageHash":"abc")"_s));
    ASSERT_TRUE(result.upload) << result.error.toStdString();
    EXPECT_EQ(result.upload->days.value(0).snapshots.value(0).userNote, std::nullopt);

    // 200 emoji are 400 UTF-16 units but 200 characters: a label may be that long, and no longer.
    const QString emoji = u"🚀"_s.repeated(200);
    const QString labels = uR"("activityType":"%1","projectName":"%1")"_s;
    EXPECT_TRUE(SyncUploadParser::parse(body(labels.arg(emoji))).upload.has_value());
    EXPECT_EQ(SyncUploadParser::parse(body(labels.arg(u"x"_s + emoji))).error,
        u"days[0].snapshots[0].activityType must be 1 to 200 characters long"_s);
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

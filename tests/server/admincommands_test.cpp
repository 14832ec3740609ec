#include "fakeclock.h"
#include "server/admincommands.h"
#include "server/signinservice.h"
#include "server/sqlstorage.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

class AdminCommandsTest : public ::testing::Test
{
protected:
    int run(const QStringList &command, const std::optional<QString> &name = std::nullopt)
    {
        output.clear();
        errors.clear();
        return commands.run(command, name);
    }

    QTemporaryDir dir;
    std::unique_ptr<SqlStorage> storage = SqlStorage::openSqlite(dir.filePath(u"db.sqlite3"_s));
    FakeClock clock {QDateTime(QDate(2026, 11, 16), QTime(10, 0), Qt::UTC)};
    SignInService signIn {storage.get(), &clock};
    QString output;
    QString errors;
    QTextStream out {&output};
    QTextStream err {&errors};
    AdminCommands commands {storage.get(), &signIn, &clock, &out, &err};
};

TEST_F(AdminCommandsTest, ManagesAccountsAndRefusesBadInputWithAMessage)
{
    EXPECT_EQ(run({u"user"_s, u"add"_s, u"Ada@Example.org"_s}, u"Ada Lovelace"_s), 0);
    EXPECT_EQ(run({u"user"_s, u"add"_s, u"ada@example.org"_s}), 1);
    EXPECT_TRUE(errors.contains(u"exists already"_s));
    EXPECT_EQ(run({u"user"_s, u"add"_s, u"not-an-address"_s}), 1);
    EXPECT_EQ(run({u"user"_s, u"list"_s, u"extra"_s}), 1);
    EXPECT_EQ(run({u"frobnicate"_s}), 1);
    EXPECT_EQ(run({u"request-sync"_s, u"nobody@example.org"_s}), 1);

    EXPECT_EQ(run({u"user"_s, u"list"_s}), 0);
    EXPECT_TRUE(output.startsWith(u"ada@example.org\tAda Lovelace\t"_s)) << output.toStdString();

    EXPECT_EQ(run({u"request-sync"_s, u"ADA@example.org"_s}), 0);
    EXPECT_EQ(
        storage->syncRequestedAt(storage->userByEmail(u"ada@example.org"_s)->id), clock.now().toMSecsSinceEpoch());

    EXPECT_EQ(run({u"user"_s, u"delete"_s, u"ada@example.org"_s}), 0);
    EXPECT_EQ(run({u"user"_s, u"delete"_s, u"ada@example.org"_s}), 1);
    EXPECT_TRUE(storage->users().isEmpty());
}

TEST_F(AdminCommandsTest, LoginLinkPrintsAnAppCallbackWhoseTokenSignsIn)
{
    run({u"user"_s, u"add"_s, u"ada@example.org"_s});
    EXPECT_EQ(run({u"login-link"_s, u"ada@example.org"_s}), 0);
    const QString line = output.trimmed();
    ASSERT_TRUE(line.startsWith(u"tamlo://auth?token="_s)) << line.toStdString();
    const SignInService::Verification verification = signIn.verify(line.mid(19));
    EXPECT_EQ(verification.outcome, SignInService::Outcome::SignedIn);
}

TEST_F(AdminCommandsTest, ExportListsDaysAscendingAndSnapshotsByTimestampInTheUploadsForms)
{
    const ServerUser ada = storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
    const QString device = u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s;
    storage->storeUpload(ada.id,
        SyncUpload {u"Europe/Berlin"_s, device, false,
            {{u"2026-11-17"_s,
                 {{u"B0000000-0000-0000-0000-000000000000"_s, u"2026-11-17T08:00:00Z"_s, u"Coding"_s, u"Website"_s,
                     std::nullopt, std::nullopt}}},
                {u"2026-11-16"_s,
                    {{u"C0000000-0000-0000-0000-000000000000"_s, u"2026-11-16T12:00:00Z"_s, u"Other"_s, u"Other"_s,
                         u"Screen Locked"_s, std::nullopt},
                        {u"A0000000-0000-0000-0000-000000000000"_s, u"2026-11-16T09:00:00Z"_s, u"Coding"_s,
                            u"Website"_s, std::nullopt, u"note"_s}}}}},
        clock.now().toMSecsSinceEpoch());

    ASSERT_EQ(run({u"export"_s, u"ada@example.org"_s}), 0);
    const QJsonObject exported = QJsonDocument::fromJson(output.toUtf8()).object();
    EXPECT_EQ(exported[u"user"_s][u"email"_s].toString(), u"ada@example.org"_s);
    EXPECT_EQ(exported[u"devices"_s][0][u"lastUploadAt"_s].toString(), u"2026-11-16T10:00:00Z"_s);
    const QJsonArray days = exported[u"days"_s].toArray();
    ASSERT_EQ(days.size(), 2);
    EXPECT_EQ(days[0][u"date"_s].toString(), u"2026-11-16"_s);
    EXPECT_EQ(days[0][u"snapshots"_s][0].toObject(),
        (QJsonObject {{u"id"_s, u"A0000000-0000-0000-0000-000000000000"_s}, {u"timestamp"_s, u"2026-11-16T09:00:00Z"_s},
            {u"activityType"_s, u"Coding"_s}, {u"projectName"_s, u"Website"_s}, {u"userNote"_s, u"note"_s}}));
    EXPECT_EQ(days[0][u"snapshots"_s][1][u"activityDescription"_s].toString(), u"Screen Locked"_s);
}

TEST_F(AdminCommandsTest, BackupWritesAConsistentCopyAndNeverOverwrites)
{
    run({u"user"_s, u"add"_s, u"ada@example.org"_s});
    const QString copy = dir.filePath(u"copy.sqlite3"_s);
    EXPECT_EQ(run({u"backup"_s, copy}), 0);
    const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup
        | QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
    EXPECT_FALSE(QFile::permissions(copy) & others);
    EXPECT_EQ(SqlStorage::openSqlite(copy)->users().size(), 1);
    EXPECT_THROW((void)run({u"backup"_s, copy}), StorageError);
}

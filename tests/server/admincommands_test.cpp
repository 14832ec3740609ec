#include "server/admincommands.h"
#include "serverfixture.h"

#include <QFile>

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
    EXPECT_EQ(run({u"user"_s, u"add"_s, adaMail}), 1);
    EXPECT_TRUE(errors.contains(u"exists already"_s));
    for (const QStringList &bad : {QStringList {u"user"_s, u"add"_s, u"not-an-address"_s},
             QStringList {u"user"_s, u"add"_s, u"ada@"_s}, QStringList {u"user"_s, u"list"_s, u"extra"_s},
             QStringList {u"frobnicate"_s}, QStringList {u"request-sync"_s, u"nobody@example.org"_s}}) {
        EXPECT_EQ(run(bad), 1) << bad.join(u' ').toStdString();
        EXPECT_FALSE(errors.isEmpty());
    }
    EXPECT_EQ(run({u"user"_s, u"list"_s}), 0);
    EXPECT_TRUE(output.startsWith(u"ada@example.org\tAda Lovelace\t"_s)) << output.toStdString();

    EXPECT_EQ(run({u"request-sync"_s, u"ADA@example.org"_s}), 0);
    EXPECT_EQ(storage->syncRequestedAt(storage->userByEmail(adaMail)->id), clock.now().toMSecsSinceEpoch());
    // The link printed is the app's callback, and its token signs in.
    EXPECT_EQ(run({u"login-link"_s, adaMail}), 0);
    ASSERT_TRUE(output.startsWith(u"tamlo://auth?token="_s)) << output.toStdString();
    EXPECT_EQ(signIn.verify(output.trimmed().mid(19)).outcome, SignInService::Outcome::SignedIn);
    EXPECT_EQ(run({u"export"_s, adaMail}), 0);
    EXPECT_EQ(QJsonDocument::fromJson(output.toUtf8())[u"user"_s][u"name"_s].toString(), u"Ada Lovelace"_s);

    EXPECT_EQ(run({u"user"_s, u"delete"_s, adaMail}), 0);
    EXPECT_EQ(run({u"user"_s, u"delete"_s, adaMail}), 1);
    EXPECT_TRUE(storage->users().isEmpty());
}

TEST_F(AdminCommandsTest, BackupWritesAPrivateConsistentCopyAndNeverOverwrites)
{
    run({u"user"_s, u"add"_s, adaMail});
    const QString copy = dir.filePath(u"copy.sqlite3"_s);
    EXPECT_EQ(run({u"backup"_s, copy}), 0);
    EXPECT_FALSE(QFile::permissions(copy)
        & (QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ReadOther | QFileDevice::WriteOther));
    EXPECT_EQ(SqlStorage::openSqlite(copy)->users().size(), 1);
    EXPECT_THROW((void)run({u"backup"_s, copy}), StorageError);
}

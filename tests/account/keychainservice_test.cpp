#include "account/keychainservice.h"
#include "files.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString service = u"mirevon.Tamlo"_s;

class KeychainServiceTest : public ::testing::Test
{
protected:
    QByteArray python(const QString &script) const
    {
        QProcess process;
        process.start(u"python3"_s, {u"-c"_s, u"import json, plistlib, sys\n"_s + script, m_file});
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return process.readAllStandardOutput();
    }

    QTemporaryDir m_home;
    QString m_directory = m_home.filePath(u".local/share/mirevon.Tamlo"_s);
    QString m_file = m_directory + u"/credentials.plist"_s;
};

TEST_F(KeychainServiceTest, ValuesSurviveARestartInABinaryPropertyList)
{
    {
        KeychainService storage(m_directory, service);
        EXPECT_FALSE(storage.value(u"sessionToken"_s).has_value());
        EXPECT_FALSE(QFile::exists(m_file));
        storage.deleteAll(); // no file yet: nothing to complain about
        storage.setValue(u"tök€n ☁️"_s, u"sessionToken"_s);
        storage.setValue(u"{\"id\":\"u1\"}"_s, u"userData"_s);
    }
    EXPECT_EQ(QDir(m_directory).entryList(QDir::Files | QDir::Hidden), QStringList {u"credentials.plist"_s});

    KeychainService restored(m_directory, service);
    EXPECT_EQ(restored.value(u"sessionToken"_s), u"tök€n ☁️"_s);
    restored.deleteAll();
    EXPECT_FALSE(QFile::exists(m_file));
    EXPECT_FALSE(restored.value(u"sessionToken"_s).has_value());

    // A write that fails (a folder where the file should be) keeps the value for this run.
    ASSERT_TRUE(QDir().mkpath(m_file));
    restored.setValue(u"abc"_s, u"sessionToken"_s);
    EXPECT_EQ(restored.value(u"sessionToken"_s), u"abc"_s);
}

// Only a binary property list of strings alone holds a session; anything else is no session at all.
TEST_F(KeychainServiceTest, AFileOfAnythingButStringsReadsAsSignedOut)
{
    writeBytes(m_file, "bplist00 but not really");
    EXPECT_FALSE(KeychainService(m_directory, service).value(u"sessionToken"_s).has_value());
    python(u"plistlib.dump({'sessionToken': 'abc', 'userData': 42}, open(sys.argv[1], 'wb'), "
           u"fmt=plistlib.FMT_BINARY)"_s);
    const KeychainService mixed(m_directory, service);
    EXPECT_FALSE(mixed.value(u"sessionToken"_s).has_value()) << "one value that is no string discards the file";
}
} // namespace

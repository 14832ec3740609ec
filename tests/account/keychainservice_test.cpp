#include "account/keychainservice.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <plist/plist.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString service = u"mirevon.Tamlo"_s;

mode_t fileMode(const QString &path)
{
    struct stat info
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        return 0;
    }
    return info.st_mode & 07777;
}

// Restores the process's umask when a test ends.
class UmaskGuard
{
public:
    explicit UmaskGuard(mode_t mask) : m_previous(::umask(mask)) { }
    ~UmaskGuard() { ::umask(m_previous); }

private:
    mode_t m_previous;
};

class KeychainServiceTest : public ::testing::Test
{
protected:
    QString directory() const { return QDir(m_home.path()).filePath(u".local/share/mirevon.Tamlo"_s); }
    QString file() const { return QDir(directory()).filePath(u"credentials.plist"_s); }

    // A binary property list whose root holds one string and one integer.
    void writeMixedPlist() const
    {
        QDir().mkpath(directory());
        plist_t root = plist_new_dict();
        plist_dict_set_item(root, "sessionToken", plist_new_string("abc"));
        plist_dict_set_item(root, "userData", plist_new_uint(42));
        char *data = nullptr;
        uint32_t length = 0;
        plist_to_bin(root, &data, &length);
        QFile out(file());
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(data, length);
        plist_to_bin_free(data);
        plist_free(root);
    }

    QTemporaryDir m_home;
};

TEST_F(KeychainServiceTest, ValuesSurviveARestartUntilDeleteAllAndAFailedWriteKeepsThemForThisRun)
{
    {
        KeychainService storage(directory(), service);
        EXPECT_FALSE(storage.value(u"sessionToken"_s).has_value());
        EXPECT_TRUE(QDir(directory()).exists());
        EXPECT_FALSE(QFile::exists(file()));
        storage.deleteAll(); // no file yet: nothing to complain about
        storage.setValue(u"tök€n ☁️"_s, u"sessionToken"_s);
        storage.setValue(u"{\"id\":\"u1\"}"_s, u"userData"_s);
    }
    KeychainService restored(directory(), service);
    EXPECT_EQ(restored.value(u"sessionToken"_s), u"tök€n ☁️"_s);
    EXPECT_EQ(restored.value(u"userData"_s), u"{\"id\":\"u1\"}"_s);
    restored.deleteAll();
    EXPECT_FALSE(QFile::exists(file()));
    EXPECT_FALSE(restored.value(u"sessionToken"_s).has_value());

    // A write that fails (a folder where the file should be) keeps the value for this run.
    ASSERT_TRUE(QDir().mkpath(file()));
    restored.setValue(u"abc"_s, u"sessionToken"_s);
    EXPECT_EQ(restored.value(u"sessionToken"_s), u"abc"_s);
}

// Only a binary property list of strings alone holds a session; anything else is no session at all.
TEST_F(KeychainServiceTest, AFileOfAnythingButStringsReadsAsSignedOut)
{
    writeMixedPlist();
    const KeychainService mixed(directory(), service);
    EXPECT_FALSE(mixed.value(u"sessionToken"_s).has_value()) << "one value that is no string discards the file";
    EXPECT_FALSE(mixed.value(u"userData"_s).has_value());

    QFile out(file());
    ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
    out.write("bplist00 but not really");
    out.close();
    EXPECT_FALSE(KeychainService(directory(), service).value(u"sessionToken"_s).has_value());
}

TEST_F(KeychainServiceTest, FileIsOwnerOnlyAfterEveryWriteWhateverTheUmask)
{
    const UmaskGuard noMask(0);
    KeychainService storage(directory(), service);
    storage.setValue(u"first"_s, u"sessionToken"_s);
    EXPECT_EQ(fileMode(file()), 0600u);

    // A file someone opened up is closed again by the next write.
    ASSERT_EQ(::chmod(QFile::encodeName(file()).constData(), 0644), 0);
    storage.setValue(u"second"_s, u"sessionToken"_s);
    EXPECT_EQ(fileMode(file()), 0600u);
    EXPECT_EQ(QDir(directory()).entryList(QDir::Files | QDir::Hidden).size(), 1) << "no temporary file left";
}

TEST_F(KeychainServiceTest, FileIsABinaryPropertyListAStandardReaderAccepts)
{
    const QString python = QStandardPaths::findExecutable(u"python3"_s);
    if (python.isEmpty()) {
        GTEST_SKIP() << "python3 is not installed";
    }
    KeychainService storage(directory(), service);
    storage.setValue(u"tök€n ☁️"_s, u"sessionToken"_s);
    storage.setValue(u"{\"id\":\"u1\",\"email\":\"a@b.c\"}"_s, u"userData"_s);

    QProcess process;
    process.start(python,
        {u"-c"_s,
            u"import json, plistlib, sys\n"
            "with open(sys.argv[1], 'rb') as f:\n"
            "    print(json.dumps(plistlib.load(f, fmt=plistlib.FMT_BINARY)))\n"_s,
            file()});
    ASSERT_TRUE(process.waitForFinished(30000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QJsonObject read = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    EXPECT_EQ(read,
        (QJsonObject {
            {u"sessionToken"_s, u"tök€n ☁️"_s}, {u"userData"_s, u"{\"id\":\"u1\",\"email\":\"a@b.c\"}"_s}}));
}
} // namespace

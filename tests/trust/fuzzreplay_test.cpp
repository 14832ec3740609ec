#include "fuzzentrypoints.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// Every input the fuzzers keep (seeds and findings alike) runs through the same entry point in the
// ordinary suite, so a crash once found stays fixed. A broken promise aborts the test.
class FuzzReplayTest : public ::testing::TestWithParam<FuzzEntry::Target>
{
};

TEST_P(FuzzReplayTest, ReplaysEveryKeptInput)
{
    const FuzzEntry::Target target = GetParam();
    const QDir corpus(QStringLiteral(TAMLO_FUZZ_CORPUS) + u'/' + QString::fromLatin1(target.name));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    ASSERT_FALSE(files.isEmpty()) << "no corpus at " << corpus.path().toStdString();
    for (const QString &name : files) {
        QFile file(corpus.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
        const QByteArray bytes = file.readAll();
        SCOPED_TRACE(name.toStdString());
        EXPECT_EQ(target.run(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size())), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpora, FuzzReplayTest, ::testing::ValuesIn(FuzzEntry::targets),
    [](const ::testing::TestParamInfo<FuzzEntry::Target> &info) { return std::string(info.param.name); });

#include "core/logmanager.h"

#include "fakeclock.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
void drain()
{
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}
} // namespace

class LogManagerTest : public ::testing::Test
{
protected:
    FakeClock clock;
    LogManager log {&clock};
};

TEST_F(LogManagerTest, DefersEvenFromTheMainThreadAndKeepsThirtyNewest)
{
    log.log(u"first"_s);
    EXPECT_TRUE(log.logs().isEmpty());
    drain();
    ASSERT_EQ(log.logs().size(), 1);

    for (int i = 2; i <= 31; ++i) {
        log.log(u"entry %1"_s.arg(i), LogType::Warning);
    }
    drain();
    const auto entries = log.logs();
    ASSERT_EQ(entries.size(), 30);
    EXPECT_EQ(entries.first().message, u"entry 31"_s);
    EXPECT_EQ(entries.last().message, u"entry 2"_s);
    EXPECT_EQ(entries.first().type, LogType::Warning);
}

TEST_F(LogManagerTest, FoldsCategoriesFiveAtATime)
{
    const QStringList categories {u"Coding"_s, u"Coding"_s, u"Browsing"_s, u"Coding"_s};
    for (const QString &category : categories) {
        log.log(u"🤖 analysed"_s, LogType::Ai, category);
    }
    // Neither an ai entry without category nor a category on another type counts.
    log.log(u"🤖 no category"_s, LogType::Ai);
    log.log(u"ℹ️ info"_s, LogType::Info, u"Coding"_s);
    drain();
    EXPECT_TRUE(log.categoryStats().isEmpty());

    log.log(u"🤖 analysed"_s, LogType::Ai, u"Other"_s);
    drain();
    const QHash<QString, int> expected {{u"Coding"_s, 3}, {u"Browsing"_s, 1}, {u"Other"_s, 1}};
    EXPECT_EQ(log.categoryStats(), expected);
    // The fold's own entry lands after the entry that completed the batch.
    ASSERT_EQ(log.logs().size(), 8);
    EXPECT_EQ(log.logs().at(0).message, u"📊 Category statistics updated"_s);
    EXPECT_EQ(log.logs().at(0).type, LogType::Success);
    EXPECT_EQ(log.logs().at(1).message, u"🤖 analysed"_s);
}

TEST_F(LogManagerTest, CallsFromAnotherThreadArriveInOrder)
{
    QThread *worker = QThread::create([this] {
        log.log(u"one"_s);
        log.log(u"two"_s);
    });
    worker->start();
    worker->wait();
    delete worker;
    drain();
    ASSERT_EQ(log.logs().size(), 2);
    EXPECT_EQ(log.logs().at(0).message, u"two"_s);
    EXPECT_EQ(log.logs().at(1).message, u"one"_s);
}

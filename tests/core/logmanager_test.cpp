#include "core/logmanager.h"

#include "fakeclock.h"
#include "logmessages.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

class LogManagerTest : public ::testing::Test
{
protected:
    QStringList drained()
    {
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        return logMessages(log);
    }

    FakeClock clock;
    LogManager log {&clock};
};

TEST_F(LogManagerTest, DefersEvenFromTheMainThreadKeepsOrderAcrossThreadsAndThirtyNewest)
{
    log.log(u"first"_s);
    EXPECT_TRUE(log.logs().isEmpty());
    QThread *worker = QThread::create([this] {
        log.log(u"one"_s);
        log.log(u"two"_s);
    });
    worker->start();
    worker->wait();
    delete worker;
    EXPECT_EQ(drained(), (QStringList {u"first"_s, u"one"_s, u"two"_s}));

    for (int i = 4; i <= 31; ++i) {
        log.log(u"entry %1"_s.arg(i), LogType::Warning);
    }
    const QStringList entries = drained();
    ASSERT_EQ(entries.size(), 30);
    EXPECT_EQ(entries.first(), u"one"_s);
    EXPECT_EQ(entries.last(), u"entry 31"_s);
    EXPECT_EQ(log.logs().first().type, LogType::Warning);
}

TEST_F(LogManagerTest, FoldsCategoriesFiveAtATime)
{
    for (const QString &category : {u"Coding"_s, u"Coding"_s, u"Browsing"_s, u"Coding"_s}) {
        log.log(u"🤖 analysed"_s, LogType::Ai, category);
    }
    // Neither an ai entry without category nor a category on another type counts.
    log.log(u"🤖 no category"_s, LogType::Ai);
    log.log(u"ℹ️ info"_s, LogType::Info, u"Coding"_s);
    drained();
    EXPECT_TRUE(log.categoryStats().isEmpty());

    log.log(u"🤖 analysed"_s, LogType::Ai, u"Other"_s);
    const QStringList messages = drained();
    const QHash<QString, int> expected {{u"Coding"_s, 3}, {u"Browsing"_s, 1}, {u"Other"_s, 1}};
    EXPECT_EQ(log.categoryStats(), expected);
    // The fold's own entry lands after the entry that completed the batch.
    ASSERT_EQ(messages.size(), 8);
    EXPECT_EQ(messages.mid(6), (QStringList {u"🤖 analysed"_s, u"📊 Category statistics updated"_s}));
    EXPECT_EQ(log.logs().at(0).type, LogType::Success);
}

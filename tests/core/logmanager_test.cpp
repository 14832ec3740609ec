#include "core/logmanager.h"

#include "fakeclock.h"
#include "logmessages.h"

#include <QThread>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(LogManagerTest, DefersEvenFromTheMainThreadKeepsOrderAcrossThreadsAndThirtyNewest)
{
    FakeClock clock;
    LogManager log {&clock};
    log.log(u"first"_s);
    EXPECT_TRUE(log.logs().isEmpty());
    const std::unique_ptr<QThread> worker(QThread::create([&log] {
        log.log(u"one"_s);
        log.log(u"two"_s);
    }));
    worker->start();
    worker->wait();
    EXPECT_EQ(logMessages(log), (QStringList {u"first"_s, u"one"_s, u"two"_s}));

    for (int i = 4; i <= 31; ++i) {
        log.log(u"entry %1"_s.arg(i), LogType::Warning);
    }
    const QStringList entries = logMessages(log);
    EXPECT_EQ(std::tuple(entries.size(), entries.first(), entries.last()), std::tuple(30, u"one"_s, u"entry 31"_s));
    EXPECT_EQ(log.logs().first().type, LogType::Warning);
}

TEST(LogManagerTest, FoldsTheCategoriesOfAnalysesFiveAtATime)
{
    FakeClock clock;
    LogManager log {&clock};
    for (const QString &category : {u"Coding"_s, u"Coding"_s, u"Browsing"_s, u"Coding"_s}) {
        log.log(u"🤖 analysed"_s, LogType::Ai, category);
    }
    // Neither an analysis without category nor a category on another type counts.
    log.log(u"🤖 no category"_s, LogType::Ai);
    log.log(u"ℹ️ info"_s, LogType::Info, u"Coding"_s);
    logMessages(log);
    EXPECT_TRUE(log.categoryStats().isEmpty());

    log.log(u"🤖 analysed"_s, LogType::Ai, u"Other"_s);
    logMessages(log);
    // The fold's own entry lands after the entry that completed the batch.
    EXPECT_EQ(logMessages(log).mid(6), (QStringList {u"🤖 analysed"_s, u"📊 Category statistics updated"_s}));
    EXPECT_EQ(log.categoryStats(), (QHash<QString, int> {{u"Coding"_s, 3}, {u"Browsing"_s, 1}, {u"Other"_s, 1}}));
    EXPECT_EQ(log.logs().at(0).type, LogType::Success);
}

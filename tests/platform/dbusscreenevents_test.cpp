#include "platform/dbusscreenevents.h"

#include "privatedbus.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
class DBusScreenEventsTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString(); }

    void lock(bool active, const QString &interface = u"org.freedesktop.ScreenSaver"_s)
    {
        PrivateDBus::roundTrip(session);
        ASSERT_TRUE(bus.sendScreenSaverActive(interface, active));
    }

    void sleep(bool sleeping)
    {
        PrivateDBus::roundTrip(system);
        ASSERT_TRUE(bus.sendPrepareForSleep(sleeping));
    }

    PrivateDBus bus;
    QDBusConnection session = bus.connect(u"events-session"_s);
    QDBusConnection system = bus.connect(u"events-system"_s);
    DBusScreenEvents events {session, system};
};

TEST_F(DBusScreenEventsTest, EachSignalReachesTheObserversOfItsEvent)
{
    QStringList seen;
    events.addObserver(ScreenEvent::Locked, [&] { seen.append(u"locked"_s); });
    events.addObserver(ScreenEvent::Unlocked, [&] { seen.append(u"unlocked"_s); });
    events.addObserver(ScreenEvent::DisplaysSleep, [&] { seen.append(u"sleep"_s); });
    events.addObserver(ScreenEvent::DisplaysWake, [&] { seen.append(u"wake"_s); });
    events.addWakeObserver([&] { seen.append(u"day wake"_s); });
    EXPECT_EQ(events.observerCount(), 4);
    EXPECT_EQ(events.wakeObserverCount(), 1);

    lock(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.size() == 1; }, 5000));
    lock(false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.size() == 2; }, 5000));
    sleep(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.size() == 3; }, 5000));
    sleep(false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.size() == 5; }, 5000));
    // GNOME's screen saver interface locks as well.
    lock(true, u"org.gnome.ScreenSaver"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen.size() == 6; }, 5000));

    EXPECT_EQ(seen, (QStringList {u"locked"_s, u"unlocked"_s, u"sleep"_s, u"wake"_s, u"day wake"_s, u"locked"_s}));
}

TEST_F(DBusScreenEventsTest, RemovedObserversHearNothingAndCountsFollow)
{
    int locks = 0;
    int wakes = 0;
    const auto lockToken = events.addObserver(ScreenEvent::Locked, [&] { ++locks; });
    const auto wakeToken = events.addWakeObserver([&] { ++wakes; });
    events.removeObserver(lockToken);
    events.removeObserver(lockToken);
    events.removeObserver(9999);
    EXPECT_EQ(events.observerCount(), 0);
    EXPECT_EQ(events.wakeObserverCount(), 1);

    lock(true);
    sleep(false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return wakes == 1; }, 5000));
    events.removeWakeObserver(wakeToken);
    EXPECT_EQ(events.wakeObserverCount(), 0);
    sleep(false);
    QTest::qWait(200);
    EXPECT_EQ(locks, 0);
    EXPECT_EQ(wakes, 1);
}
} // namespace

#include "platform/singleinstance.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <future>
#include <sys/socket.h>
#include <sys/un.h>

using namespace Qt::StringLiterals;

namespace {
class SingleInstanceTest : public ::testing::Test
{
protected:
    // What another process's side gives, run on a thread of its own, as it blocks while this one answers.
    template<typename Call>
    static bool fromAnotherProcess(Call call)
    {
        auto result = std::async(std::launch::async, call);
        const auto ready = [&] { return result.wait_for(std::chrono::milliseconds(0)) == std::future_status::ready; };
        return QTest::qWaitFor(ready, 5000) && result.get();
    }

    bool send(const QString &message)
    {
        return fromAnotherProcess([&] { return SingleInstance::sendToRunning(name, message); });
    }

    QTemporaryDir dir;
    QString name = dir.filePath(u"tamlo.socket"_s);
};
} // namespace

// The second process hands its URL or its wish to see the panel to the first, which alone listens.
TEST_F(SingleInstanceTest, SecondProcessHandsOverToTheFirstWhichAloneIsTheInstance)
{
    SingleInstance first(name);
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &SingleInstance::messageReceived);
    SingleInstance second(name);
    EXPECT_FALSE(fromAnotherProcess([&] { return second.listen(); }));
    EXPECT_EQ(received.count(), 0) << "probing for a live instance sends it nothing";

    const QString url = u"tamlo://auth?token=abc%20def&x=1"_s;
    EXPECT_TRUE(send(SingleInstance::openUrlMessage(url)));
    EXPECT_TRUE(send(SingleInstance::showPanelMessage));
    ASSERT_EQ(received.count(), 2);
    EXPECT_EQ(SingleInstance::urlFromMessage(received.first().first().toString()), url);
    EXPECT_EQ(received.last().first().toString(), SingleInstance::showPanelMessage);
    EXPECT_TRUE(SingleInstance::urlFromMessage(SingleInstance::showPanelMessage).isEmpty());
}

TEST_F(SingleInstanceTest, NoHandOverWithoutAnInstanceAndASocketLeftByACrashIsTakenOver)
{
    EXPECT_FALSE(SingleInstance::sendToRunning(name, SingleInstance::showPanelMessage));
    // A bound socket that nobody accepts on, as a killed process leaves it.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, name.toLocal8Bit().constData(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(fd);

    EXPECT_FALSE(SingleInstance::sendToRunning(name, SingleInstance::showPanelMessage));
    SingleInstance instance(name);
    ASSERT_TRUE(instance.listen());
    QSignalSpy received(&instance, &SingleInstance::messageReceived);
    EXPECT_TRUE(send(SingleInstance::showPanelMessage));
    EXPECT_EQ(received.count(), 1);
}

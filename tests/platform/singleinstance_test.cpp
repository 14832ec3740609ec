#include "platform/singleinstance.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <future>
#include <sys/socket.h>
#include <sys/un.h>

using namespace Qt::StringLiterals;

namespace {
// The second process's side runs on its own thread, as it blocks while the first one answers.
std::future<bool> sendFromAnotherProcess(const QString &name, const QString &message)
{
    return std::async(std::launch::async, [name, message] { return SingleInstance::sendToRunning(name, message); });
}

bool waitFor(std::future<bool> &result)
{
    for (int i = 0; i < 200; ++i) {
        if (result.wait_for(std::chrono::milliseconds(0)) == std::future_status::ready) {
            return result.get();
        }
        QSignalSpy idle(QCoreApplication::instance(), &QObject::destroyed);
        idle.wait(10);
    }
    return false;
}

class SingleInstanceTest : public ::testing::Test
{
protected:
    QString name() const { return m_dir.filePath(u"tamlo.socket"_s); }
    QTemporaryDir m_dir;
};
} // namespace

TEST_F(SingleInstanceTest, SecondProcessHandsItsUrlToTheFirst)
{
    SingleInstance first(name());
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &SingleInstance::messageReceived);

    const QString url = u"tamlo://auth?token=abc%20def&x=1"_s;
    auto handedOver = sendFromAnotherProcess(name(), SingleInstance::openUrlMessage(url));
    EXPECT_TRUE(waitFor(handedOver));
    ASSERT_EQ(received.count(), 1);
    EXPECT_EQ(SingleInstance::urlFromMessage(received.first().first().toString()), url);

    auto show = sendFromAnotherProcess(name(), SingleInstance::showPanelMessage);
    EXPECT_TRUE(waitFor(show));
    ASSERT_EQ(received.count(), 2);
    EXPECT_EQ(received.last().first().toString(), SingleInstance::showPanelMessage);
    EXPECT_TRUE(SingleInstance::urlFromMessage(SingleInstance::showPanelMessage).isEmpty());
}

TEST_F(SingleInstanceTest, OnlyOneProcessBecomesTheInstance)
{
    SingleInstance first(name());
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &SingleInstance::messageReceived);

    SingleInstance second(name());
    auto becameInstance = std::async(std::launch::async, [&second] { return second.listen(); });
    EXPECT_FALSE(waitFor(becameInstance));
    EXPECT_EQ(received.count(), 0) << "probing for a live instance sends it nothing";
}

TEST_F(SingleInstanceTest, NoHandOverWithoutAnInstanceAndASocketLeftByACrashIsTakenOver)
{
    EXPECT_FALSE(SingleInstance::sendToRunning(name(), SingleInstance::showPanelMessage));

    // A bound socket that nobody accepts on, as a killed process leaves it.
    const QByteArray path = name().toLocal8Bit();
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.constData(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(fd);

    EXPECT_FALSE(SingleInstance::sendToRunning(name(), SingleInstance::showPanelMessage));
    SingleInstance instance(name());
    ASSERT_TRUE(instance.listen());
    QSignalSpy received(&instance, &SingleInstance::messageReceived);
    auto show = sendFromAnotherProcess(name(), SingleInstance::showPanelMessage);
    EXPECT_TRUE(waitFor(show));
    EXPECT_EQ(received.count(), 1);
}

#include "account/backendprobe.h"

#include <QCoroTask>
#include <QTcpServer>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// A server that has not taken the connection within the time counts as absent; a closed port
// and a listening one are told apart by the sign-in screen's test.
TEST(BackendProbeTest, NoAnswerWithinTheTimeIsNoServer)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort()));
    EXPECT_FALSE(QCoro::waitFor(BackendProbe::acceptsConnections(url, 0ms)));
    EXPECT_TRUE(QCoro::waitFor(BackendProbe::acceptsConnections(url, 2s)));
}

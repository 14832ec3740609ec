#pragma once

#include "ai/llmservice.h"
#include "core/logmanager.h"
#include "core/settings.h"

#include "fakeclock.h"
#include "logmessages.h"
#include "standinollama.h"
#include "standinserver.h"
#include "waitforresult.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace AiTest {
using namespace Qt::StringLiterals;
// A real network manager that remembers the time-out of every request it sends.
class TimeoutRecordingNetworkAccessManager : public QNetworkAccessManager
{
public:
    QList<int> transferTimeouts;

protected:
    QNetworkReply *createRequest(Operation op, const QNetworkRequest &request, QIODevice *data) override
    {
        transferTimeouts.append(request.transferTimeout());
        return QNetworkAccessManager::createRequest(op, request, data);
    }
};

using StandInOllama::chatBody;
using StandInOllama::tagsBody;

inline QJsonObject jsonOf(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object();
}

inline QStringList keysOf(const QJsonObject &object)
{
    QStringList keys = object.keys();
    keys.sort();
    return keys;
}
} // namespace AiTest

class LLMServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        server.on("GET", "/api/tags", StandInServer::Reply {200, AiTest::tagsBody({QStringLiteral("qwen3-vl:2b")})});
    }

    QStringList messages() { return logMessages(logManager); }

    QTemporaryDir home;
    Settings settings {home.filePath(QStringLiteral("Tamlo.conf"))};
    FakeClock clock;
    LogManager logManager {&clock};
    AiTest::TimeoutRecordingNetworkAccessManager nam;
    StandInServer server;
    LLMService service {&nam, &settings, &logManager, server.url(), &clock};
};

#pragma once

#include "ai/llmservice.h"
#include "core/logmanager.h"
#include "core/settings.h"

#include "fakeclock.h"
#include "standinserver.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <stdexcept>

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

inline QByteArray tagsBody(const QStringList &names)
{
    QJsonArray models;
    for (const QString &name : names) {
        models.append(QJsonObject {{u"name"_s, name}, {u"model"_s, name}, {u"size"_s, 1234}});
    }
    return QJsonDocument(QJsonObject {{u"models"_s, models}}).toJson(QJsonDocument::Compact);
}

inline QByteArray chatBody(const QString &content)
{
    const QJsonObject message {{u"role"_s, u"assistant"_s}, {u"content"_s, content}};
    return QJsonDocument(QJsonObject {{u"model"_s, u"qwen3-vl:2b"_s}, {u"message"_s, message}, {u"done"_s, true}})
        .toJson(QJsonDocument::Compact);
}

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

// QCoro::waitFor never returns when the task throws, so the error is carried out as a value.
// (A plain variant would not do: the promise would take its exception_ptr for a throw of its own.)
template<typename T>
struct Outcome
{
    std::optional<T> value;
    std::exception_ptr error;
};

template<typename T>
QCoro::Task<Outcome<T>> capture(QCoro::Task<T> task)
{
    Outcome<T> outcome;
    try {
        outcome.value = co_await task;
    } catch (...) {
        outcome.error = std::current_exception();
    }
    co_return outcome;
}

template<typename T>
T waitForResult(QCoro::Task<T> task)
{
    Outcome<T> outcome = QCoro::waitFor(capture(std::move(task)));
    if (outcome.error) {
        std::rethrow_exception(outcome.error);
    }
    return std::move(*outcome.value);
}

template<typename Error, typename T>
Error failureOf(QCoro::Task<T> task)
{
    try {
        waitForResult(std::move(task));
    } catch (const Error &error) {
        return error;
    } catch (const std::exception &error) {
        ADD_FAILURE() << "raised another error: " << error.what();
        throw;
    }
    ADD_FAILURE() << "the call did not raise";
    throw std::runtime_error("no error");
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

    QStringList messages()
    {
        QCoreApplication::processEvents();
        QStringList result;
        for (const LogEntry &entry : logManager.logs()) {
            result.prepend(entry.message);
        }
        return result;
    }

    QTemporaryDir home;
    Settings settings {home.filePath(QStringLiteral("Tamlo.conf"))};
    FakeClock clock;
    LogManager logManager {&clock};
    AiTest::TimeoutRecordingNetworkAccessManager nam;
    StandInServer server;
    LLMService service {&nam, &settings, &logManager, server.url(), &clock};
};

#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// What came back from one backend request.
struct BackendReply
{
    std::optional<int> status; // absent when no HTTP response arrived
    QByteArray body;
    QString transportError; // why the transfer failed, when it did

    [[nodiscard]] bool isSuccess() const { return status && *status >= 200 && *status <= 299; }
};

// How long each kind of backend request may take; tests shorten them.
struct BackendTimeouts
{
    std::chrono::milliseconds verifyToken = std::chrono::seconds(15);
    std::chrono::milliseconds upload = std::chrono::seconds(120);
    std::chrono::milliseconds status = std::chrono::seconds(15);
    std::chrono::milliseconds sessionCheck = std::chrono::seconds(15);
};

// One request to the backend with a JSON body or none, an optional bearer token and a time-out.
namespace BackendRequest {
[[nodiscard]] QCoro::Task<BackendReply> get(
    QNetworkAccessManager *nam, QUrl url, QString bearerToken, std::chrono::milliseconds timeout);
[[nodiscard]] QCoro::Task<BackendReply> postJson(
    QNetworkAccessManager *nam, QUrl url, QString bearerToken, QByteArray body, std::chrono::milliseconds timeout);
} // namespace BackendRequest

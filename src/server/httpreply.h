#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <utility>

// A whole reply, decided before anything is written to the socket.
struct HttpReply
{
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    QList<std::pair<QByteArray, QByteArray>> headers;

    [[nodiscard]] static HttpReply json(int status, const QJsonObject &object);
    // Every failure is a flat object of strings, which the client can always read.
    [[nodiscard]] static HttpReply error(int status, const QString &message);
    [[nodiscard]] static HttpReply html(int status, const QString &page);
};

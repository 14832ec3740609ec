#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QMutex>

// One line per request for the operator: method, path, status, milliseconds. Queries, headers and
// bodies never reach it, so no token, cookie or e-mail address can.
class RequestLog
{
public:
    // The device is written to and flushed line by line (stderr in the server, a buffer in tests).
    explicit RequestLog(QIODevice *device);

    void record(const QByteArray &method, const QByteArray &path, int status, qint64 milliseconds);

private:
    QIODevice *m_device = nullptr;
    QMutex m_mutex;
    qint64 m_stampSecond = -1;
    QByteArray m_stamp;
};

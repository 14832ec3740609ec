#include "server/requestlog.h"

#include <QDateTime>
#include <QFileDevice>

RequestLog::RequestLog(QIODevice *device) : m_device(device) { }

void RequestLog::record(const QByteArray &method, const QByteArray &path, int status, qint64 milliseconds)
{
    // A path is the one part of the request line that can carry text of the client's choosing;
    // it is cut at the query and kept short, and control characters are escaped.
    QByteArray safePath = path.left(path.indexOf('?') >= 0 ? path.indexOf('?') : path.size()).left(200);
    for (char &c : safePath) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
            c = '?';
        }
    }
    QMutexLocker locker(&m_mutex);
    // Formatting a time is dear next to the rest of a status poll; it changes once a second.
    const qint64 second = QDateTime::currentSecsSinceEpoch();
    if (second != m_stampSecond) {
        m_stampSecond = second;
        m_stamp = QDateTime::fromSecsSinceEpoch(second, Qt::UTC).toString(Qt::ISODate).toLatin1();
    }
    const QByteArray line = m_stamp + ' ' + method.left(16) + ' ' + safePath + ' ' + QByteArray::number(status) + ' '
        + QByteArray::number(milliseconds) + " ms\n";
    m_device->write(line);
    if (auto *file = qobject_cast<QFileDevice *>(m_device)) {
        file->flush();
    }
}

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
    const QByteArray line = QDateTime::currentDateTimeUtc().toString(Qt::ISODate).toLatin1() + ' ' + method.left(16)
        + ' ' + safePath + ' ' + QByteArray::number(status) + ' ' + QByteArray::number(milliseconds) + " ms\n";
    QMutexLocker locker(&m_mutex);
    m_device->write(line);
    if (auto *file = qobject_cast<QFileDevice *>(m_device)) {
        file->flush();
    }
}

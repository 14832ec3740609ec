// The tamlo-server program itself, killed outright in the middle of a large upload.
#include "server/secrettoken.h"
#include "serverfixture.h"

#include <QProcess>
#include <QThread>

namespace {
// perDay records a day, 30 s apart.
QByteArray uploadRequest(const QString &session, QDate first, int dayCount, int perDay, int firstId)
{
    QJsonArray days;
    for (QDate date = first; date < first.addDays(dayCount); date = date.addDays(1)) {
        QJsonArray records;
        for (int i = 0; i < perDay; ++i) {
            records.append(record(u"00000000-0000-4000-8000-%1"_s.arg(firstId++, 12, 10, QChar(u'0')),
                QDateTime(date, QTime(0, 0), Qt::UTC).addSecs(30LL * i).toString(Qt::ISODate)));
        }
        days.append(day(date.toString(Qt::ISODate), records));
    }
    const QByteArray body = bytes(upload(days));
    return "POST /activity/sync HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + session.toUtf8()
        + "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n"
        + body;
}
} // namespace

class CrashTest : public BackendTest
{
protected:
    void startServer()
    {
        process.setReadChannel(QProcess::StandardError);
        process.start(QStringLiteral(TAMLO_SERVER_EXECUTABLE),
            backend.serverArguments() + QStringList {u"--listen"_s, u"127.0.0.1:0"_s});
        static const QRegularExpression listening(u"listening on 127\\.0\\.0\\.1:(\\d+)"_s);
        QString log;
        for (int i = 0; i < 100 && !listening.match(log).hasMatch(); ++i) {
            process.waitForReadyRead(200);
            log += QString::fromUtf8(process.readAllStandardError());
        }
        port = listening.match(log).captured(1).toUShort();
        ASSERT_NE(port, 0) << "tamlo-server did not start listening: " << log.toStdString();
    }

    QProcess process; // killed, if still running, when the test ends
    quint16 port = 0;
};

TEST_F(CrashTest, AKillInTheMiddleOfAnUploadLosesNothingCommittedAndStoresNoneOfIt)
{
    const ServerUser ada = storage->createUser(adaMail, std::nullopt, 0);
    const QString session = SecretToken::generate();
    storage->createSession(SecretToken::digest(session), ada.id, 0);
    startServer();
    EXPECT_TRUE(
        rawExchange(port, uploadRequest(session, QDate(2026, 11, 1), 1, 100, 0), 30000).startsWith("HTTP/1.1 200"));

    // A week of backfill, 2,880 records a day, cut off halfway by SIGKILL.
    const QByteArray large = uploadRequest(session, QDate(2026, 11, 2), 7, 2880, 100);
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(socket.waitForConnected(5000));
    socket.write(large.left(large.size() / 2));
    socket.waitForBytesWritten(5000);
    QThread::msleep(100);
    process.kill();
    process.waitForFinished();
    storage.reset();
    storage = backend.open();
    QList<UploadedDay> days = storage->days(ada.id);
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(std::tuple(days[0].date, days[0].snapshots.size()), std::tuple(u"2026-11-01"_s, 100));

    // The client's next upload, to a restarted server, completes it.
    startServer();
    EXPECT_TRUE(rawExchange(port, large, 30000).startsWith("HTTP/1.1 200"));
    days = storage->days(ada.id);
    ASSERT_EQ(days.size(), 8);
    EXPECT_EQ(days.last().snapshots.size(), 2880);
}

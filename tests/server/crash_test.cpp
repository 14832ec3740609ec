// The tamlo-server program itself, killed outright in the middle of a large upload.
#include "server/secrettoken.h"
#include "storagesuites.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {
QByteArray uploadBody(const QStringList &dates, int perDay, const QString &type, int firstId)
{
    QJsonArray days;
    int n = firstId;
    for (const QString &date : dates) {
        QJsonArray snapshots;
        for (int i = 0; i < perDay; ++i, ++n) {
            snapshots.append(QJsonObject {{u"id"_s, u"00000000-0000-4000-8000-%1"_s.arg(n, 12, 10, QChar(u'0'))},
                {u"timestamp"_s,
                    QDateTime(QDate::fromString(date, Qt::ISODate), QTime(0, 0), Qt::UTC)
                        .addSecs(30LL * i)
                        .toString(Qt::ISODate)},
                {u"activityType"_s, type}, {u"projectName"_s, u"Website"_s},
                {u"activityDescription"_s, u"Editing checkout.css in the editor, line %1"_s.arg(i)}});
        }
        days.append(QJsonObject {{u"date"_s, date}, {u"snapshots"_s, snapshots}});
    }
    return QJsonDocument(QJsonObject {{u"timezone"_s, u"Europe/Berlin"_s}, {u"deviceId"_s, deviceA},
                             {u"backfillComplete"_s, false}, {u"days"_s, days}})
        .toJson(QJsonDocument::Compact);
}

QByteArray request(const QString &session, const QByteArray &body)
{
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
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        port = probe.serverPort();
        probe.close();
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral(TAMLO_SERVER_EXECUTABLE),
            backend->serverArguments() + QStringList {u"--listen"_s, u"127.0.0.1:%1"_s.arg(port)});
        ASSERT_TRUE(process.waitForStarted());
        for (int attempt = 0; attempt < 200; ++attempt) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, port);
            if (socket.waitForConnected(100)) {
                return;
            }
            QThread::msleep(25);
        }
        FAIL() << "tamlo-server did not start listening";
    }

    // Sends the bytes, and waits for the whole answer unless the process is killed first.
    QByteArray post(const QByteArray &bytes, bool killAfterHalf = false)
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        EXPECT_TRUE(socket.waitForConnected(5000));
        if (killAfterHalf) {
            socket.write(bytes.left(bytes.size() / 2));
            socket.waitForBytesWritten(5000);
            QThread::msleep(100);
            process.kill();
            process.waitForFinished();
            return {};
        }
        socket.write(bytes);
        QByteArray answer;
        while (!answer.contains("\r\n\r\n") && socket.waitForReadyRead(30000)) {
            answer += socket.readAll();
        }
        return answer;
    }

    QProcess process;
    quint16 port = 0;
};

TEST_P(CrashTest, AKillInTheMiddleOfAnUploadLosesNothingCommittedAndStoresNoneOfIt)
{
    const ServerUser ada = storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
    const QString session = SecretToken::generate();
    storage->createSession(SecretToken::digest(session), ada.id, 0);
    startServer();

    const QByteArray first = uploadBody({u"2026-11-01"_s}, 100, u"Coding"_s, 0);
    EXPECT_TRUE(post(request(session, first)).startsWith("HTTP/1.1 200"));
    // A week of backfill, 2,880 records a day, cut off halfway by SIGKILL.
    const QStringList week {u"2026-11-02"_s, u"2026-11-03"_s, u"2026-11-04"_s, u"2026-11-05"_s, u"2026-11-06"_s,
        u"2026-11-07"_s, u"2026-11-08"_s};
    const QByteArray large = request(session, uploadBody(week, 2880, u"Meeting"_s, 100));
    post(large, true);

    storage.reset();
    storage = backend->open();
    QList<UploadedDay> days = storage->days(ada.id);
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(days[0].date, u"2026-11-01"_s);
    EXPECT_EQ(days[0].snapshots.size(), 100);

    // The client's next upload, to a restarted server, completes it.
    startServer();
    EXPECT_TRUE(post(large).startsWith("HTTP/1.1 200"));
    process.kill();
    process.waitForFinished();
    days = storage->days(ada.id);
    ASSERT_EQ(days.size(), 8);
    EXPECT_EQ(days.last().snapshots.size(), 2880);
}

INSTANTIATE_TEST_SUITE_P(Server, CrashTest, ::testing::ValuesIn(testBackends()), backendName);

// tamlo-server's two figures, each against a floor measured in the same run: a week of backfill
// ingested end to end (HTTP, parse, validate, upsert) against a bare prepared-statement insert of
// the same rows into the same SQLite in one transaction; and status polls per second from 64
// keep-alive clients against a bare QTcpServer answering a fixed reply.
#include "core/clock.h"
#include "server/apiendpoints.h"
#include "server/requestlog.h"
#include "server/secrettoken.h"
#include "server/signinservice.h"
#include "server/sqlstorage.h"
#include "server/syncuploadparser.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {
constexpr int backfillDays = 7;
constexpr int snapshotsPerDay = 2880;
constexpr int pollClients = 64;
constexpr auto pollWindow = std::chrono::milliseconds(2000);

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}

QByteArray weekOfBackfill()
{
    QJsonArray days;
    int n = 0;
    for (int d = 0; d < backfillDays; ++d) {
        const QString date = QDate(2026, 11, 2).addDays(d).toString(u"yyyy-MM-dd"_s);
        QJsonArray snapshots;
        for (int i = 0; i < snapshotsPerDay; ++i, ++n) {
            snapshots.append(QJsonObject {{u"id"_s, u"00000000-0000-4000-8000-%1"_s.arg(n, 12, 10, QChar(u'0'))},
                {u"timestamp"_s,
                    QDateTime(QDate(2026, 11, 2).addDays(d), QTime(0, 0), Qt::UTC)
                        .addSecs(i * 30)
                        .toString(u"yyyy-MM-dd'T'HH:mm:ss'Z'"_s)},
                {u"activityType"_s, u"Coding"_s}, {u"projectName"_s, u"Website"_s},
                {u"activityDescription"_s, u"Editing checkout.css in the editor, with the preview beside it."_s}});
        }
        days.append(QJsonObject {{u"date"_s, date}, {u"snapshots"_s, snapshots}});
    }
    return QJsonDocument(
        QJsonObject {{u"timezone"_s, u"Europe/Berlin"_s}, {u"deviceId"_s, u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s},
            {u"backfillComplete"_s, false}, {u"days"_s, days}})
        .toJson(QJsonDocument::Compact);
}

// A real server on 127.0.0.1 over SQLite in a temporary folder, with one signed-in user.
struct ServerFixture
{
    ServerFixture()
    {
        logBuffer.open(QIODevice::WriteOnly);
        if (!server.listen(QHostAddress::LocalHost, 0)) {
            qFatal("cannot listen");
        }
        const ServerUser user = storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
        userId = user.id;
        session = SecretToken::generate();
        storage->createSession(SecretToken::digest(session), user.id, 0);
    }

    QTemporaryDir dir;
    SystemClock clock;
    std::unique_ptr<SqlStorage> storage = SqlStorage::openSqlite(dir.filePath(u"tamlo-server.sqlite3"_s));
    SignInService signIn {storage.get(), &clock};
    ApiEndpoints api {storage.get(), &signIn, &clock};
    WebPages pages {&signIn, QUrl(u"http://127.0.0.1"_s), true};
    QBuffer logBuffer;
    RequestLog log {&logBuffer};
    TamloHttpServer server {&api, &pages, &log};
    QString userId;
    QString session;
};

void exec(QSqlQuery &query, const QString &sql = {})
{
    if (!(sql.isEmpty() ? query.exec() : query.exec(sql))) {
        qFatal("%s", qPrintable(query.lastError().text()));
    }
}

void ingest(benchmark::State &state)
{
    ServerFixture fixture;
    const QByteArray body = weekOfBackfill();
    const SyncUpload rows = *SyncUploadParser::parse(body).upload;
    QNetworkAccessManager nam;
    QSqlQuery sql(fixture.storage->database());
    exec(sql,
        u"CREATE TABLE floor_snapshots (user_id TEXT NOT NULL, id TEXT NOT NULL, device_id TEXT NOT NULL,"
        " day TEXT NOT NULL, taken_at TEXT NOT NULL, activity_type TEXT NOT NULL, project_name TEXT NOT NULL,"
        " activity_description TEXT, user_note TEXT, received_at BIGINT NOT NULL, PRIMARY KEY (user_id, id))"_s);
    std::vector<double> ingestMs;
    std::vector<double> floorMs;
    for (auto _ : state) {
        exec(sql, u"DELETE FROM snapshots"_s);
        exec(sql, u"DELETE FROM floor_snapshots"_s);

        QElapsedTimer timer;
        timer.start();
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/activity/sync"_s.arg(fixture.server.port())));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/json"));
        request.setRawHeader("Authorization", "Bearer " + fixture.session.toUtf8());
        QNetworkReply *reply = nam.post(request, body);
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const double ingestElapsed = static_cast<double>(timer.nsecsElapsed()) / 1e6;
        if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200) {
            qFatal("upload refused: %s", reply->readAll().constData());
        }
        reply->deleteLater();

        timer.restart();
        QSqlDatabase db = fixture.storage->database();
        db.transaction();
        QSqlQuery insert(db);
        insert.prepare(u"INSERT INTO floor_snapshots VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s);
        for (const UploadedDay &day : rows.days) {
            for (const UploadedSnapshot &s : day.snapshots) {
                insert.bindValue(0, fixture.userId);
                insert.bindValue(1, s.id);
                insert.bindValue(2, rows.deviceId);
                insert.bindValue(3, day.date);
                insert.bindValue(4, s.timestamp);
                insert.bindValue(5, s.activityType);
                insert.bindValue(6, s.projectName);
                insert.bindValue(7, s.activityDescription.value_or(QString()));
                insert.bindValue(8, QVariant(QMetaType::fromType<QString>()));
                insert.bindValue(9, 0);
                exec(insert);
            }
        }
        db.commit();
        const double floorElapsed = static_cast<double>(timer.nsecsElapsed()) / 1e6;

        ingestMs.push_back(ingestElapsed);
        floorMs.push_back(floorElapsed);
        state.SetIterationTime(ingestElapsed / 1000.0);
    }
    const double ingestMedian = median(ingestMs);
    const double floorMedian = median(floorMs);
    state.counters["body_MB"] = static_cast<double>(body.size()) / 1e6;
    state.counters["snapshots"] = backfillDays * snapshotsPerDay;
    state.counters["ingest_ms"] = ingestMedian;
    state.counters["floor_ms"] = floorMedian;
    state.counters["ingest/floor"] = ingestMedian / floorMedian;
}

// Keep-alive clients that each send the next request as soon as the last answer is complete.
class PollClients
{
public:
    PollClients(quint16 port, const QByteArray &request) : m_request(request)
    {
        // Connected from the event loop, since the servers accept in this same thread.
        int connected = 0;
        QEventLoop loop;
        for (int i = 0; i < pollClients; ++i) {
            auto socket = std::make_unique<QTcpSocket>();
            QTcpSocket *raw = socket.get();
            QObject::connect(raw, &QTcpSocket::readyRead, raw, [this, raw] { onReadyRead(raw); });
            QObject::connect(raw, &QTcpSocket::connected, &loop, [&] {
                if (++connected == pollClients) {
                    loop.quit();
                }
            });
            raw->connectToHost(QHostAddress::LocalHost, port);
            m_buffers.push_back({});
            m_sockets.push_back(std::move(socket));
        }
        QTimer::singleShot(std::chrono::seconds(10), &loop, [] { qFatal("cannot connect"); });
        loop.exec();
    }

    // Answers per second over the window.
    double run()
    {
        m_answers = 0;
        for (auto &socket : m_sockets) {
            socket->write(m_request);
        }
        QEventLoop loop;
        QElapsedTimer timer;
        timer.start();
        QTimer::singleShot(pollWindow, &loop, &QEventLoop::quit);
        loop.exec();
        const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        m_stopped = true;
        return static_cast<double>(m_answers) / seconds;
    }

private:
    void onReadyRead(QTcpSocket *socket)
    {
        const size_t index = std::find_if(m_sockets.begin(), m_sockets.end(), [socket](const auto &s) {
            return s.get() == socket;
        }) - m_sockets.begin();
        QByteArray &buffer = m_buffers[index];
        buffer += socket->readAll();
        for (;;) {
            const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
            if (headEnd < 0) {
                return;
            }
            const qsizetype lengthAt = buffer.toLower().indexOf("content-length:");
            const qsizetype lineEnd = buffer.indexOf("\r\n", lengthAt);
            const qsizetype length = buffer.mid(lengthAt + 15, lineEnd - lengthAt - 15).trimmed().toLongLong();
            if (buffer.size() < headEnd + 4 + length) {
                return;
            }
            buffer.remove(0, headEnd + 4 + length);
            ++m_answers;
            if (!m_stopped) {
                socket->write(m_request);
            }
        }
    }

    QByteArray m_request;
    std::vector<std::unique_ptr<QTcpSocket>> m_sockets;
    std::vector<QByteArray> m_buffers;
    qint64 m_answers = 0;
    bool m_stopped = false;
};

// The floor: accepts, and answers every request head with the same fixed reply.
class FixedReplyServer : public QObject
{
public:
    FixedReplyServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
                QObject::connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                    m_pending.remove(socket);
                    socket->deleteLater();
                });
            }
        });
    }
    [[nodiscard]] quint16 port() const { return m_server.serverPort(); }

private:
    void answer(QTcpSocket *socket)
    {
        static const QByteArray reply
            = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}";
        QByteArray &pending = m_pending[socket];
        pending += socket->readAll();
        for (qsizetype end = pending.indexOf("\r\n\r\n"); end >= 0; end = pending.indexOf("\r\n\r\n")) {
            pending.remove(0, end + 4);
            socket->write(reply);
        }
    }

    // Declared first, so it outlives the server whose sockets report their end into it.
    QHash<QTcpSocket *, QByteArray> m_pending;
    QTcpServer m_server;
};

void statusPolls(benchmark::State &state)
{
    ServerFixture fixture;
    FixedReplyServer floor;
    const QByteArray request = "GET /activity/status HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer "
        + fixture.session.toUtf8() + "\r\n\r\n";
    std::vector<double> serverRates;
    std::vector<double> floorRates;
    for (auto _ : state) {
        PollClients serverClients(fixture.server.port(), request);
        serverRates.push_back(serverClients.run());
        PollClients floorClients(floor.port(), request);
        floorRates.push_back(floorClients.run());
        state.SetIterationTime(std::chrono::duration<double>(pollWindow).count());
    }
    const double server = median(serverRates);
    const double bare = median(floorRates);
    state.counters["clients"] = pollClients;
    state.counters["server_per_s"] = server;
    state.counters["floor_per_s"] = bare;
    state.counters["server/floor"] = server / bare;
}
} // namespace

BENCHMARK(ingest)->Name("Server/ingestWeekOfBackfill")->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(statusPolls)->Name("Server/statusPolls")->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

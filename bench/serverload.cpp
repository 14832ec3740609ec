// A bounded load test of a real tamlo-server on 127.0.0.1: the days page of a user with a year of
// synced days, and the status poll of 1,000 devices. Seeds a fresh SQLite database, starts the
// server on it, drives each page from keep-alive connections for a fixed time, prints requests per
// second and the 99th-percentile latency, and stops by itself within a minute.
//
//   tamlo_server_loadtest SERVER_EXECUTABLE [SECONDS_PER_RUN]
#include "server/secrettoken.h"
#include "server/sqlstorage.h"

#include <QCoreApplication>
#include <QDate>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimeZone>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {
constexpr int devices = 1000;
constexpr int daysInAYear = 365;
constexpr int recordsPerDay = 960; // eight active hours at one record per 30 seconds
constexpr int dayConnections = 8;
constexpr int statusConnections = 64;
// The whole run, seeding included, ends by this time whatever happens.
constexpr int hardLimitMs = 60 * 1000;

QString upperUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

// A year of days for one user, as the app would have uploaded them, 31 days an upload.
void seedYear(SqlStorage &storage, const QString &userId, qint64 now)
{
    const QDate last = QDate(2026, 11, 16);
    const QStringList projects {u"Website"_s, u"Tamlo"_s, u"Client work"_s, u"Other"_s};
    const QStringList categories {u"Coding"_s, u"Meeting"_s, u"Writing"_s, u"Browsing"_s};
    SyncUpload upload {u"Europe/Berlin"_s, upperUuid(), false, {}};
    for (int d = daysInAYear - 1; d >= 0; --d) {
        const QDate date = last.addDays(-d);
        UploadedDay day {date.toString(Qt::ISODate), {}};
        const QDateTime start(date, QTime(8, 0), QTimeZone::utc());
        for (int i = 0; i < recordsPerDay; ++i) {
            const bool locked = i % 97 == 96;
            day.snapshots.append(
                UploadedSnapshot {upperUuid(), start.addSecs(30LL * i).toString(u"yyyy-MM-ddTHH:mm:ssZ"_s),
                    locked ? u"Other"_s : categories[(i / 40) % categories.size()],
                    locked ? u"Other"_s : projects[(i / 120) % projects.size()],
                    locked ? std::optional<QString>(u"Screen Locked"_s)
                           : std::optional<QString>(u"Editing the page, step %1"_s.arg(i)),
                    i % 50 == 0 ? std::optional<QString>(u"a note"_s) : std::nullopt});
        }
        upload.days.append(day);
        if (upload.days.size() == 31 || d == 0) {
            storage.storeUpload(userId, upload, now);
            upload.days.clear();
        }
    }
}

// Keep-alive HTTP/1.1 clients, each sending its next request as soon as the last answer is in.
class LoadRun
{
public:
    using RequestFor = std::function<QByteArray(int)>;

    LoadRun(quint16 port, int connections, RequestFor requestFor) : m_port(port), m_requestFor(std::move(requestFor))
    {
        for (int i = 0; i < connections; ++i) {
            m_clients.push_back(std::make_unique<Client>());
        }
    }

    struct Result
    {
        double requestsPerSecond = 0;
        double p99Ms = 0;
        double medianMs = 0;
        qint64 requests = 0;
        qint64 failures = 0;
    };

    // One request on one connection.
    Result runOnce() { return run(0); }

    Result run(int seconds)
    {
        QEventLoop loop;
        QElapsedTimer clock;
        clock.start();
        const qint64 endMs = seconds * 1000LL;
        int open = 0;
        for (auto &client : m_clients) {
            Client *c = client.get();
            QObject::connect(&c->socket, &QTcpSocket::connected, &loop, [this, c] { send(c); });
            QObject::connect(&c->socket, &QTcpSocket::readyRead, &loop, [this, c, &clock, endMs, &open, &loop] {
                c->buffer += c->socket.readAll();
                while (true) {
                    const qsizetype headEnd = c->buffer.indexOf("\r\n\r\n");
                    if (headEnd < 0) {
                        return;
                    }
                    const QByteArray head = c->buffer.left(headEnd).toLower();
                    const qsizetype lengthAt = head.indexOf("content-length:");
                    const qint64 length = lengthAt < 0
                        ? 0
                        : head.mid(lengthAt + 15, head.indexOf('\r', lengthAt) - lengthAt - 15).trimmed().toLongLong();
                    if (c->buffer.size() < headEnd + 4 + length) {
                        return;
                    }
                    const bool ok = head.startsWith("http/1.1 200");
                    c->buffer.remove(0, headEnd + 4 + length);
                    m_latenciesNs.push_back(c->timer.nsecsElapsed());
                    m_failures += ok ? 0 : 1;
                    if (clock.elapsed() >= endMs) {
                        c->socket.disconnectFromHost();
                        if (--open == 0) {
                            loop.quit();
                        }
                        return;
                    }
                    send(c);
                }
            });
            c->socket.connectToHost(QHostAddress::LocalHost, m_port);
            ++open;
        }
        QTimer::singleShot(endMs + 5000, &loop, &QEventLoop::quit);
        loop.exec();
        const double elapsed = clock.nsecsElapsed() / 1e9;
        Result result;
        result.requests = static_cast<qint64>(m_latenciesNs.size());
        result.failures = m_failures;
        result.requestsPerSecond = result.requests / elapsed;
        std::sort(m_latenciesNs.begin(), m_latenciesNs.end());
        if (!m_latenciesNs.empty()) {
            result.p99Ms = m_latenciesNs[std::min(m_latenciesNs.size() - 1, m_latenciesNs.size() * 99 / 100)] / 1e6;
            result.medianMs = m_latenciesNs[m_latenciesNs.size() / 2] / 1e6;
        }
        return result;
    }

private:
    struct Client
    {
        QTcpSocket socket;
        QByteArray buffer;
        QElapsedTimer timer;
    };

    void send(Client *c)
    {
        c->timer.start();
        c->socket.write(m_requestFor(m_sent++));
    }

    quint16 m_port;
    RequestFor m_requestFor;
    std::vector<std::unique_ptr<Client>> m_clients;
    std::vector<qint64> m_latenciesNs;
    qint64 m_failures = 0;
    int m_sent = 0;
};

void print(const char *what, int connections, const LoadRun::Result &result)
{
    std::printf("%-46s %3d connections  %8.0f req/s  p50 %7.2f ms  p99 %7.2f ms  (%lld requests, %lld not 200)\n", what,
        connections, result.requestsPerSecond, result.medianMs, result.p99Ms, static_cast<long long>(result.requests),
        static_cast<long long>(result.failures));
    std::fflush(stdout);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: tamlo_server_loadtest SERVER_EXECUTABLE [SECONDS_PER_RUN (default 10)]\n");
        return 2;
    }
    const int seconds = std::clamp(arguments.value(2, u"10"_s).toInt(), 1, 20);
    // Whatever happens, the run ends within the minute.
    QTimer::singleShot(hardLimitMs, &app, [] {
        std::fprintf(stderr, "load test: the one-minute limit was reached; stopping\n");
        std::_Exit(3);
    });

    QTemporaryDir dir;
    QElapsedTimer seeding;
    seeding.start();
    const QString webToken = SecretToken::generate();
    QStringList deviceTokens;
    {
        std::unique_ptr<SqlStorage> storage = SqlStorage::openSqlite(dir.filePath(u"tamlo-server.sqlite3"_s));
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        const ServerUser ada = storage->createUser(u"ada@example.org"_s, u"Ada"_s, now);
        storage->createWebSession(SecretToken::digest(webToken), ada.id, now);
        seedYear(*storage, ada.id, now);
        QSqlDatabase db = storage->database();
        db.transaction();
        QStringList asked;
        for (int i = 0; i < devices; ++i) {
            const ServerUser user = storage->createUser(u"device%1@example.org"_s.arg(i), std::nullopt, now);
            const QString token = SecretToken::generate();
            storage->createSession(SecretToken::digest(token), user.id, now);
            if (i % 10 == 0) {
                asked.append(user.id); // some of them are being asked to upload
            }
            deviceTokens.append(token);
        }
        db.commit();
        // A request is a transaction of its own.
        for (const QString &id : asked) {
            storage->requestSync(id, now);
        }
    }
    std::printf("seeded %d days of %d records and %d devices in %.1f s\n", daysInAYear, recordsPerDay, devices,
        seeding.elapsed() / 1000.0);

    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    QProcess server;
    server.setStandardErrorFile(QProcess::nullDevice());
    server.start(arguments[1], {u"--data"_s, dir.path(), u"--listen"_s, u"127.0.0.1:%1"_s.arg(port)});
    bool up = false;
    for (int i = 0; i < 100 && !up; ++i) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        up = socket.waitForConnected(100);
        if (!up) {
            QThread::msleep(100);
        }
    }
    if (!up) {
        std::fprintf(stderr, "tamlo-server did not start\n");
        return 1;
    }

    // The request log goes to the null device: the server still formats and writes every line.
    const QByteArray host = "Host: 127.0.0.1:" + QByteArray::number(port) + "\r\n";
    {
        // The first view after a start works out every day of the page from its records.
        LoadRun first(port, 1, [&](int) {
            return "GET /days HTTP/1.1\r\n" + host + "Cookie: tamlo_session=" + webToken.toLatin1() + "\r\n\r\n";
        });
        const LoadRun::Result cold = first.runOnce();
        std::printf("GET /days, first view after the start: %.1f ms\n", cold.p99Ms);
    }
    LoadRun daysRun(port, dayConnections, [&](int) {
        return "GET /days HTTP/1.1\r\n" + host + "Cookie: tamlo_session=" + webToken.toLatin1() + "\r\n\r\n";
    });
    print("GET /days (30 of 365 days, 960 records a day)", dayConnections, daysRun.run(seconds));

    LoadRun statusRun(port, statusConnections, [&](int n) {
        return "GET /activity/status HTTP/1.1\r\n" + host + "Authorization: Bearer "
            + deviceTokens[n % devices].toLatin1() + "\r\n\r\n";
    });
    print("GET /activity/status (1,000 devices)", statusConnections, statusRun.run(seconds));

    server.terminate();
    server.waitForFinished(5000);
    return 0;
}

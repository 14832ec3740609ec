#include "testbackend.h"

#include <QDir>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QVersionNumber>

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
// A throwaway cluster in a temporary folder. initdb refuses to run as root, so a root test run
// hands the folder to an unprivileged account and runs the server programs as it.
class PostgresCluster
{
public:
    static PostgresCluster &instance()
    {
        static PostgresCluster cluster;
        return cluster;
    }

    [[nodiscard]] QString missing() const { return m_missing; }
    [[nodiscard]] QString error() const { return m_error; }
    [[nodiscard]] QUrl url() const { return QUrl(u"postgresql://tamlo@127.0.0.1:%1/tamlo_test"_s.arg(m_port)); }

    void stop()
    {
        if (m_started) {
            run(u"pg_ctl"_s, {u"-D"_s, dataDir(), u"-m"_s, u"immediate"_s, u"-w"_s, u"stop"_s});
            m_started = false;
        }
    }

private:
    PostgresCluster()
    {
        m_binDir = findBinDir();
        if (m_binDir.isEmpty()) {
            m_missing = u"PostgreSQL binaries not found under /usr/lib/postgresql/*/bin; "
                        "install Debian's postgresql package to run these tests."_s;
            return;
        }
        if (geteuid() == 0 && !handOver()) {
            return;
        }
        if (!run(u"initdb"_s,
                {u"-D"_s, dataDir(), u"-U"_s, u"tamlo"_s, u"-A"_s, u"trust"_s, u"-E"_s, u"UTF8"_s, u"--locale=C"_s,
                    u"--no-sync"_s})) {
            return;
        }
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        m_port = probe.serverPort();
        probe.close();
        const QString options
            = u"-p %1 -k %2 -c listen_addresses=127.0.0.1 -c fsync=off -c full_page_writes=off"_s.arg(m_port).arg(
                m_dir.path());
        if (!run(u"pg_ctl"_s,
                {u"-D"_s, dataDir(), u"-l"_s, m_dir.filePath(u"server.log"_s), u"-w"_s, u"-o"_s, options,
                    u"start"_s})) {
            return;
        }
        m_started = true;
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, u"cluster-setup"_s);
        db.setHostName(u"127.0.0.1"_s);
        db.setPort(m_port);
        db.setUserName(u"tamlo"_s);
        db.setDatabaseName(u"postgres"_s);
        if (!db.open() || !QSqlQuery(db).exec(u"CREATE DATABASE tamlo_test"_s)) {
            m_error = u"Cannot create the test database: "_s + db.lastError().text();
        }
        db.close();
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"cluster-setup"_s);
    }

    [[nodiscard]] static QString findBinDir()
    {
        QDir root(u"/usr/lib/postgresql"_s);
        QStringList versions = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        std::sort(versions.begin(), versions.end(), [](const QString &a, const QString &b) {
            return QVersionNumber::fromString(a) > QVersionNumber::fromString(b);
        });
        for (const QString &version : versions) {
            const QString bin = root.filePath(version + u"/bin"_s);
            if (QFile::exists(bin + u"/initdb"_s) && QFile::exists(bin + u"/pg_ctl"_s)) {
                return bin;
            }
        }
        return {};
    }

    bool handOver()
    {
        const passwd *account = getpwnam("postgres");
        if (!account) {
            account = getpwnam("nobody");
        }
        if (!account) {
            m_error = u"Running as root, and neither a postgres nor a nobody account exists to run initdb as."_s;
            return false;
        }
        m_runAs = QString::fromLocal8Bit(account->pw_name);
        if (chown(QFile::encodeName(m_dir.path()).constData(), account->pw_uid, account->pw_gid) != 0) {
            m_error = u"Cannot hand the cluster folder to %1."_s.arg(m_runAs);
            return false;
        }
        return true;
    }

    bool run(const QString &program, const QStringList &arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        const QString path = m_binDir + u'/' + program;
        if (m_runAs.isEmpty()) {
            process.start(path, arguments);
        } else {
            process.start(u"runuser"_s, QStringList {u"-u"_s, m_runAs, u"--"_s, path} + arguments);
        }
        if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit
            || process.exitCode() != 0) {
            m_error = u"%1 failed: %2"_s.arg(program, QString::fromLocal8Bit(process.readAll()));
            return false;
        }
        return true;
    }

    [[nodiscard]] QString dataDir() const { return m_dir.filePath(u"data"_s); }

    // Under /tmp whatever TMPDIR says: the unprivileged account must reach it, and the socket path
    // must stay short.
    QTemporaryDir m_dir {u"/tmp/tamlo-pg-XXXXXX"_s};
    QString m_binDir;
    QString m_runAs;
    QString m_missing;
    QString m_error;
    quint16 m_port = 0;
    bool m_started = false;
};

class PostgresEnvironment final : public ::testing::Environment
{
public:
    void TearDown() override { PostgresCluster::instance().stop(); }
};

[[maybe_unused]] ::testing::Environment *const environment
    = ::testing::AddGlobalTestEnvironment(new PostgresEnvironment);

class PostgresBackend final : public TestBackend
{
public:
    [[nodiscard]] QString name() const override { return u"PostgreSQL"_s; }
    [[nodiscard]] QString unavailableReason() const override { return PostgresCluster::instance().missing(); }
    [[nodiscard]] QString setupError() const override { return PostgresCluster::instance().error(); }
    void reset() override
    {
        withConnection([](QSqlQuery &query) {
            query.exec(u"SET client_min_messages TO WARNING"_s);
            query.exec(u"DROP SCHEMA public CASCADE"_s);
            query.exec(u"CREATE SCHEMA public"_s);
        });
    }
    void dropServerConnections() override
    {
        withConnection([](QSqlQuery &query) {
            query.exec(u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
                       " WHERE datname = current_database() AND pid <> pg_backend_pid()"_s);
        });
    }
    [[nodiscard]] QVariant scalar(const QString &sql) override
    {
        QVariant result;
        withConnection([&](QSqlQuery &query) {
            if (query.exec(sql) && query.next()) {
                result = query.value(0);
            }
        });
        return result;
    }
    [[nodiscard]] std::unique_ptr<SqlStorage> open() override
    {
        return SqlStorage::openPostgres(PostgresCluster::instance().url());
    }
    [[nodiscard]] QStringList serverArguments() const override
    {
        return {u"--database"_s, PostgresCluster::instance().url().toString()};
    }

private:
    static void withConnection(const std::function<void(QSqlQuery &)> &body)
    {
        const QString name = u"test-side"_s;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, name);
            const QUrl url = PostgresCluster::instance().url();
            db.setHostName(url.host());
            db.setPort(url.port());
            db.setUserName(url.userName());
            db.setDatabaseName(url.path().mid(1));
            if (db.open()) {
                QSqlQuery query(db);
                body(query);
            }
            db.close();
        }
        QSqlDatabase::removeDatabase(name);
    }
};
} // namespace

std::unique_ptr<TestBackend> makePostgresBackend()
{
    return std::make_unique<PostgresBackend>();
}

std::vector<BackendParam> testBackends()
{
    return {{"PostgreSQL", makePostgresBackend, true}};
}

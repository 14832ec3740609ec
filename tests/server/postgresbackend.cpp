#include "backend.h"

#include <QDir>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
// A throwaway cluster in a temporary folder, one per test process. initdb refuses to run as root,
// so a root test run hands the folder to an unprivileged account and runs the programs as it.
class PostgresCluster
{
public:
    static PostgresCluster &instance()
    {
        static PostgresCluster cluster;
        return cluster;
    }

    QString missing;
    QString error;
    quint16 port = 0;

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
        QDir root(u"/usr/lib/postgresql"_s);
        for (const QString &version : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::Reversed)) {
            if (QFile::exists(root.filePath(version + u"/bin/initdb"_s))) {
                m_binDir = root.filePath(version + u"/bin"_s);
                break;
            }
        }
        if (m_binDir.isEmpty()) {
            missing = u"PostgreSQL binaries not found under /usr/lib/postgresql/*/bin; "
                      "install Debian's postgresql package to run these tests."_s;
            return;
        }
        if (geteuid() == 0) {
            const passwd *account = getpwnam("postgres") ? getpwnam("postgres") : getpwnam("nobody");
            if (!account || chown(QFile::encodeName(m_dir.path()).constData(), account->pw_uid, account->pw_gid) != 0) {
                error = u"Running as root, and the cluster folder cannot be handed to postgres or nobody."_s;
                return;
            }
            m_runAs = QString::fromLocal8Bit(account->pw_name);
        }
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        port = probe.serverPort();
        probe.close();
        const QString options = u"-p %1 -k %2 -c listen_addresses=127.0.0.1 -c fsync=off -c full_page_writes=off"_s;
        m_started = run(u"initdb"_s,
                        {u"-D"_s, dataDir(), u"-U"_s, u"tamlo"_s, u"-A"_s, u"trust"_s, u"-E"_s, u"UTF8"_s,
                            u"--locale=C"_s, u"--no-sync"_s})
            && run(u"pg_ctl"_s,
                {u"-D"_s, dataDir(), u"-l"_s, m_dir.filePath(u"server.log"_s), u"-w"_s, u"-o"_s,
                    options.arg(port).arg(m_dir.path()), u"start"_s});
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
            error = u"%1 failed: %2"_s.arg(program, QString::fromLocal8Bit(process.readAll()));
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
    [[nodiscard]] QString unavailableReason() const override { return PostgresCluster::instance().missing; }
    [[nodiscard]] QString setupError() const override { return PostgresCluster::instance().error; }
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
    [[nodiscard]] std::unique_ptr<SqlStorage> open() override { return SqlStorage::openPostgres(url()); }
    [[nodiscard]] QStringList serverArguments() const override { return {u"--database"_s, url().toString()}; }

protected:
    [[nodiscard]] QSqlDatabase addConnection(const QString &name) const override
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, name);
        db.setHostName(u"127.0.0.1"_s);
        db.setPort(PostgresCluster::instance().port);
        db.setUserName(u"tamlo"_s);
        db.setDatabaseName(u"postgres"_s);
        return db;
    }

private:
    [[nodiscard]] static QUrl url()
    {
        return QUrl(u"postgresql://tamlo@127.0.0.1:%1/postgres"_s.arg(PostgresCluster::instance().port));
    }
};
} // namespace

std::vector<BackendParam> testBackends()
{
    return {{"PostgreSQL", [] { return std::make_unique<PostgresBackend>(); }, true}};
}

#include "backend.h"

namespace {
// The cluster postgres-cluster.sh started for this run.
QUrl clusterUrl()
{
    return QUrl(qEnvironmentVariable("TAMLO_TEST_POSTGRES"));
}

class PostgresBackend final : public TestBackend
{
public:
    [[nodiscard]] QString unavailableReason() const override
    {
        return clusterUrl().isEmpty() ? u"No cluster: run these tests with postgres-cluster.sh (ctest does)."_s
                                      : QString();
    }
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
    [[nodiscard]] std::unique_ptr<SqlStorage> open() override { return SqlStorage::openPostgres(clusterUrl()); }
    [[nodiscard]] QStringList serverArguments() const override { return {u"--database"_s, clusterUrl().toString()}; }

protected:
    [[nodiscard]] QSqlDatabase addConnection(const QString &name) const override
    {
        const QUrl url = clusterUrl();
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, name);
        db.setHostName(url.host());
        db.setPort(url.port());
        db.setUserName(url.userName());
        db.setDatabaseName(url.path().mid(1));
        return db;
    }
};
} // namespace

std::vector<BackendParam> testBackends()
{
    return {{"PostgreSQL", [] { return std::make_unique<PostgresBackend>(); }, true}};
}

#include "backend.h"

#include <QTemporaryDir>

namespace {
class SqliteBackend final : public TestBackend
{
public:
    void reset() override { } // each backend has a folder of its own
    [[nodiscard]] std::unique_ptr<SqlStorage> open() override { return SqlStorage::openSqlite(file()); }
    [[nodiscard]] QStringList serverArguments() const override { return {u"--data"_s, m_dir.path()}; }

protected:
    [[nodiscard]] QSqlDatabase addConnection(const QString &name) const override
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
        db.setDatabaseName(file());
        return db;
    }

private:
    [[nodiscard]] QString file() const { return m_dir.filePath(u"tamlo-server.sqlite3"_s); }
    QTemporaryDir m_dir;
};
} // namespace

std::vector<BackendParam> testBackends()
{
    return {{"SQLite", [] { return std::make_unique<SqliteBackend>(); }}};
}

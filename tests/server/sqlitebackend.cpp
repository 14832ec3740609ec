#include "testbackend.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {
class SqliteBackend final : public TestBackend
{
public:
    [[nodiscard]] QString name() const override { return u"SQLite"_s; }
    void reset() override
    {
        for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s}) {
            QFile::remove(file() + suffix);
        }
    }
    [[nodiscard]] std::unique_ptr<SqlStorage> open() override { return SqlStorage::openSqlite(file()); }
    [[nodiscard]] QStringList serverArguments() const override { return {u"--data"_s, m_dir.path()}; }
    [[nodiscard]] QVariant scalar(const QString &sql) override
    {
        QVariant result;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"scalar"_s);
            db.setDatabaseName(file());
            if (db.open()) {
                QSqlQuery query(db);
                if (query.exec(sql) && query.next()) {
                    result = query.value(0);
                }
            }
            db.close();
        }
        QSqlDatabase::removeDatabase(u"scalar"_s);
        return result;
    }

private:
    [[nodiscard]] QString file() const { return m_dir.filePath(u"tamlo-server.sqlite3"_s); }
    QTemporaryDir m_dir;
};
} // namespace

std::unique_ptr<TestBackend> makeSqliteBackend()
{
    return std::make_unique<SqliteBackend>();
}

std::vector<BackendParam> testBackends()
{
    return {{"SQLite", makeSqliteBackend}};
}

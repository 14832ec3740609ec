#pragma once

#include "server/sqlstorage.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

inline const QString deviceA = u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s;

// The database the tests run on, as the server opens it: PostgreSQL where postgres-cluster.sh
// started a cluster for this process, SQLite in a folder of its own otherwise.
class TestBackend
{
public:
    [[nodiscard]] bool networked() const { return !m_cluster.isEmpty(); }

    // An empty database: a fresh folder's file, or the cluster's schema thrown away.
    [[nodiscard]] std::unique_ptr<SqlStorage> openEmpty()
    {
        if (networked()) {
            scalar(u"SET client_min_messages TO WARNING; DROP SCHEMA public CASCADE; CREATE SCHEMA public"_s);
        }
        return open();
    }
    [[nodiscard]] std::unique_ptr<SqlStorage> open() const
    {
        return networked() ? SqlStorage::openPostgres(m_cluster) : SqlStorage::openSqlite(file());
    }
    [[nodiscard]] QStringList serverArguments() const
    {
        return networked() ? QStringList {u"--database"_s, m_cluster.toString()}
                           : QStringList {u"--data"_s, m_dir.path()};
    }
    // One statement on a connection of the test's own, past the server's code; its first value.
    QVariant scalar(const QString &sql) const
    {
        QVariant result;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(networked() ? u"QPSQL"_s : u"QSQLITE"_s, u"test-side"_s);
            db.setDatabaseName(networked() ? m_cluster.path().mid(1) : file());
            db.setHostName(m_cluster.host());
            db.setPort(m_cluster.port());
            db.setUserName(m_cluster.userName());
            if (db.open()) {
                QSqlQuery query(db);
                if (query.exec(sql) && query.next()) {
                    result = query.value(0);
                }
            }
        }
        QSqlDatabase::removeDatabase(u"test-side"_s);
        return result;
    }

private:
    [[nodiscard]] QString file() const { return m_dir.filePath(u"tamlo-server.sqlite3"_s); }

    QUrl m_cluster {qEnvironmentVariable("TAMLO_TEST_POSTGRES")};
    QTemporaryDir m_dir;
};

class BackendTest : public ::testing::Test
{
protected:
    void SetUp() override { storage = backend.openEmpty(); }

    TestBackend backend;
    std::unique_ptr<SqlStorage> storage;
};

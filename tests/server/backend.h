#pragma once

#include "server/sqlstorage.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>

#include <functional>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

inline const QString deviceA = QStringLiteral("5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11");

// One database engine as the tests see it: an empty database on demand, opened as the server
// opens it, and the command-line arguments that point a server process at it.
class TestBackend
{
public:
    virtual ~TestBackend() = default;
    // Why the engine cannot run here, or empty: the tests skip.
    [[nodiscard]] virtual QString unavailableReason() const { return {}; }
    // Throws the database away; the next open() starts from nothing.
    virtual void reset() = 0;
    [[nodiscard]] virtual std::unique_ptr<SqlStorage> open() = 0;
    [[nodiscard]] virtual QStringList serverArguments() const = 0;
    // Cuts every connection the database server holds (networked engines only).
    virtual void dropServerConnections() { }

    // One value read on a connection of the test's own, past the server's code.
    [[nodiscard]] QVariant scalar(const QString &sql) const
    {
        QVariant result;
        withConnection([&](QSqlQuery &query) {
            if (query.exec(sql) && query.next()) {
                result = query.value(0);
            }
        });
        return result;
    }

protected:
    [[nodiscard]] virtual QSqlDatabase addConnection(const QString &name) const = 0;

    void withConnection(const std::function<void(QSqlQuery &)> &body) const
    {
        const QString name = QStringLiteral("test-side");
        {
            QSqlDatabase db = addConnection(name);
            if (db.open()) {
                QSqlQuery query(db);
                body(query);
            }
        }
        QSqlDatabase::removeDatabase(name);
    }
};

struct BackendParam
{
    const char *label;
    std::function<std::unique_ptr<TestBackend>()> make;
    bool networked = false; // a server at the other end of a connection, which can be lost
};

// The engines this test executable runs its suites on (sqlitebackend.cpp or postgresbackend.cpp).
[[nodiscard]] std::vector<BackendParam> testBackends();

inline std::string backendName(const ::testing::TestParamInfo<BackendParam> &info)
{
    return info.param.label;
}

inline std::ostream &operator<<(std::ostream &os, const BackendParam &param)
{
    return os << param.label;
}

class BackendTest : public ::testing::TestWithParam<BackendParam>
{
protected:
    void SetUp() override
    {
        backend = GetParam().make();
        if (const QString reason = backend->unavailableReason(); !reason.isEmpty()) {
            GTEST_SKIP() << reason.toStdString();
        }
        backend->reset();
        storage = backend->open();
    }

    std::unique_ptr<TestBackend> backend;
    std::unique_ptr<SqlStorage> storage;
};

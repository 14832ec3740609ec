#pragma once

#include "server/sqlstorage.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// One database engine as the tests see it: an empty database on demand, opened as the server
// opens it, and the command-line arguments that point a server process at it.
class TestBackend
{
public:
    virtual ~TestBackend() = default;
    [[nodiscard]] virtual QString name() const = 0;
    // Why the engine cannot run here (its programs are not installed), or empty: the tests skip.
    [[nodiscard]] virtual QString unavailableReason() const { return {}; }
    // Why it failed to start although it is installed, or empty: the tests fail.
    [[nodiscard]] virtual QString setupError() const { return {}; }
    // Throws the database away; the next open() starts from nothing.
    virtual void reset() = 0;
    [[nodiscard]] virtual std::unique_ptr<SqlStorage> open() = 0;
    [[nodiscard]] virtual QStringList serverArguments() const = 0;
    // Cuts every connection the database server holds (networked engines only).
    virtual void dropServerConnections() { }
    // One value read on a connection of the test's own, past the server's code.
    [[nodiscard]] virtual QVariant scalar(const QString &sql) = 0;
};

using TestBackendFactory = std::function<std::unique_ptr<TestBackend>()>;

[[nodiscard]] std::unique_ptr<TestBackend> makeSqliteBackend();
// One cluster per test process, started on first use, stopped at exit.
[[nodiscard]] std::unique_ptr<TestBackend> makePostgresBackend();

struct BackendParam
{
    const char *label;
    TestBackendFactory make;
    bool networked = false; // a server at the other end of a connection, which can be lost
};

// The engines this test executable runs its suites on.
[[nodiscard]] std::vector<BackendParam> testBackends();

inline std::string backendName(const ::testing::TestParamInfo<BackendParam> &info)
{
    return info.param.label;
}

inline std::ostream &operator<<(std::ostream &os, const BackendParam &param)
{
    return os << param.label;
}

#pragma once

#include "testbackend.h"

#include <gtest/gtest.h>

inline const QString deviceA = QStringLiteral("5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11");
inline const QString idA = QStringLiteral("6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90");
inline const QString idB = QStringLiteral("A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118");

// Runs on every engine a test executable instantiates it with.
class BackendTest : public ::testing::TestWithParam<BackendParam>
{
protected:
    void SetUp() override
    {
        backend = GetParam().make();
        if (const QString reason = backend->unavailableReason(); !reason.isEmpty()) {
            GTEST_SKIP() << reason.toStdString();
        }
        ASSERT_TRUE(backend->setupError().isEmpty()) << backend->setupError().toStdString();
        backend->reset();
        storage = backend->open();
    }

    std::unique_ptr<TestBackend> backend;
    std::unique_ptr<SqlStorage> storage;
};

class StorageTest : public BackendTest
{
};

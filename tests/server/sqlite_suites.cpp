#include "serverfixture.h"

namespace {
const BackendParam sqlite {"SQLite", makeSqliteBackend};
}

INSTANTIATE_TEST_SUITE_P(Sqlite, StorageTest, ::testing::Values(sqlite));
INSTANTIATE_TEST_SUITE_P(Sqlite, ServerApiTest, ::testing::Values(sqlite));
INSTANTIATE_TEST_SUITE_P(Sqlite, LocalModeOffTest, ::testing::Values(sqlite));

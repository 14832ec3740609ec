#include "serverfixture.h"

namespace {
const BackendParam postgres {"PostgreSQL", makePostgresBackend};
}

INSTANTIATE_TEST_SUITE_P(Postgres, StorageTest, ::testing::Values(postgres));
INSTANTIATE_TEST_SUITE_P(Postgres, ServerApiTest, ::testing::Values(postgres));
INSTANTIATE_TEST_SUITE_P(Postgres, LocalModeOffTest, ::testing::Values(postgres));

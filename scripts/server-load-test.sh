#!/usr/bin/env bash
# A bounded load test of tamlo-server on 127.0.0.1 (under a minute; it stops by itself): the days
# page of a user with a year of synced days, and /activity/status for 1,000 devices. Builds an
# optimised tree of its own (build-load/, or the folder given) with only the two programs it runs.
#
#   scripts/server-load-test.sh [BUILD_DIR] [SECONDS_PER_RUN]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-load}
seconds=${2:-10}
if [ ! -f "$build/build.ninja" ]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAMLO_BUILD_TESTS=OFF >/dev/null
fi
# The load program is built with the benchmarks (bench/).
cmake -S . -B "$build" -DTAMLO_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target tamlo-server tamlo_server_loadtest -j "${JOBS:-2}"
echo "$(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
exec "$build/bench/tamlo_server_loadtest" "$build/tamlo-server" "$seconds"

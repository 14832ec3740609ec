#!/usr/bin/env bash
# Builds every benchmark program (bench/) in the given build folder, default build/, and runs
# each in turn; further arguments go to every program (e.g. --benchmark_repetitions=3).
# Use an optimised build: figures from a sanitized one say little.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build}"
cd "$root"

if [ ! -f "$build/build.ninja" ]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAMLO_BUILD_TESTS=OFF
fi
# A folder configured without benchmarks gets them switched on.
cmake -S . -B "$build" -DTAMLO_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target tamlo_benchmarks -j "${JOBS:-$(nproc)}"

status=0
for program in "$build"/bench/programs/*; do
    [ -x "$program" ] || continue
    echo "== $(basename "$program")"
    "$program" "${@:2}" || status=1
done
exit $status

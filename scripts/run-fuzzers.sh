#!/usr/bin/env bash
# Builds the libFuzzer targets under fuzz/ with clang (coverage, ASan and UBSan) and runs each for a
# set time, starting from the checked-in seeds in fuzz/corpus/<target>/.
#
#   scripts/run-fuzzers.sh [target ...]      (default: every target)
#   FUZZ_SECONDS=60     seconds per target
#   FUZZ_BUILD_DIR=build-fuzz
#   FUZZ_JOBS=2         build parallelism
#   FUZZ_MERGE=1        fold inputs that reach new code back into fuzz/corpus/<target>/ afterwards
#
# Whatever a fuzzer finds lands in $FUZZ_BUILD_DIR/findings/<target>/; the script then fails. Keep a
# finding as a regression input by copying it into fuzz/corpus/<target>/ once it is fixed: the test
# suite replays every file there (tests/trust, fuzzreplay_test).
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${FUZZ_BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
jobs=${FUZZ_JOBS:-2}
all_targets=(snapshots_file daily_reports_file credentials_file ollama_response_parser screenshot_reply backend_reply url_routing)
if [ $# -gt 0 ]; then
    targets=("$@")
else
    targets=("${all_targets[@]}")
fi

# The sanitizers go in the flags rather than through TAMLO_SANITIZE, because clang 14 cannot emit
# coroutines under coverage together with UBSan's function check ("Cannot represent a difference
# across sections"), and that one check must come after -fsanitize=undefined to be left out.
if [ ! -f "$build_dir/build.ninja" ]; then
    sanitize="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=function -fno-sanitize-recover=undefined"
    cmake -S . -B "$build_dir" -G Ninja \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_COMPILER=clang++ \
        "-DCMAKE_CXX_FLAGS=$sanitize -fno-omit-frame-pointer" \
        "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=address,undefined" \
        -DTAMLO_FUZZ=ON -DTAMLO_BUILD_TESTS=OFF -DTAMLO_BUILD_BENCH=OFF
fi
cmake --build "$build_dir" -j "$jobs" --target $(printf 'fuzz_%s ' "${targets[@]}")

# Leaks are left to the sanitized test suite: Qt keeps caches across inputs that look like leaks here.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export QT_QPA_PLATFORM=offscreen

failed=()
for target in "${targets[@]}"; do
    seeds=fuzz/corpus/$target
    work=$build_dir/corpus/$target
    findings=$build_dir/findings/$target
    mkdir -p "$work" "$findings"
    echo "== $target: ${seconds}s"
    if ! "$build_dir/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 \
        -artifact_prefix="$findings/" -print_final_stats=1 "$work" "$seeds" 2>"$build_dir/$target.log"; then
        failed+=("$target")
    fi
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$build_dir/$target.log" || true
    if [ "${FUZZ_MERGE:-0}" = 1 ]; then
        "$build_dir/fuzz/fuzz_$target" -merge=1 "$seeds" "$work" 2>>"$build_dir/$target.log" >/dev/null
    fi
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "Findings in: ${failed[*]} (inputs under $build_dir/findings/, logs in $build_dir/<target>.log)" >&2
    exit 1
fi
echo "No findings."

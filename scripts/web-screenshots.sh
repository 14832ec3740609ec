#!/usr/bin/env bash
# Runs the browser test (real headless Chromium against a real tamlo-server) and keeps its
# screenshots of every web page under docs/screenshots/web-*.png, reduced to a small palette.
#
#   scripts/web-screenshots.sh [BUILD_DIR]     (default build-test, as `make test` leaves it)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-test}
cmake --build "$build" --target tamlo-server -j "${JOBS:-2}"
shots=$(mktemp -d)
trap 'rm -rf "$shots"' EXIT
ASAN_OPTIONS=detect_leaks=0 TZ=Europe/Berlin /usr/bin/python3 tests/server/web/browser_test.py \
    --server "$build/tamlo-server" --screenshots "$shots"
for shot in "$shots"/*.png; do
    name=web-$(basename "$shot")
    cp "$shot" "docs/screenshots/$name"
    # A small palette without dithering, where that makes the file smaller.
    if command -v convert >/dev/null && convert "$shot" +dither -colors 160 "PNG8:$shots/small.png" &&
        [ "$(stat -c %s "$shots/small.png")" -lt "$(stat -c %s "$shot")" ]; then
        mv "$shots/small.png" "docs/screenshots/$name"
    fi
done
ls -l docs/screenshots/web-*.png

#!/usr/bin/env bash
# `make package`: builds tamlo_*.deb and tamlo-server_*.deb in their own build folder, with the
# flags of `make` (RelWithDebInfo, warnings as errors, no sanitizers, no tests or benchmarks),
# then checks them: lintian, and the validators of the desktop entry and the AppStream metadata.
set -euo pipefail

build_dir="${1:-build-package}"
jobs="${JOBS:-$(nproc)}"

# Configured each time, so the version follows the commit being packaged.
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DTAMLO_BUILD_TESTS=OFF -DTAMLO_BUILD_BENCH=OFF -DTAMLO_SANITIZE=OFF ${CMAKE_FLAGS:-} >/dev/null
cmake --build "$build_dir" -j "$jobs"
rm -f "$build_dir"/tamlo_*.deb "$build_dir"/tamlo-server_*.deb
(cd "$build_dir" && cpack -G DEB >/dev/null)

debs=("$build_dir"/tamlo_*.deb "$build_dir"/tamlo-server_*.deb)
check=$(mktemp -d)
trap 'rm -rf "$check"' EXIT
dpkg-deb -x "$build_dir"/tamlo_*.deb "$check"
desktop-file-validate "$check/usr/share/applications/tamlo.desktop"
appstreamcli validate --no-net --pedantic "$check/usr/share/metainfo/com.mirevon.Tamlo.metainfo.xml"
# Errors fail the build; warnings are printed.
lintian --fail-on error "${debs[@]}"
echo "Built ${debs[*]}"

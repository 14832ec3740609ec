#!/usr/bin/env bash
# Prints the time of one capture of a 2560 x 1600 output under a headless sway, through the
# screencopy protocol and through `grim -t ppm -`, by running tamlo_bench_wayland_capture
# (BUILD_DIR, default build/) against it. sway will not run as root: as root it runs as nobody.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build}"
cd "$root"
if [ ! -f "$build/build.ninja" ]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAMLO_BUILD_TESTS=OFF
fi
cmake -S . -B "$build" -DTAMLO_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target tamlo_bench_wayland_capture -j "${JOBS:-$(nproc)}"

work="$(mktemp -d /tmp/tamlo-wl-bench-XXXXXX)"
runtime="$work/runtime"
mkdir -m 0700 "$runtime"
as=()
if [ "$(id -u)" -eq 0 ]; then
    chown nobody "$runtime"
    chmod 0755 "$work"
    as=(setpriv --reuid="$(id -u nobody)" --regid="$(id -g nobody)" --clear-groups)
fi
cat >"$work/sway.conf" <<CONF
xwayland disable
output HEADLESS-1 mode --custom 2560x1600 bg #3a6ea5 solid_color
CONF
"${as[@]}" env -i PATH="$PATH" HOME="$runtime" XDG_RUNTIME_DIR="$runtime" WLR_BACKENDS=headless \
    WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman sway -c "$work/sway.conf" >"$work/sway.log" 2>&1 &
sway_pid=$!
trap 'kill "$sway_pid" 2>/dev/null; wait "$sway_pid" 2>/dev/null || true; rm -rf "$work"' EXIT

for _ in $(seq 50); do
    socket="$(find "$runtime" -maxdepth 1 -type s -name 'wayland-*' | head -1)"
    [ -n "$socket" ] && break
    sleep 0.1
done
[ -n "$socket" ] || { cat "$work/sway.log"; exit 1; }
sleep 0.5 # the background's first frame
WAYLAND_DISPLAY="$socket" "$build/bench/programs/tamlo_bench_wayland_capture" "${@:2}"

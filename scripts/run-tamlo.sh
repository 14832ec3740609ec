#!/usr/bin/env bash
# Starts Tamlo from a build folder. Without a desktop (no DISPLAY or WAYLAND_DISPLAY) it first
# starts a virtual X screen and a session bus, so the panel can be seen and captured anywhere.
# The local tamlo-server of the same build is started too when nothing answers on its port yet.
set -euo pipefail

build_dir="${1:-build}"
tamlo="$build_dir/tamlo"
server="$build_dir/tamlo-server"
server_address="127.0.0.1:8787"

if [ ! -x "$tamlo" ]; then
    echo "No Tamlo program at $tamlo; build it first (make)." >&2
    exit 1
fi

children=()
cleanup() {
    for pid in "${children[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
}

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    if ! command -v Xvfb >/dev/null; then
        echo "No desktop and no Xvfb; install it with scripts/install-deps.sh." >&2
        exit 1
    fi
    display=99
    while [ -e "/tmp/.X11-unix/X$display" ] || [ -e "/tmp/.X$display-lock" ]; do
        display=$((display + 1))
    done
    Xvfb ":$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
    children+=("$!")
    export DISPLAY=":$display"
    for _ in $(seq 1 50); do
        [ -e "/tmp/.X11-unix/X$display" ] && break
        sleep 0.1
    done
    echo "Started a virtual screen on $DISPLAY"
    if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ] && command -v dbus-daemon >/dev/null; then
        bus_info="$(dbus-daemon --session --fork --print-address=1 --print-pid=1)"
        export DBUS_SESSION_BUS_ADDRESS="$(echo "$bus_info" | sed -n 1p)"
        children+=("$(echo "$bus_info" | sed -n 2p)")
    fi
fi

server_answers() {
    (exec 3<>"/dev/tcp/${server_address%:*}/${server_address#*:}") 2>/dev/null
}

if [ -x "$server" ] && ! server_answers; then
    server_log_dir="${XDG_STATE_HOME:-$HOME/.local/state}/tamlo-server"
    mkdir -p "$server_log_dir"
    "$server" --listen "$server_address" >>"$server_log_dir/tamlo-server.log" 2>&1 &
    children+=("$!")
    echo "Started the local tamlo-server on $server_address (log in $server_log_dir/tamlo-server.log)"
fi

if [ ${#children[@]} -eq 0 ]; then
    exec "$tamlo"
fi
# Helpers were started here, so stay to stop them when Tamlo ends.
trap cleanup EXIT
"$tamlo"

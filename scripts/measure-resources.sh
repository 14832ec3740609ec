#!/usr/bin/env bash
# Measures what Tamlo costs while it runs, and checks what it must never leave behind, with the real
# program under Xvfb, a stand-in Ollama on 127.0.0.1:11434 and a stand-in backend, in a home folder
# of its own:
#   - time from start to the first request to Ollama, with 3,000 records and a year of reports on disk
#   - resident memory after start and across ticks, with the panel closed and with it open
#   - CPU between ticks
#   - privacy: no picture file under the home or temporary folders, credentials.plist 0600 and the
#     data folders 0700 after a sign-in through a tamlo:// URL, the session token in no output
#
#   scripts/measure-resources.sh [build folder, default build]
#   TICKS=100         ticks with the panel closed; a tick is 30 s, so 100 take 50 min
#   OPEN_TICKS=10     ticks with the panel open, and again after it has closed
#   TRAY=1            a desktop with a system tray (trayer): the panel is never built, and only the
#                     ticks of a user who never opens it are measured
#   KEEP=1            keep the temporary home afterwards
#   OWN_LIBS=1        Tamlo loads its own copies of its libraries and Qt plugins (all but the C and C++
#                     runtimes), so that pages other running programs share with it do not count in its
#                     RSS: the figure of a desktop where no other Qt program runs, on a busy machine too
#
# Targets: no growth of resident memory across ticks, at most 40 MB with the panel closed and
# 60 MB with it open, effectively no CPU between ticks, under 300 ms to the first request.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build}"
closed_ticks="${TICKS:-100}"
open_ticks="${OPEN_TICKS:-10}"
program="$root/$build/tamlo"
[ -x "$program" ] || { echo "No $program: build it first (make build)" >&2; exit 2; }
tray="${TRAY:-0}"
for tool in Xvfb dbus-daemon python3 xdotool $([ "$tray" = 1 ] && echo trayer); do
    command -v "$tool" >/dev/null || { echo "Missing $tool (scripts/install-deps.sh)" >&2; exit 2; }
done
# As root the run gets a network of its own, so neither a real Ollama nor anyone else's stand-in on
# port 11434 can answer in place of ours.
if [ -z "${TAMLO_MEASURE_ISOLATED:-}" ] && [ "$(id -u)" = 0 ] && command -v unshare >/dev/null; then
    export TAMLO_MEASURE_ISOLATED=1
    exec unshare --net -- bash -c 'ip link set lo up && exec "$0" "$@"' "$0" "$@"
fi
if (exec 3<>/dev/tcp/127.0.0.1/11434) 2>/dev/null; then
    echo "Port 11434 is taken (a real Ollama?); stop it first" >&2
    exit 2
fi

work="$(mktemp -d /tmp/tamlo-measure-XXXXXX)"
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    if [ "${KEEP:-0}" = 1 ]; then echo "Kept $work"; else rm -rf "$work"; fi
}
trap cleanup EXIT

own_libs=()
if [ "${OWN_LIBS:-0}" = 1 ]; then
    qt_plugins="$(qtpaths6 --plugin-dir 2>/dev/null || echo /usr/lib/x86_64-linux-gnu/qt6/plugins)"
    mkdir -p "$work/libs"
    cp -rL "$qt_plugins" "$work/plugins"
    { ldd "$program"; find "$work/plugins" -name '*.so' -exec ldd {} \;; } | awk '/=> \// {print $3}' | sort -u \
        | grep -vE '/(libc|libm|libstdc\+\+|libgcc_s|libpthread|libdl|ld-linux[^/]*)\.so' \
        | while read -r lib; do cp -L "$lib" "$work/libs/"; done
    own_libs=(LD_LIBRARY_PATH="$work/libs" QT_PLUGIN_PATH="$work/plugins")
fi

export HOME="$work/home"
export TMPDIR="$work/tmp"
mkdir -p "$HOME" "$TMPDIR"
unset XDG_DATA_HOME XDG_CONFIG_HOME XDG_CACHE_HOME XDG_RUNTIME_DIR WAYLAND_DISPLAY XDG_SESSION_TYPE
session_token="tok-measure-$(date +%s%N)"
backend_port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')

# A day of records so far and a year of reports, in the files' own form.
python3 - "$HOME" "$backend_port" <<'EOF'
import datetime, json, os, sys, uuid
home, port = sys.argv[1], sys.argv[2]
data = os.path.join(home, ".local/share/Tamlo")
os.makedirs(data, exist_ok=True)
reference = datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc)
now = datetime.datetime.now().astimezone()
midnight = now.replace(hour=0, minute=0, second=0, microsecond=0)
step = max((now - midnight).total_seconds() - 60, 1) / 3000
records = []
for i in range(3000):
    at = midnight + datetime.timedelta(seconds=i * step)
    records.append({"id": str(uuid.uuid4()).upper(), "timestamp": (at - reference).total_seconds(),
                    "aiCategory": ["Coding", "Writing", "Email"][i % 3], "imageHash": uuid.uuid4().hex * 2,
                    "projectName": ["Website", "Tamlo"][i % 2],
                    "activityDescription": "Editing checkout.css and reviewing the pull request #%d" % i})
with open(os.path.join(data, "snapshots.json"), "w") as f:
    json.dump(records, f, separators=(",", ":"))
reports = []
for d in range(365, 0, -1):
    day = (midnight - datetime.timedelta(days=d)).date()
    reports.append({"date": day.isoformat(), "totalActiveSeconds": 25200,
                    "projects": [{"name": "Website", "seconds": 18000, "percentage": 71.4},
                                 {"name": "Tamlo", "seconds": 7200, "percentage": 28.6}],
                    "categories": [{"name": "Coding", "seconds": 25200, "percentage": 100}],
                    "summary": "A focused day on the checkout page and the release notes.", "majorTasks": [],
                    "generatedAt": (datetime.datetime.combine(day, datetime.time(23, 59)).astimezone()
                                    - reference).total_seconds()})
with open(os.path.join(data, "daily-reports.json"), "w") as f:
    json.dump(reports, f, separators=(",", ":"))
config = os.path.join(home, ".config/Tamlo")
os.makedirs(config, exist_ok=True)
with open(os.path.join(config, "Tamlo.conf"), "w") as f:
    f.write("[General]\ncategorizeBy=\"Coding, Writing, Email\"\ndidCompleteInitialSetup=true\n"
            "selectedOllamaModel=qwen3-vl:2b\nuserProjects=\"Website, Tamlo\"\n"
            "convexURL=http://127.0.0.1:%s\n" % port)
    # Xvfb's screen never changes and nobody types: every tick is measured as a full analysis.
    f.write("skipUnchangedScreens=false\nawayThresholdMinutes=0\n")
EOF

# The stand-in Ollama and backend: each request is logged with the time it arrived.
cat >"$work/standins.py" <<'EOF'
import json, sys, threading, time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
log_path, backend_port, token = sys.argv[1], int(sys.argv[2]), sys.argv[3]
lock = threading.Lock()
def note(kind, method, path):
    with lock, open(log_path, "a") as f:
        f.write("%.6f %s %s %s\n" % (time.time(), kind, method, path))
class Handler(BaseHTTPRequestHandler):
    kind = "ollama"
    def log_message(self, *args): pass
    def answer(self, body):
        data = json.dumps(body).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)
    def do_GET(self):
        note(self.kind, "GET", self.path)
        if self.kind == "ollama":
            self.answer({"models": [{"name": "qwen3-vl:2b", "model": "qwen3-vl:2b"}]})
        else:
            self.answer({"id": "u1", "email": "measure@example.com"})
    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        note(self.kind, "POST", self.path)
        if self.kind == "backend":
            if self.path == "/auth/verify-token":
                self.answer({"sessionToken": token, "user": {"id": "u1", "email": "measure@example.com"}})
            else:
                self.answer({"ok": True})
            return
        if b'"images"' in body:
            content = {"category": "Coding", "projectName": "Website", "activityDescription": "Editing checkout.css"}
        else:
            content = {"summary": "A focused day."}
        self.answer({"model": "qwen3-vl:2b", "message": {"role": "assistant", "content": json.dumps(content)},
                     "done": True})
class Backend(Handler):
    kind = "backend"
servers = [ThreadingHTTPServer(("127.0.0.1", 11434), Handler), ThreadingHTTPServer(("127.0.0.1", backend_port), Backend)]
for server in servers[1:]:
    threading.Thread(target=server.serve_forever, daemon=True).start()
servers[0].serve_forever()
EOF
requests="$work/requests.log"
touch "$requests"
python3 "$work/standins.py" "$requests" "$backend_port" "$session_token" &
pids+=($!)

display=":$((90 + RANDOM % 100))"
Xvfb "$display" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
bus_info=$(dbus-daemon --session --fork --print-address=1 --print-pid=1)
bus_address=$(echo "$bus_info" | sed -n 1p)
pids+=("$(echo "$bus_info" | sed -n 2p)")
export DISPLAY="$display" DBUS_SESSION_BUS_ADDRESS="$bus_address" DBUS_SYSTEM_BUS_ADDRESS="$bus_address"
export QT_QPA_PLATFORM=xcb
for _ in $(seq 50); do xdpyinfo -display "$display" >/dev/null 2>&1 && break; sleep 0.1; done
for _ in $(seq 50); do (exec 3<>/dev/tcp/127.0.0.1/11434) 2>/dev/null && break; sleep 0.1; done
if [ "$tray" = 1 ]; then
    trayer --edge top --align right --widthtype request --height 24 >/dev/null 2>&1 &
    pids+=($!)
    for _ in $(seq 50); do xdotool search --class trayer >/dev/null 2>&1 && break; sleep 0.1; done
    sleep 0.5
fi

rss_kb() { awk '/^VmRSS:/ {print $2}' "/proc/$1/status"; }
# Resident pages shared with other programs count in full in each one's RSS, and in shares in PSS.
pss_kb() { awk '/^Pss:/ {print $2}' "/proc/$1/smaps_rollup"; }
# The pages no other program maps, whatever else runs beside it.
uss_kb() { awk '/^Private_(Clean|Dirty):/ {sum += $2} END {print sum}' "/proc/$1/smaps_rollup"; }
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
chats() { grep -c "ollama POST /api/chat" "$requests" || true; }
wait_for_chats() { # count, seconds
    local deadline=$((SECONDS + $2))
    while [ "$(chats)" -lt "$1" ] && [ $SECONDS -lt $deadline ]; do sleep 0.2; done
    [ "$(chats)" -ge "$1" ]
}

start_ns=$(date +%s%N)
env "${own_libs[@]}" "$program" >"$work/tamlo.out" 2>&1 &
app=$!
pids+=($app)
wait_for_chats 1 60 || { echo "No analysis request within 60 s" >&2; cat "$work/tamlo.out" >&2; exit 1; }
first=$(awk '$2 == "ollama" {print $1; exit}' "$requests")
first_ms=$(python3 -c "print(round(($first - $start_ns / 1e9) * 1000))")
sleep 2
rss_start=$(rss_kb "$app")

# The panel is the window titled Tamlo that is more than Qt's 1x1 helper of the same name.
panel_window() {
    local w
    for w in $(xdotool search --name '^Tamlo$' 2>/dev/null || true); do
        if [ "$(xwininfo -id "$w" | awk '/Width:/ {print $2}')" -gt 1 ]; then echo "$w"; return; fi
    done
}
# Without a tray under Xvfb the panel opens as a window at start; closing it only hides it.
close_panel() {
    local window
    window=$(panel_window)
    [ -n "$window" ] || return 0
    python3 - "$display" "$window" <<'EOF'
import ctypes, sys
x = ctypes.cdll.LoadLibrary("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XFlush.argtypes = [ctypes.c_void_p]
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
x.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long, ctypes.c_void_p]
display = x.XOpenDisplay(sys.argv[1].encode())
window = int(sys.argv[2])
class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("l", ctypes.c_long * 5), ("pad", ctypes.c_char * 96)]
event = ClientMessage(type=33, window=window, message_type=x.XInternAtom(display, b"WM_PROTOCOLS", 0), format=32)
event.l[0] = x.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
x.XSendEvent(display, window, 0, 0, ctypes.byref(event))
x.XFlush(display)
EOF
}
# A closed panel is let go a minute later; the closed phase starts once it has gone.
release_wait=65
if [ "$tray" != 1 ]; then
    close_panel
    sleep "$release_wait"
fi
panel_state() {
    local window
    window=$(panel_window)
    if [ -z "$window" ]; then echo "no window"; else xwininfo -id "$window" | awk -F': *' '/Map State/ {print $2}'; fi
}

# One phase: RSS after each tick, CPU in the quiet part of each gap (from 3 s after a tick's request
# to 3 s before the next).
measure_phase() { # name ticks
    local name=$1 ticks=$2 done=0 base cpu_idle=0 idle_s=0 rss_first rss_tick1=0 rss_last rss_max c0 c1 t0 t1
    base=$(chats)
    rss_first=$(rss_kb "$app"); rss_max=$rss_first
    while [ $done -lt "$ticks" ]; do
        wait_for_chats $((base + done + 1)) 45 || { echo "Ticks stopped in phase $name" >&2; return 1; }
        done=$((done + 1))
        sleep 3
        t0=$(date +%s%N); c0=$(cpu_ticks "$app")
        if [ $done -lt "$ticks" ]; then
            sleep 24
            t1=$(date +%s%N); c1=$(cpu_ticks "$app")
            cpu_idle=$((cpu_idle + c1 - c0)); idle_s=$((idle_s + (t1 - t0) / 1000000))
        fi
        rss_last=$(rss_kb "$app")
        if [ $done -eq 1 ]; then rss_tick1=$rss_last; fi
        if [ "$rss_last" -gt "$rss_max" ]; then rss_max=$rss_last; fi
    done
    local hz
    hz=$(getconf CLK_TCK)
    python3 - "$name" "$ticks" "$rss_first" "$rss_tick1" "$rss_last" "$rss_max" "$cpu_idle" "$hz" "$idle_s" "$(pss_kb "$app")" <<'EOF'
import sys
name, ticks, first, tick1, last, peak, cpu, hz, idle_ms, pss = sys.argv[1], *map(int, sys.argv[2:])
cpu_ms = cpu * 1000 / hz
share = 100 * cpu_ms / idle_ms if idle_ms else 0.0
print("%-13s RSS %.1f MB as the phase starts, %.1f MB after its first tick, %.1f MB after %d ticks (peak %.1f MB; "
      "growth from the first tick %+.1f MB; PSS %.1f MB); CPU between ticks %.0f ms over %.0f s (%.3f %%)"
      % (name, first / 1024, tick1 / 1024, last / 1024, ticks, peak / 1024, (last - tick1) / 1024, pss / 1024,
         cpu_ms, idle_ms / 1000, share))
EOF
}

echo "== Tamlo resources ($(date -u +%FT%TZ), $(nproc) CPUs, $build)"
echo "Start to first request to Ollama: ${first_ms} ms (3,000 records, 365 reports on disk; target < 300 ms)"
if [ "$tray" = 1 ]; then
    echo "RSS after start with a tray, the panel never built: $((rss_start / 1024)) MB (PSS $(( $(pss_kb "$app") / 1024 )) MB, its own pages $(( $(uss_kb "$app") / 1024 )) MB)"
    echo "Panel: $(panel_state)"
    measure_phase "never opened" "$closed_ticks"
    echo "Target: a tray user who never opens the panel at 25 MB or less"
    open_ticks=0
else
echo "RSS after start, the panel open as it is without a tray: $((rss_start / 1024)) MB"
echo "Panel: $(panel_state)"
measure_phase "panel closed" "$closed_ticks"
env "${own_libs[@]}" "$program" >/dev/null 2>&1 # a second start shows the running instance's panel
sleep 2
echo "Panel: $(panel_state)"
measure_phase "panel open" "$open_ticks"
# Opened and let go again: a rebuilt panel must not leave anything behind.
close_panel
sleep "$release_wait"
echo "Panel: $(panel_state)"
measure_phase "closed again" "$open_ticks"
echo "Targets: panel closed <= 40 MB, open <= 60 MB, no growth across ticks, ~0 % CPU between ticks"
fi

echo "== Privacy"
env "${own_libs[@]}" "$program" "tamlo://auth?token=one-time-measure" >/dev/null 2>&1
for _ in $(seq 50); do [ -f "$HOME/.local/share/mirevon.Tamlo/credentials.plist" ] && break; sleep 0.1; done
verdict() { if [ "$2" = "$3" ]; then echo "ok    $1"; else echo "FAIL  $1: $2 (want $3)"; failed=1; fi; }
failed=0
verdict "credentials.plist mode" "$(stat -c %a "$HOME/.local/share/mirevon.Tamlo/credentials.plist" 2>/dev/null || echo missing)" 600
verdict "data folder mode" "$(stat -c %a "$HOME/.local/share/Tamlo")" 700
verdict "credentials folder mode" "$(stat -c %a "$HOME/.local/share/mirevon.Tamlo" 2>/dev/null || echo missing)" 700
images=$(find "$HOME" "$TMPDIR" -type f \( -iname '*.png' -o -iname '*.jpg' -o -iname '*.jpeg' -o -iname '*.ppm' \) | wc -l)
verdict "picture files under home and temp" "$images" 0
# The sign-in starts the periodic upload, which carries the token to the backend.
for _ in $(seq 100); do grep -q "backend POST /activity/sync" "$requests" && break; sleep 0.1; done
verdict "an upload after the sign-in" "$(grep -q "backend POST /activity/sync" "$requests" && echo yes || echo no)" yes
leaks=$({ grep -rl --binary-files=text "$session_token" "$work/tamlo.out" "$HOME/.config" "$HOME/.local/share/Tamlo" \
    "$HOME/Documents" 2>/dev/null || true; } | wc -l)
verdict "files or output holding the session token (besides credentials.plist)" "$leaks" 0
exit $failed

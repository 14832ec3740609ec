"""The desktop of the end-to-end scenarios, every part a real process: Xvfb, a private dbus-daemon (session
and system bus at once), a stand-in Ollama on 127.0.0.1:11434 that keeps what it is sent, tamlo-server on a
free port, a home of its own. As root the run first moves into a network of its own, where no real Ollama
answers. A scenario subclasses Desktop, writes scenario() and calls main(): 0 passed, 1 failed, 77 skipped."""

import argparse
import base64
import contextlib
import ctypes
import hashlib
import http.server
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

from PIL import ImageGrab

OLLAMA_ADDRESS = ("127.0.0.1", 11434)
EMAIL = "ada@example.org"
ISOLATED = "TAMLO_E2E_ISOLATED"


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def wait_for(what, condition, timeout, interval=0.2):
    deadline = time.monotonic() + timeout
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise Failure("Timed out after %d s waiting for %s" % (timeout, what))
        time.sleep(interval)
    return result


def port_taken(address):
    with socket.socket() as probe:
        probe.settimeout(0.5)
        return probe.connect_ex(address) == 0


def isolate_network():
    """As root, runs again in a network and process namespace of its own: its loopback has no Ollama,
    and when this process ends, everything it started ends with it."""
    if os.environ.get(ISOLATED) or os.geteuid() != 0 or not shutil.which("unshare"):
        return
    namespace = ["unshare", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if subprocess.run(namespace + ["ip", "link", "set", "lo", "up"], capture_output=True).returncode == 0:
        os.environ[ISOLATED] = "1"
        command = namespace + ["sh", "-c", 'ip link set lo up && exec "$@"', "sh", sys.executable] + sys.argv
        os.execvp(command[0], command)


class StandInOllama(http.server.ThreadingHTTPServer):
    """Two models, and chat replies in Ollama's shapes; every request kept (a list's append is atomic)."""

    def __init__(self):
        super().__init__(OLLAMA_ADDRESS, OllamaHandler)
        self.requests = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def analyses(self):
        return [r for r in list(self.requests) if r.get("imageHash")]


class OllamaHandler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, entry, body):
        self.server.requests.append(dict(entry, path=self.path))
        data = json.dumps(body).encode()
        self.send_response(200 if body else 404)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_GET(self):
        models = [{"name": name, "model": name, "size": 1234} for name in ("qwen3-vl:2b", "qwen3-vl:4b")]
        self.reply({}, {"models": models} if self.path == "/api/tags" else {})

    def do_POST(self):
        request = json.loads(self.rfile.read(int(self.headers.get("Content-Length", 0))) or b"{}")
        entry, content = {"model": request.get("model")}, {"summary": "A focused day on the checkout page."}
        images = [image for message in request.get("messages", []) for image in message.get("images", [])]
        if images:
            entry["imageHash"] = hashlib.sha256(base64.b64decode(images[0])).hexdigest()
            content = {"category": "Coding", "projectName": "Website",
                       "activityDescription": "Editing checkout.css in the editor"}
        self.reply(entry, self.path == "/api/chat" and {
            "model": "qwen3-vl:2b", "created_at": "2026-01-01T00:00:00Z", "done": True, "done_reason": "stop",
            "message": {"role": "assistant", "content": json.dumps(content)}})


class Desktop:
    tools = ()  # programs the scenario needs beyond the desktop's own
    needs_own_network = False

    def __init__(self, args):
        self.args = args
        self.work = tempfile.mkdtemp(prefix="tamlo-e2e-")
        self.processes, self.logs = [], []
        self.ollama = self.env = self.app = self.a11y_bus = None
        self.home = os.path.join(self.work, "home")
        self.server_data = os.path.join(self.work, "server")
        self.started = time.monotonic()

    def say(self, message):
        print("[%5.1f s] %s" % (time.monotonic() - self.started, message), flush=True)

    def start(self, name, command, **kwargs):
        # Should this script be killed outright, its children go with it (1: PR_SET_PDEATHSIG).
        with open(os.path.join(self.work, name + ".log"), "wb") as log:
            self.logs.append(name)
            process = subprocess.Popen(command, env=kwargs.pop("env", self.env), stdout=kwargs.pop("stdout", log),
                                       stderr=subprocess.STDOUT, **kwargs,
                                       preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGKILL))
        self.processes.append(process)
        return process

    def run(self, *command, env=None, text=True, timeout=60, **kwargs):
        return subprocess.run(command, env=env or self.env, capture_output=True, text=text, timeout=timeout, **kwargs)

    def log_text(self, name):
        with open(os.path.join(self.work, name + ".log"), errors="replace") as f:
            return f.read()

    def set_up(self):
        self.ollama = StandInOllama()
        self.set_up_desktop()
        if getattr(self.args, "server", None):
            self.start_server()

    def set_up_desktop(self):
        env = {k: v for k, v in os.environ.items()
               if not k.startswith(("XDG_", "DBUS_", "WAYLAND_")) and k not in ("DISPLAY", "XAUTHORITY")}
        for folder in ("home", "run", "tmp", "bin"):
            os.makedirs(os.path.join(self.work, folder), mode=0o700)
        env.update(HOME=self.home, TMPDIR=self.work + "/tmp", XDG_RUNTIME_DIR=self.work + "/run",
                   XDG_SESSION_TYPE="x11", PATH=self.work + "/bin:" + env.get("PATH", "/bin"), QT_QPA_PLATFORM="xcb",
                   QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        os.symlink(shutil.which("true"), self.work + "/bin/xdg-open")  # no real browser ever opens
        self.env = env

        # Xvfb names a display nobody holds once it accepts connections, so a test beside this one never
        # talks to a display about to go. The read end stays open: a server that finds it closed ends.
        self.display_pipe, write_end = os.pipe()
        xvfb = self.start("xvfb", ["Xvfb", "-displayfd", str(write_end), "-noreset", "-screen", "0", "1280x800x24",
                                   "-nolisten", "tcp"], pass_fds=(write_end,))
        os.close(write_end)
        display = os.read(self.display_pipe, 64).decode().strip()  # nothing if Xvfb ends first
        check(display.isdigit() and xvfb.poll() is None, "Xvfb gave no display: " + self.log_text("xvfb"))
        env["DISPLAY"] = ":" + display
        # A group of its own, with what it starts on demand (the accessibility bus and its registry).
        self.bus = self.start("dbus", ["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                              stdout=subprocess.PIPE, process_group=0)
        env["DBUS_SESSION_BUS_ADDRESS"] = env["DBUS_SYSTEM_BUS_ADDRESS"] = self.bus.stdout.readline().decode().strip()
        check(env["DBUS_SESSION_BUS_ADDRESS"], "dbus-daemon gave no address")

    def configure(self, **settings):
        path = self.home + "/.config/Tamlo/Tamlo.conf"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        header = "" if os.path.exists(path) else "[General]\n"
        with open(path, "a") as f:
            f.write(header + "".join("%s=%s\n" % setting for setting in settings.items()))

    def start_server(self):
        self.start("server", [self.args.server, "--listen", "127.0.0.1:0", "--data", self.server_data])
        self.server_url = wait_for("tamlo-server to listen", lambda: re.findall(
            r"listening on [\d.:]+, public URL (\S+),", self.log_text("server")), 30)[0]
        self.configure(convexURL=self.server_url)

    def server_cli(self, *arguments):
        result = self.run(self.args.server, "--data", self.server_data, *arguments)
        check(result.returncode == 0, "tamlo-server %s failed: %s" % (arguments[0], result.stderr))
        return result.stdout

    def server_lines(self, request):
        return [line for line in self.log_text("server").splitlines() if request in line]

    def sign_in_by_link(self):
        self.server_cli("user", "add", EMAIL)
        self.open_url(self.server_cli("login-link", EMAIL).strip())

    def uploaded_today(self):
        days = json.loads(self.server_cli("export", EMAIL)).get("days", [])
        return next((d for d in days if d.get("date") == time.strftime("%Y-%m-%d")), None)

    def start_tamlo(self):
        self.app = self.start("tamlo", [self.args.tamlo])

    def open_url(self, url):
        """Tamlo started again, as the desktop does for a link or the launcher: it hands on to the one running."""
        result = self.run(self.args.tamlo, *[url] if url else [])
        check(result.returncode == 0, "tamlo %s exited %d: %s" % (url[:16], result.returncode, result.stderr))

    def still_running(self):
        check(self.app.poll() is None, "tamlo ended early with status %s" % self.app.returncode)

    def snapshots(self, description=None):
        try:
            with open(self.home + "/.local/share/Tamlo/snapshots.json") as f:
                return [s for s in json.load(f) if description in (None, s.get("activityDescription"))]
        except (OSError, ValueError):
            return []

    def analysed(self):
        return [s for s in self.snapshots() if s.get("imageHash")]

    def on_panel(self, name, timeout):
        return wait_for("%r on the panel" % name, lambda: name in self.panel_names() and self.panel_names(), timeout)

    def a11y(self, dest, path, method, *args, bus=None):
        result = self.run("dbus-send", "--bus=" + (bus or self.a11y_bus), "--print-reply", "--dest=" + dest, path,
                          method, *args)
        return result.stdout if result.returncode == 0 else ""

    def panel_names(self):
        """The names of what Tamlo's windows show now, read as assistive technology reads them."""
        self.a11y_bus = self.a11y_bus or "".join(re.findall(r'string "(.*)"', self.a11y(
            "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus.GetAddress", bus=self.env["DBUS_SESSION_BUS_ADDRESS"])))
        if not self.a11y_bus:
            return set()
        names, children = set(), r'string "([^"]*)"\s+object path "([^"]*)"'
        pending = re.findall(children, self.a11y("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root",
                                                 "org.a11y.atspi.Accessible.GetChildren"))
        while pending and len(names) < 500:
            dest, path = pending.pop()
            if "application" not in self.a11y(dest, path, "org.a11y.atspi.Accessible.GetRoleName"):
                states = re.findall(r"uint32 (\d+)", self.a11y(dest, path, "org.a11y.atspi.Accessible.GetState"))
                if not states or not int(states[0]) & (1 << 25):  # AT-SPI's "showing"
                    continue
                names.update(re.findall(r'string "(.*)"', self.a11y(
                    dest, path, "org.freedesktop.DBus.Properties.Get", "string:org.a11y.atspi.Accessible",
                    "string:Name")))
            pending.extend(re.findall(children, self.a11y(dest, path, "org.a11y.atspi.Accessible.GetChildren")))
        return names - {""}

    def screenshot(self, name):
        os.makedirs(self.args.out, exist_ok=True)
        ImageGrab.grab(xdisplay=self.env["DISPLAY"]).save(os.path.join(self.args.out, name + ".png"))

    def click(self, window, x, y):
        self.run("xdotool", "mousemove", "--window", window, str(x), str(y), "click", "1", check=True)
        time.sleep(1)

    def tear_down(self, failed):
        for process in reversed(self.processes):
            process.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(timeout=5)
            process.kill()
        if self.ollama:
            self.ollama.shutdown()
        with contextlib.suppress(AttributeError, OSError):
            os.killpg(self.bus.pid, signal.SIGKILL)
        if failed:
            print("Ollama was sent: %s\nsnapshots.json: %s" % (self.ollama and self.ollama.requests,
                                                             self.snapshots()))
            for name in self.logs:
                print("----- %s.log -----\n%s" % (name, self.log_text(name)[-6000:]), flush=True)
        shutil.rmtree(self.work, ignore_errors=True)


def main(run_class, options=("tamlo", "server", "out")):
    parser = argparse.ArgumentParser()
    for option in options:
        parser.add_argument("--" + option, required=True)
    args = parser.parse_args()
    isolate_network()
    if port_taken(OLLAMA_ADDRESS) or (run_class.needs_own_network and not os.environ.get(ISOLATED)):
        print("SKIPPED: 127.0.0.1:11434 is taken (a real Ollama?) or this run has no network of its own, "
              "which only root gets", flush=True)
        sys.exit(77)
    missing = [t for t in ("Xvfb", "dbus-daemon", "dbus-send") + run_class.tools if not shutil.which(t)]
    # The panel is read over the accessibility bus, which the session bus starts on demand.
    missing += ["at-spi2-core"] * (not os.path.exists("/usr/share/dbus-1/services/org.a11y.Bus.service"))
    if missing:
        sys.exit("Missing %s: run scripts/install-deps.sh" % ", ".join(missing))
    run, failed = run_class(args), True
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        run.set_up()
        run.scenario()
        failed = False
    except Failure as failure:
        run.say("FAILED: %s" % failure)
    finally:
        run.tear_down(failed)
    run.say("failed" if failed else "passed")
    sys.exit(int(failed))

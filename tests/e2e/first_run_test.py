#!/usr/bin/env python3
"""Tamlo as a new user meets it, with every part a real process.

Xvfb on a free display, a private dbus-daemon (session and system bus at once), a stand-in Ollama
on 127.0.0.1:11434 that records what it is sent, tamlo-server on a free port named by the
convexURL setting, and a home folder of its own. The panel is read the way assistive technology
reads it, over the accessibility bus, and photographed with xwd.

    first_run_test.py --tamlo PATH --server PATH --out DIR

Exit status: 0 passed, 1 failed, 77 skipped (port 11434 taken and no network of our own).
"""

import argparse
import base64
import ctypes
import hashlib
import html.parser
import http.cookiejar
import http.server
import json
import os
import re
import select
import shutil
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.parse
import urllib.request
import zlib

SKIP = 77
OLLAMA_ADDRESS = ("127.0.0.1", 11434)
EMAIL = "ada@example.org"
# Every process this run starts carries this in its environment, so none is left behind.
RUN_MARKER = "TAMLO_E2E_RUN"
# Accessibility states (AT-SPI's numbering) of an element the user can see.
STATE_SHOWING = 25
PR_SET_PDEATHSIG = 1


def end_with_parent():
    # Should this script be killed outright, its children go with it.
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def wait_for(what, condition, timeout, interval=0.2):
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise Failure("Timed out after %d s waiting for %s" % (timeout, what))
        time.sleep(interval)


def port_taken(address):
    with socket.socket() as probe:
        probe.settimeout(0.5)
        return probe.connect_ex(address) == 0


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def isolate_network():
    """As root, run again in a network (and process) namespace of our own: its loopback has no
    Ollama, and when this process ends, everything it started ends with it."""
    if os.environ.get("TAMLO_E2E_ISOLATED") or os.geteuid() != 0 or not shutil.which("unshare"):
        return
    namespace = ["unshare", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
    probe = subprocess.run(namespace + ["ip", "link", "set", "lo", "up"], capture_output=True)
    if probe.returncode != 0:
        print("No network namespace (%s); running on the machine's loopback"
              % probe.stderr.decode(errors="replace").strip(), flush=True)
        return
    os.environ["TAMLO_E2E_ISOLATED"] = "1"
    command = namespace + ["sh", "-c", 'ip link set lo up && exec "$@"', "sh", sys.executable] + sys.argv
    os.execvp(command[0], command)


# The stand-in Ollama: the model list, and chat replies in Ollama's shapes; every request kept.
class StandInOllama(http.server.ThreadingHTTPServer):
    def __init__(self):
        super().__init__(OLLAMA_ADDRESS, OllamaHandler)
        self.lock = threading.Lock()
        self.requests = []

    def recorded(self):
        with self.lock:
            return list(self.requests)

    def image_hashes(self):
        return [r["imageHash"] for r in self.recorded() if r.get("imageHash")]


class OllamaHandler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, body):
        data = json.dumps(body).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def note(self, entry):
        with self.server.lock:
            self.server.requests.append(entry)

    def do_GET(self):
        self.note({"method": "GET", "path": self.path})
        if self.path == "/api/tags":
            self.reply({"models": [{"name": name, "model": name, "size": 1234} for name in ("qwen3-vl:2b", "qwen3-vl:4b")]})
        else:
            self.send_error(404)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        entry = {"method": "POST", "path": self.path}
        try:
            request = json.loads(body)
        except ValueError:
            request = {}
        entry["model"] = request.get("model")
        images = [image for message in request.get("messages", []) for image in message.get("images", [])]
        if images:
            png = base64.b64decode(images[0])
            entry["imageHash"] = hashlib.sha256(png).hexdigest()
            entry["imageSize"] = struct.unpack(">II", png[16:24]) if png.startswith(b"\x89PNG") else None
            content = {"category": "Coding", "projectName": "Website",
                       "activityDescription": "Editing checkout.css in the editor"}
        else:
            content = {"summary": "A focused day on the checkout page."}
        self.note(entry)
        if self.path != "/api/chat":
            self.send_error(404)
            return
        self.reply({"model": "qwen3-vl:2b", "created_at": "2026-01-01T00:00:00Z",
                    "message": {"role": "assistant", "content": json.dumps(content)},
                    "done": True, "done_reason": "stop"})


# What a browser does with the server's pages: fill in the one form and follow the page's refresh.
class FormReader(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.action = None
        self.hidden = []
        self.refresh = None

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "form" and (attrs.get("method") or "").lower() == "post" and self.action is None:
            self.action = attrs.get("action") or ""
        elif tag == "input" and attrs.get("type") == "hidden" and attrs.get("name"):
            self.hidden.append((attrs["name"], attrs.get("value") or ""))
        elif tag == "meta" and (attrs.get("http-equiv") or "").lower() == "refresh":
            match = re.match(r"\s*\d+\s*;\s*url=(.*)", attrs.get("content") or "", re.I)
            if match:
                self.refresh = match.group(1).strip()


class NoRedirectToApp(urllib.request.HTTPRedirectHandler):
    # A redirect to tamlo:// is the desktop's business, not the browser's.
    def redirect_request(self, req, fp, code, msg, headers, newurl):
        if not newurl.startswith("http"):
            raise urllib.error.HTTPError(newurl, code, "app redirect", headers, fp)
        return super().redirect_request(req, fp, code, msg, headers, newurl)


def sign_up_in_browser(page_url, email):
    """Loads the registration page, submits it, and returns the tamlo:// URL it hands over."""
    opener = urllib.request.build_opener(
        urllib.request.HTTPCookieProcessor(http.cookiejar.CookieJar()), NoRedirectToApp())
    with opener.open(page_url, timeout=10) as response:
        check(response.status == 200, "registration page answered %d" % response.status)
        form = FormReader()
        form.feed(response.read().decode())
    check(form.action is not None, "registration page has no form")
    fields = form.hidden + [("email", email), ("name", "Ada")]
    request = urllib.request.Request(urllib.parse.urljoin(page_url, form.action),
                                     data=urllib.parse.urlencode(fields).encode(), method="POST")
    try:
        with opener.open(request, timeout=10) as response:
            page = FormReader()
            page.feed(response.read().decode())
            target = page.refresh
    except urllib.error.HTTPError as redirect:
        target = redirect.headers.get("Location")
    check(target and target.startswith("tamlo://auth?token="), "registration led to %r" % target)
    return target


# The panel as assistive technology sees it, over the session's accessibility bus.
class Accessibility:
    def __init__(self, env):
        self.env = env
        self.bus = None

    def send(self, bus, dest, path, method, *args):
        result = subprocess.run(["dbus-send", "--bus=" + bus, "--print-reply", "--reply-timeout=5000",
                                 "--dest=" + dest, path, method, *args],
                                capture_output=True, text=True, env=self.env, timeout=15)
        return result.stdout if result.returncode == 0 else ""

    def address(self):
        if not self.bus:
            reply = self.send(self.env["DBUS_SESSION_BUS_ADDRESS"], "org.a11y.Bus", "/org/a11y/bus",
                              "org.a11y.Bus.GetAddress")
            match = re.search(r'string "(.*)"', reply)
            self.bus = match.group(1) if match else None
        return self.bus

    def children(self, dest, path):
        reply = self.send(self.bus, dest, path, "org.a11y.atspi.Accessible.GetChildren")
        return re.findall(r'string "([^"]*)"\s+object path "([^"]*)"', reply)

    def element(self, dest, path):
        name = self.send(self.bus, dest, path, "org.freedesktop.DBus.Properties.Get",
                         "string:org.a11y.atspi.Accessible", "string:Name")
        role = self.send(self.bus, dest, path, "org.a11y.atspi.Accessible.GetRoleName")
        states = [int(s) for s in re.findall(r"uint32 (\d+)",
                                             self.send(self.bus, dest, path, "org.a11y.atspi.Accessible.GetState"))]
        showing = bool(states) and bool(states[0] & (1 << STATE_SHOWING))
        name = re.search(r'string "(.*)"', name)
        role = re.search(r'string "(.*)"', role)
        return {"dest": dest, "path": path, "name": name.group(1) if name else "",
                "role": role.group(1) if role else "", "showing": showing}

    def shown(self):
        """Every element of Tamlo's windows that is on screen now."""
        if not self.address():
            return []
        found = []
        for dest, path in self.children("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"):
            pending = [(dest, path)]
            while pending and len(found) < 500:
                dest, path = pending.pop()
                element = self.element(dest, path)
                if element["role"] != "application" and not element["showing"]:
                    continue
                found.append(element)
                pending.extend(self.children(dest, path))
        return [e for e in found if e["role"] != "application"]

    def names(self):
        return {e["name"] for e in self.shown() if e["name"]}


def xwd_to_png(xwd, png_path):
    """Converts xwd's 24/32-bit TrueColor dump (what Xvfb gives) to PNG."""
    fields = struct.unpack(">25I", xwd[:100])
    header_size, width, height = fields[0], fields[4], fields[5]
    byte_order, bits_per_pixel, bytes_per_line = fields[7], fields[11], fields[12]
    masks, colours = fields[14:17], fields[19]
    size = bits_per_pixel // 8
    check(size in (3, 4) and bytes_per_line >= width * size and masks == (0xFF0000, 0xFF00, 0xFF), "xwd dump of an unexpected format: %r" % (fields,))
    pixels = xwd[header_size + 12 * colours:]
    # Little-endian pixels are blue, green, red(, pad) in memory; big-endian ones the reverse.
    red, green, blue = (2, 1, 0) if byte_order == 0 else (size - 3, size - 2, size - 1)
    rows = []
    for y in range(height):
        line = pixels[y * bytes_per_line:y * bytes_per_line + width * size]
        rgb = bytearray(width * 3)
        rgb[0::3] = line[red::size]
        rgb[1::3] = line[green::size]
        rgb[2::3] = line[blue::size]
        rows.append(b"\0" + bytes(rgb))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    with open(png_path, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                  + chunk(b"IDAT", zlib.compress(b"".join(rows), 6)) + chunk(b"IEND", b""))


class Run:
    def __init__(self, args):
        self.args = args
        self.work = tempfile.mkdtemp(prefix="tamlo-e2e-")
        self.marker = "%d-%d" % (os.getpid(), time.time_ns())
        self.processes = []
        self.logs = []
        self.ollama = None
        self.home = os.path.join(self.work, "home")
        self.server_data = os.path.join(self.work, "server")
        self.env = None
        self.app = None
        self.started = time.monotonic()

    def say(self, message):
        print("[%5.1f s] %s" % (time.monotonic() - self.started, message), flush=True)

    def start(self, name, command, **kwargs):
        log = open(os.path.join(self.work, name + ".log"), "wb")
        self.logs.append((name, log.name))
        kwargs.setdefault("stdout", log)
        kwargs.setdefault("stderr", subprocess.STDOUT)
        process = subprocess.Popen(command, env=kwargs.pop("env", self.env), preexec_fn=end_with_parent, **kwargs)
        log.close()
        self.processes.append(process)
        return process

    def log_text(self, name):
        with open(os.path.join(self.work, name + ".log"), "rb") as f:
            return f.read().decode(errors="replace")

    # The desktop: a display, a bus, and a home folder of its own.
    def set_up_desktop(self):
        base = {k: v for k, v in os.environ.items()
                if not k.startswith(("XDG_", "DBUS_", "WAYLAND_")) and k not in ("DISPLAY", "XAUTHORITY")}
        runtime = os.path.join(self.work, "run")
        for folder in (self.home, runtime, os.path.join(self.work, "tmp"), os.path.join(self.work, "bin")):
            os.makedirs(folder, mode=0o700)
        base.update({RUN_MARKER: self.marker, "HOME": self.home, "TMPDIR": os.path.join(self.work, "tmp"),
                     "XDG_RUNTIME_DIR": runtime, "XDG_DATA_HOME": os.path.join(self.home, ".local/share"),
                     "XDG_CONFIG_HOME": os.path.join(self.home, ".config"),
                     "XDG_CACHE_HOME": os.path.join(self.home, ".cache"), "XDG_SESSION_TYPE": "x11"})
        # Whatever Tamlo hands to the browser is only written down: no real browser ever opens.
        opener = os.path.join(self.work, "bin", "xdg-open")
        with open(opener, "w") as f:
            f.write('#!/bin/sh\nprintf "%%s\\n" "$1" >> "%s"\n' % os.path.join(self.work, "opened-urls"))
        os.chmod(opener, 0o755)
        base["PATH"] = os.path.dirname(opener) + os.pathsep + base.get("PATH", "/usr/bin:/bin")
        self.env = base

        # Xvfb picks a display nobody holds and names it once it accepts connections, so a test
        # running beside this one can never leave it talking to a display that is about to go.
        # The read end stays open for the whole run: a server that writes to it again and finds it
        # closed ends itself.
        read_end, write_end = os.pipe()
        self.display_pipe = read_end
        xvfb = self.start("xvfb", ["Xvfb", "-displayfd", str(write_end), "-noreset", "-screen", "0", "1280x800x24",
                                   "-nolisten", "tcp"], pass_fds=(write_end,))
        os.close(write_end)
        ready, _, _ = select.select([read_end], [], [], 20)
        display = os.read(read_end, 64).decode().strip() if ready else ""
        check(display.isdigit() and xvfb.poll() is None, "Xvfb gave no display: " + self.log_text("xvfb"))
        self.env["DISPLAY"] = ":" + display

        bus = self.start("dbus", ["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                         stdout=subprocess.PIPE)
        ready, _, _ = select.select([bus.stdout], [], [], 20)
        address = bus.stdout.readline().decode().strip() if ready else ""
        check(address, "dbus-daemon gave no address: " + self.log_text("dbus"))
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address
        self.env["DBUS_SYSTEM_BUS_ADDRESS"] = address
        self.say("Xvfb on %s, private bus %s" % (self.env["DISPLAY"], address))

    def start_server(self):
        port = free_port()
        self.server_url = "http://127.0.0.1:%d" % port
        self.start("server", [self.args.server, "--listen", "127.0.0.1:%d" % port, "--data", self.server_data])
        wait_for("tamlo-server on port %d" % port, lambda: port_taken(("127.0.0.1", port)), 30)
        config = os.path.join(self.home, ".config", "Tamlo")
        os.makedirs(config)
        with open(os.path.join(config, "Tamlo.conf"), "w") as f:
            f.write("[General]\nconvexURL=%s\n" % self.server_url)
        self.say("tamlo-server on %s" % self.server_url)

    def tamlo(self, *arguments):
        env = dict(self.env, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        return [self.args.tamlo, *arguments], env

    def snapshots(self):
        path = os.path.join(self.home, ".local/share/Tamlo/snapshots.json")
        try:
            with open(path) as f:
                return json.load(f)
        except (OSError, ValueError):
            return []

    def server_export(self):
        result = subprocess.run([self.args.server, "--data", self.server_data, "export", EMAIL],
                                capture_output=True, text=True, env=self.env, timeout=30)
        check(result.returncode == 0, "tamlo-server export failed: " + result.stderr)
        return json.loads(result.stdout)

    def screenshot(self, name):
        dump = subprocess.run(["xwd", "-root", "-silent"], capture_output=True, env=self.env, timeout=30)
        check(dump.returncode == 0, "xwd failed: " + dump.stderr.decode(errors="replace"))
        os.makedirs(self.args.out, exist_ok=True)
        path = os.path.join(self.args.out, name + ".png")
        xwd_to_png(dump.stdout, path)
        self.say("screenshot " + path)

    def open_url(self, url):
        command, env = self.tamlo(url)
        result = subprocess.run(command, env=env, capture_output=True, timeout=60)
        check(result.returncode == 0, "tamlo %s exited %d: %s" % (url.split("?")[0], result.returncode,
                                                                  result.stderr.decode(errors="replace")))

    def scenario(self):
        a11y = Accessibility(self.env)

        command, env = self.tamlo()
        self.app = self.start("tamlo", command, env=env)

        # Signed out, the panel asks for the sign-in, and monitoring records all the same.
        names = wait_for("the sign-in screen", lambda: {"Log in"} <= a11y.names() and a11y.names(), 60)
        self.say("panel shows: %s" % sorted(names))
        first = wait_for("an analysed snapshot in snapshots.json",
                         lambda: next((s for s in self.snapshots() if s.get("imageHash")), None), 60)
        sent = self.ollama.image_hashes()
        check(len(sent) >= 1, "no image reached Ollama")
        check(first.get("imageHash", "").lower() == sent[0],
              "record's imageHash %r is not the SHA-256 of the PNG sent (%r)" % (first.get("imageHash"), sent[0]))
        check(any(r["path"] == "/api/tags" for r in self.ollama.recorded()), "the model list was never asked for")
        # The 1280-wide display, scaled down to the 1200 the model is sent.
        size = next(r["imageSize"] for r in self.ollama.recorded() if r.get("imageHash"))
        check(size == (1200, 750), "the model was sent a picture of %r, not the display scaled to 1200x750" % (size,))
        self.say("first tick: snapshot %s, image %s…" % (first.get("id"), sent[0][:12]))
        self.screenshot("e2e-1-sign-in")

        # A locked screen: the next tick records the marker and sends no image.
        images_before = len(self.ollama.image_hashes())
        records_before = len(self.snapshots())
        subprocess.run(["dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
                        "org.freedesktop.ScreenSaver.ActiveChanged", "boolean:true"], env=self.env, check=True)
        locked = wait_for("a Screen Locked record", lambda: next(
            (s for s in self.snapshots()[records_before:] if s.get("activityDescription") == "Screen Locked"), None), 45)
        check(len(self.ollama.image_hashes()) == images_before, "an image was sent while the screen was locked")
        check("imageHash" not in locked or not locked["imageHash"], "the locked record has an image hash")
        self.say("locked tick recorded %r" % locked)
        subprocess.run(["dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
                        "org.freedesktop.ScreenSaver.ActiveChanged", "boolean:false"], env=self.env, check=True)

        # The browser registers on the server, which hands back to Tamlo.
        callback = sign_up_in_browser(self.server_url + "/register?redirect=tamlo%3A%2F%2Fauth", EMAIL)
        self.open_url(callback)
        self.say("tamlo %s… exited 0" % callback[:26])
        wait_for("the verification request in the server log",
                 lambda: re.search(r"POST /auth/verify-token 200", self.log_text("server")), 15)
        credentials = os.path.join(self.home, ".local/share/mirevon.Tamlo/credentials.plist")
        wait_for("credentials.plist", lambda: os.path.exists(credentials), 15)
        check(stat.S_IMODE(os.stat(credentials).st_mode) == 0o600,
              "credentials.plist mode %o" % stat.S_IMODE(os.stat(credentials).st_mode))
        with open(credentials, "rb") as f:
            check(f.read(8) == b"bplist00", "credentials.plist is not a binary property list")

        names = wait_for("the main screen", lambda: "Log in" not in a11y.names() and a11y.names(), 15)
        # A new user's main screen opens on the first-launch setup.
        check("Finish Setup" in names, "the main screen is not shown: %s" % sorted(names))
        self.say("panel shows: %s" % sorted(names))

        today = time.strftime("%Y-%m-%d")
        exported = wait_for("today's upload on the server", lambda: self.uploaded_day(today), 20)
        ids = {s.get("id", "").upper() for s in exported["day"].get("snapshots", [])}
        check(first["id"].upper() in ids, "the analysed record is not on the server")
        check(locked["id"].upper() in ids, "the locked record is not on the server")
        self.say("server holds %d records of %s" % (len(ids), today))

        # tamlo://sync uploads again at once; the server's times are whole seconds.
        uploads = self.log_text("server").count("POST /activity/sync 200")
        time.sleep(1.1)
        self.open_url("tamlo://sync")
        wait_for("a second upload", lambda: self.log_text("server").count("POST /activity/sync 200") > uploads, 15)
        check(self.uploaded_day(today)["device"].get("lastUploadAt") != exported["device"].get("lastUploadAt"),
              "the device's last upload did not move")
        self.say("tamlo://sync uploaded again")
        time.sleep(0.5)
        self.screenshot("e2e-2-main")

        # Unlocked and signed in, the ticks capture and analyse again.
        wait_for("a capture after the unlock", lambda: len(self.ollama.image_hashes()) > images_before, 45)
        latest = self.ollama.image_hashes()[-1]
        wait_for("the record of that capture", lambda: any(
            (s.get("imageHash") or "").lower() == latest for s in self.snapshots()), 15)
        self.say("capture after the unlock recorded")

        # The account goes on the server: the next upload is refused, the session check confirms
        # it, and Tamlo signs out and forgets the session while it keeps running.
        result = subprocess.run([self.args.server, "--data", self.server_data, "user", "delete", EMAIL],
                                capture_output=True, text=True, env=self.env, timeout=30)
        check(result.returncode == 0, "tamlo-server user delete failed: " + result.stderr)
        self.open_url("tamlo://sync")
        wait_for("the session to be forgotten", lambda: not os.path.exists(credentials), 20)
        wait_for("the sign-in screen again", lambda: "Log in" in a11y.names(), 20)
        self.say("deleted account signed out")
        check(self.app.poll() is None, "tamlo ended early with status %s" % self.app.returncode)

    def uploaded_day(self, today):
        exported = self.server_export()
        day = next((d for d in exported.get("days", []) if d.get("date") == today), None)
        devices = exported.get("devices", [])
        if not day or not devices:
            return None
        return {"day": day, "device": devices[0]}

    def tear_down(self, failed):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.terminate()
        for process in reversed(self.processes):
            try:
                process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        if self.ollama:
            self.ollama.shutdown()
            self.ollama.server_close()
        # What the bus started on its own (the accessibility bus and its registry) carries our
        # marker too; it ends by itself once the bus has gone, or is made to.
        deadline = time.monotonic() + 3
        while self.marked_processes() and time.monotonic() < deadline:
            time.sleep(0.1)
        for pid in self.marked_processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        if failed:
            print("Ollama was sent: %s" % (self.ollama.recorded() if self.ollama else None))
            print("snapshots.json: %s" % self.snapshots())
            for name, path in self.logs:
                with open(path, "rb") as f:
                    text = f.read().decode(errors="replace")
                print("----- %s (%s) -----\n%s" % (name, path, text[-6000:]), flush=True)
        shutil.rmtree(self.work, ignore_errors=True)

    def marked_processes(self):
        needle = ("%s=%s" % (RUN_MARKER, self.marker)).encode()
        found = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit() or int(entry) == os.getpid():
                continue
            try:
                with open("/proc/%s/environ" % entry, "rb") as f:
                    if needle in f.read().split(b"\0"):
                        found.append(int(entry))
            except OSError:
                pass
        return found


def main(run_class=Run, tools=()):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tamlo", required=True)
    parser.add_argument("--server", required=True)
    parser.add_argument("--out", required=True, help="folder for the screenshots")
    args = parser.parse_args()

    for program in (args.tamlo, args.server):
        if not os.access(program, os.X_OK):
            print("No program at %s: build it first" % program, flush=True)
            return 1
    isolate_network()
    if os.environ.get("TAMLO_E2E_ISOLATED"):
        print("In a network of its own (root)", flush=True)
    if port_taken(OLLAMA_ADDRESS):
        print("SKIPPED: 127.0.0.1:11434 is taken (a real Ollama?) and only root gets a network of its own "
              "for this test; stop it or run the test as root", flush=True)
        return SKIP
    missing = [t for t in ("Xvfb", "xdpyinfo", "dbus-daemon", "dbus-send", "xwd") + tools if not shutil.which(t)]
    # The panel is read over the accessibility bus, which the session bus starts on demand.
    if not os.path.exists("/usr/share/dbus-1/services/org.a11y.Bus.service"):
        missing.append("the accessibility bus (at-spi2-core)")
    if missing:
        print("Missing %s: run scripts/install-deps.sh" % ", ".join(missing), flush=True)
        return 1

    run = run_class(args)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    failed = True
    try:
        run.ollama = StandInOllama()
        threading.Thread(target=run.ollama.serve_forever, daemon=True).start()
        run.set_up_desktop()
        run.start_server()
        run.scenario()
        failed = False
        run.say("passed")
    except Failure as failure:
        run.say("FAILED: %s" % failure)
    except Exception as error:  # noqa: BLE001 - whatever broke, the processes still go
        run.say("FAILED: %r" % error)
        raise
    finally:
        run.tear_down(failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

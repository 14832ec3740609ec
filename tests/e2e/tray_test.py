#!/usr/bin/env python3
"""Tamlo on a desktop with a system tray, where the panel is built only when first shown.

The real program and tamlo-server under Xvfb with Debian's trayer holding the tray, a private
D-Bus, a stand-in Ollama on 127.0.0.1:11434 in a network of the test's own, and a session left by
an earlier run. Without the panel ever being opened: the first analysis names the stored model,
the restored session uploads at once and polls once a minute. Then the panel is opened from the
icon, hidden, released after its minute, and opened again: uploads and polls keep their rate.

    tray_test.py --tamlo PATH --server PATH --out DIR

Exit status: 0 passed, 1 failed, 77 skipped (port 11434 taken and no network of our own).
"""

import argparse
import json
import os
import plistlib
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import urllib.parse
import urllib.request

from first_run_test import (EMAIL, OLLAMA_ADDRESS, SKIP, Failure, Run, StandInOllama, check, isolate_network,
                            port_taken, wait_for)

STORED_MODEL = "qwen3-vl:4b"


class TrayRun(Run):
    def restore_session(self):
        """Signs in on the server as the browser would and leaves the session where Tamlo keeps it."""
        for command in (["user", "add", EMAIL], ["login-link", EMAIL]):
            result = subprocess.run([self.args.server, "--data", self.server_data, *command],
                                    capture_output=True, text=True, env=self.env, timeout=30)
            check(result.returncode == 0, "tamlo-server %s failed: %s" % (command[0], result.stderr))
        token = urllib.parse.parse_qs(urllib.parse.urlsplit(result.stdout.strip()).query)["token"][0]
        request = urllib.request.Request(self.server_url + "/auth/verify-token",
                                         data=json.dumps({"token": token}).encode(),
                                         headers={"Content-Type": "application/json"}, method="POST")
        with urllib.request.urlopen(request, timeout=10) as response:
            session = json.load(response)
        folder = os.path.join(self.home, ".local/share/mirevon.Tamlo")
        os.makedirs(folder, mode=0o700)
        path = os.path.join(folder, "credentials.plist")
        with open(os.open(path, os.O_WRONLY | os.O_CREAT, 0o600), "wb") as f:
            plistlib.dump({"sessionToken": session["sessionToken"], "userData": json.dumps(session["user"])}, f,
                          fmt=plistlib.FMT_BINARY)
        with open(os.path.join(self.home, ".config", "Tamlo", "Tamlo.conf"), "a") as f:
            f.write("selectedOllamaModel=%s\ndidCompleteInitialSetup=true\n" % STORED_MODEL)

    def start_tray(self):
        self.start("trayer", ["trayer", "--edge", "top", "--align", "right", "--widthtype", "request",
                              "--height", "24", "--SetDockType", "true"])
        # trayer takes the tray's selection once its window is up.
        wait_for("trayer's window", lambda: subprocess.run(
            ["xdotool", "search", "--class", "trayer"], env=self.env, capture_output=True).returncode == 0, 20)
        time.sleep(0.5)

    def windows(self, visible_only=True):
        """Tamlo's own top-level and embedded windows with their geometry."""
        command = ["xdotool", "search"] + (["--onlyvisible"] if visible_only else []) + ["--pid", str(self.app.pid)]
        found = []
        for wid in subprocess.run(command, env=self.env, capture_output=True, text=True).stdout.split():
            info = subprocess.run(["xwininfo", "-id", wid], env=self.env, capture_output=True, text=True).stdout
            size = re.search(r"Width: (\d+)\s+Height: (\d+)", info)
            if size:
                found.append((wid, int(size.group(1)), int(size.group(2))))
        return found

    def panel_shown(self):
        return any(width >= 300 and height >= 500 for _, width, height in self.windows())

    def panel_exists(self):
        return any(width >= 300 and height >= 500 for _, width, height in self.windows(visible_only=False))

    def click_icon(self):
        icons = [w for w in self.windows() if w[1] <= 64 and w[2] <= 64]
        check(icons, "no tray icon of Tamlo's is on screen: %r" % self.windows())
        subprocess.run(["xdotool", "mousemove", "--window", icons[0][0], "5", "5", "click", "1"], env=self.env,
                       check=True)

    def server_lines(self, request):
        return [line for line in self.log_text("server").splitlines() if request in line]

    def model_requests(self):
        return [r for r in self.ollama.recorded() if r.get("imageHash")]

    def scenario(self):
        self.start_tray()
        command, env = self.tamlo()
        self.app = self.start("tamlo", command, env=env)

        first = wait_for("the first analysis", lambda: self.model_requests(), 60)[0]
        check(first.get("model") == STORED_MODEL,
              "the first analysis asked for %r, not the stored %r" % (first.get("model"), STORED_MODEL))
        wait_for("the restored session's upload", lambda: self.server_lines("POST /activity/sync 200"), 30)
        started = time.monotonic()
        check(not self.panel_exists(), "the panel was built although nobody opened it")
        self.say("first analysis with %s and the start-up upload, no panel" % STORED_MODEL)
        self.screenshot("tray-1-icon-only")

        # The panel from the icon, hidden again from the icon, released after its minute.
        self.click_icon()
        wait_for("the panel after a click on the icon", self.panel_shown, 20)
        self.screenshot("tray-2-panel")
        time.sleep(1)
        self.click_icon()
        wait_for("the panel to hide", lambda: not self.panel_shown(), 20)
        wait_for("the hidden panel's release", lambda: not self.panel_exists(), 90, interval=1)
        self.say("panel released")
        self.click_icon()
        wait_for("the rebuilt panel", self.panel_shown, 20)
        time.sleep(1)
        self.click_icon()
        wait_for("the panel to hide again", lambda: not self.panel_shown(), 20)

        # A minute more, so that a second set of timers would have shown itself.
        while time.monotonic() - started < 190:
            time.sleep(1)
        elapsed = time.monotonic() - started
        polls = len(self.server_lines("GET /activity/status"))
        uploads = len(self.server_lines("POST /activity/sync"))
        self.say("%d polls and %d uploads in %.0f s" % (polls, uploads, elapsed))
        check(uploads == 1, "%d uploads instead of the one at start: %r" % (uploads, self.server_lines("/activity")))
        expected = int(elapsed // 60)
        check(expected <= polls <= expected + 1,
              "%d status polls in %.0f s, not one a minute: %r" % (polls, elapsed, self.server_lines("status")))
        check(self.app.poll() is None, "tamlo ended early with status %s" % self.app.returncode)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tamlo", required=True)
    parser.add_argument("--server", required=True)
    parser.add_argument("--out", required=True, help="folder for the screenshots")
    args = parser.parse_args()

    isolate_network()
    if port_taken(OLLAMA_ADDRESS):
        print("SKIPPED: 127.0.0.1:11434 is taken and only root gets a network of its own for this test",
              flush=True)
        return SKIP
    missing = [t for t in ("Xvfb", "dbus-daemon", "trayer", "xdotool", "xwininfo", "xwd")
               if not shutil.which(t)]
    if missing:
        print("Missing %s: run scripts/install-deps.sh" % ", ".join(missing), flush=True)
        return 1

    run = TrayRun(args)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    failed = True
    try:
        run.ollama = StandInOllama()
        threading.Thread(target=run.ollama.serve_forever, daemon=True).start()
        run.set_up_desktop()
        run.start_server()
        run.restore_session()
        run.scenario()
        failed = False
        run.say("passed")
    except Failure as failure:
        run.say("FAILED: %s" % failure)
    finally:
        run.tear_down(failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

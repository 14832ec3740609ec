#!/usr/bin/env python3
"""Tamlo in a system tray (Debian's trayer), with a session and a model choice left by an earlier run:
the panel is built only when first shown, released a minute after it is hidden, and neither changes the
model asked for, the one upload at start or the poll a minute."""

import json
import os
import plistlib
import re
import time
import urllib.request

import desktop
from desktop import EMAIL, check, wait_for

STORED_MODEL = "qwen3-vl:4b"


class Tray(desktop.Desktop):
    tools = ("trayer", "xdotool", "xwininfo")

    def restore_session(self):
        """Signs in on the server as the browser would and leaves the session where Tamlo keeps it."""
        self.server_cli("user", "add", EMAIL)
        token = self.server_cli("login-link", EMAIL).strip().split("token=", 1)[1]
        with urllib.request.urlopen(urllib.request.Request(self.server_url + "/auth/verify-token", json.dumps(
                {"token": token}).encode(), {"Content-Type": "application/json"}), timeout=10) as response:
            session = json.load(response)
        folder = self.home + "/.local/share/mirevon.Tamlo"
        os.makedirs(folder, mode=0o700)
        with open(os.open(folder + "/credentials.plist", os.O_WRONLY | os.O_CREAT, 0o600), "wb") as f:
            plistlib.dump({"sessionToken": session["sessionToken"], "userData": json.dumps(session["user"])}, f,
                          fmt=plistlib.FMT_BINARY)
        self.configure(selectedOllamaModel=STORED_MODEL, didCompleteInitialSetup="true")

    def windows(self, visible_only=True):
        """Tamlo's own top-level and embedded windows with their sizes."""
        found = self.run("xdotool", "search", *["--onlyvisible"] * visible_only, "--pid", str(self.app.pid)).stdout
        sizes = [(w, re.search(r"Width: (\d+)\s+Height: (\d+)", self.run("xwininfo", "-id", w).stdout)) for w in
                 found.split()]
        return [(w, int(size.group(1)), int(size.group(2))) for w, size in sizes if size]

    def panel(self, visible_only=True):
        return any(width >= 300 and height >= 500 for _, width, height in self.windows(visible_only))

    def toggle_panel(self, shown):
        icons = [w for w in self.windows() if w[1] <= 64 and w[2] <= 64]
        check(icons, "no tray icon of Tamlo's is on screen: %r" % self.windows())
        self.click(icons[0][0], 5, 5)
        wait_for("the panel %s after a click on the icon" % ("shown" if shown else "hidden"),
                 lambda: self.panel() == shown, 20)

    def scenario(self):
        self.restore_session()
        self.start("trayer", ["trayer", "--edge", "top", "--align", "right", "--widthtype", "request",
                              "--height", "24", "--SetDockType", "true"])
        # trayer takes the tray's selection once its window is up.
        wait_for("trayer's window", lambda: self.run("xdotool", "search", "--class", "trayer").returncode == 0, 20)
        time.sleep(0.5)
        self.start_tamlo()

        first = wait_for("the first analysis", self.ollama.analyses, 60)[0]
        check(first.get("model") == STORED_MODEL, "the first analysis asked for %r" % first.get("model"))
        wait_for("the restored session's upload", lambda: self.server_lines("POST /activity/sync 200"), 30)
        started = time.monotonic()
        check(not self.panel(visible_only=False), "the panel was built although nobody opened it")
        self.screenshot("tray-1-icon-only")

        # The panel from the icon, hidden again from the icon, released after its minute, rebuilt.
        self.toggle_panel(True)
        self.screenshot("tray-2-panel")
        time.sleep(1)
        self.toggle_panel(False)
        wait_for("the hidden panel's release", lambda: not self.panel(visible_only=False), 90, interval=1)
        self.toggle_panel(True)
        rebuilt = time.monotonic()
        time.sleep(1)
        self.toggle_panel(False)

        # Long enough after the rebuild that a second set of timers would have polled twice.
        time.sleep(max(0.0, rebuilt + 125 - time.monotonic()))
        elapsed = time.monotonic() - started
        polls, uploads = self.server_lines("GET /activity/status"), self.server_lines("POST /activity/sync")
        self.say("%d polls and %d uploads in %.0f s" % (len(polls), len(uploads), elapsed))
        check(len(uploads) == 1, "%d uploads instead of the one at start: %r" % (len(uploads), uploads))
        expected = int(elapsed // 60)
        check(expected <= len(polls) <= expected + 1, "%d status polls in %.0f s: %r" % (len(polls), elapsed, polls))
        self.still_running()


if __name__ == "__main__":
    desktop.main(Tray)

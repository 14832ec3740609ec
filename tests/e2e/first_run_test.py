#!/usr/bin/env python3
"""Tamlo as a new user meets it: signed out it records all the same, a locked screen sends nothing, the
sign-in goes through the server's pages, the day is uploaded and tamlo://sync uploads again, and an
account deleted on the server signs Tamlo out."""

import contextlib
import html
import os
import plistlib
import re
import stat
import time
import urllib.parse
import urllib.request

import desktop
from desktop import EMAIL, check, wait_for


class FirstRun(desktop.Desktop):
    def sign_up_in_browser(self):
        """Fills in the registration page as a browser does; returns the tamlo:// link its answer opens."""
        browser = urllib.request.build_opener(urllib.request.HTTPCookieProcessor())
        url = self.server_url + "/register?redirect=tamlo%3A%2F%2Fauth"
        page = browser.open(url, timeout=10).read().decode()
        action = re.search(r'<form method="post" action="([^"]*)"', page)
        check(action, "registration page has no form")
        fields = re.findall(r'<input type="hidden" name="([^"]*)" value="([^"]*)"', page)
        fields = [(name, html.unescape(value)) for name, value in fields] + [("email", EMAIL), ("name", "Ada")]
        answer = browser.open(urllib.parse.urljoin(url, html.unescape(action.group(1))),
                              urllib.parse.urlencode(fields).encode(), timeout=10).read().decode()
        link = html.unescape((re.findall(r'http-equiv="refresh" content="0;url=([^"]*)"', answer) or [""])[0])
        check(link.startswith("tamlo://auth?token="), "registration led to %r" % link)
        return link

    def lock_screen(self, locked):
        self.run("dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
                 "org.freedesktop.ScreenSaver.ActiveChanged", "boolean:" + str(locked).lower(), check=True)

    def stored_session(self, path):
        # The file is made empty and owner-only first, then written whole: only a property list counts.
        with contextlib.suppress(OSError, ValueError), open(path, "rb") as f:
            data = f.read()
            return data.startswith(b"bplist00") and plistlib.loads(data).get("sessionToken")

    def scenario(self):
        self.start_tamlo()
        # Signed out, the panel asks for the sign-in, and monitoring records all the same.
        self.on_panel("Log in", 60)
        first = wait_for("an analysed snapshot", lambda: [s for s in self.snapshots() if s.get("imageHash")], 60)[0]
        sent = (self.ollama.analyses() or [{}])[0]
        check(first["imageHash"].lower() == sent.get("imageHash"),
              "record's imageHash %r is not the SHA-256 of the PNG sent (%r)" % (first["imageHash"], sent))
        check(any(r["path"] == "/api/tags" for r in self.ollama.recorded()), "the model list was never asked for")
        check(sent.get("imageSize") == (1200, 750), "the 1280-wide screen reached the model as %r, not 1200 wide"
              % (sent.get("imageSize"),))
        self.screenshot("e2e-1-sign-in")

        # A locked screen: the next tick records the marker and sends no image.
        images_before = len(self.ollama.analyses())
        self.lock_screen(True)
        locked = wait_for("a Screen Locked record", lambda: self.snapshots("Screen Locked"), 45)[0]
        check(len(self.ollama.analyses()) == images_before, "an image was sent while the screen was locked")
        check(not locked.get("imageHash"), "the locked record has an image hash")
        self.lock_screen(False)

        self.open_url(self.sign_up_in_browser())
        credentials = self.home + "/.local/share/mirevon.Tamlo/credentials.plist"
        wait_for("the session in credentials.plist", lambda: self.stored_session(credentials), 15)
        check(stat.S_IMODE(os.stat(credentials).st_mode) == 0o600, "credentials.plist is not its owner's alone")
        self.on_panel("Finish Setup", 15)

        today = time.strftime("%Y-%m-%d")
        exported = wait_for("today's upload on the server", lambda: self.uploaded_day(today), 20)
        ids = {s.get("id", "").upper() for s in exported["day"].get("snapshots", [])}
        check({first["id"].upper(), locked["id"].upper()} <= ids, "the analysed or the locked record is missing")

        # tamlo://sync uploads again at once; the server's times are whole seconds.
        uploads = len(self.server_lines("POST /activity/sync 200"))
        time.sleep(1.1)
        self.open_url("tamlo://sync")
        wait_for("a second upload", lambda: len(self.server_lines("POST /activity/sync 200")) > uploads, 15)
        check(self.uploaded_day(today)["device"].get("lastUploadAt") != exported["device"].get("lastUploadAt"),
              "the device's last upload did not move")
        time.sleep(0.5)
        self.screenshot("e2e-2-main")

        # Unlocked and signed in, the ticks capture and analyse again.
        wait_for("a capture after the unlock", lambda: len(self.ollama.analyses()) > images_before, 45)
        latest = self.ollama.analyses()[-1]["imageHash"]
        wait_for("the record of that capture",
                 lambda: any((s.get("imageHash") or "").lower() == latest for s in self.snapshots()), 15)

        # The account goes on the server: the next upload is refused, the session check confirms it,
        # and Tamlo signs out and forgets the session while it keeps running.
        self.server_cli("user", "delete", EMAIL)
        self.open_url("tamlo://sync")
        wait_for("the session to be forgotten", lambda: not os.path.exists(credentials), 20)
        self.on_panel("Log in", 20)
        self.still_running()


if __name__ == "__main__":
    desktop.main(FirstRun)

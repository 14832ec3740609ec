#!/usr/bin/env python3
"""Tamlo as a new user meets it: signed out it records all the same, the sign-in link signs it in and
keeps the session owner-only, the day is uploaded, and an account deleted on the server signs Tamlo out
at the next tamlo://sync."""

import contextlib
import os
import plistlib
import stat

import desktop
from desktop import EMAIL, check, wait_for


class FirstRun(desktop.Desktop):
    def stored_session(self, path):
        # The file is made empty and owner-only first, then written whole: only a property list counts.
        with contextlib.suppress(OSError, ValueError), open(path, "rb") as f:
            data = f.read()
            return data.startswith(b"bplist00") and plistlib.loads(data).get("sessionToken")

    def scenario(self):
        self.start_tamlo()
        # Signed out, the panel asks for the sign-in, and monitoring records all the same.
        self.on_panel("Log in", 60)
        first = wait_for("an analysed snapshot", self.analysed, 60)[0]
        self.screenshot("e2e-1-sign-in")

        self.sign_in_by_link()
        credentials = self.home + "/.local/share/mirevon.Tamlo/credentials.plist"
        wait_for("the session in credentials.plist", lambda: self.stored_session(credentials), 15)
        check(stat.S_IMODE(os.stat(credentials).st_mode) == 0o600, "credentials.plist is not its owner's alone")
        self.on_panel("Finish Setup", 15)

        uploaded = wait_for("today's upload on the server", self.uploaded_today, 20)
        ids = {s.get("id", "").upper() for s in uploaded.get("snapshots", [])}
        check(first["id"].upper() in ids, "the record made while signed out is missing from the upload")
        self.screenshot("e2e-2-main")

        # The account goes on the server: the upload tamlo://sync asks for is refused, the session check
        # confirms it, and Tamlo signs out and forgets the session while it keeps running.
        self.server_cli("user", "delete", EMAIL)
        self.open_url("tamlo://sync")
        wait_for("the session to be forgotten", lambda: not os.path.exists(credentials), 20)
        self.on_panel("Log in", 20)
        self.still_running()


if __name__ == "__main__":
    desktop.main(FirstRun)

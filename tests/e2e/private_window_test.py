#!/usr/bin/env python3
"""A password manager's window beside Tamlo, as a new user would try it, with openbox managing the
windows: while a window of the class KeePassXC is on screen the Activity tab records "Private" and the
stand-in Ollama is sent nothing; once it closes, the ticks look again. Then a timed pause."""

import os

import desktop
from desktop import check, wait_for


class PrivateWindow(desktop.Desktop):
    tools = ("openbox", "xlogo", "xdotool", "xprop")

    def scenario(self):
        self.start("openbox", ["openbox", "--sm-disable"])
        wait_for("openbox to manage the screen",
                 lambda: "window id" in self.run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK").stdout, 20)
        self.configure(didCompleteInitialSetup="true")
        vault = self.start("keepassxc", ["xlogo", "-name", "keepassxc", "-title", "Passwords.kdbx - KeePassXC",
                                         "-geometry", "600x500+600+200"])
        self.start_tamlo()
        self.on_panel("Log in", 60)
        self.sign_in_by_link()
        self.on_panel("Pause", 30)

        private = wait_for("a Private record", lambda: self.snapshots("Private"), 45)
        check(all(not s.get("imageHash") and s.get("aiCategory") == "Other" for s in private),
              "a private record has an image hash or a category: %r" % private)
        chats = [r for r in list(self.ollama.requests) if r["path"] == "/api/chat"]
        check(not chats, "the model was sent %d requests while KeePassXC was on screen" % len(chats))

        # The panel's Activity tab, as the user clicks it.
        panel = self.run("xdotool", "search", "--name", "^Tamlo$").stdout.split()[-1]
        self.click(panel, 160, 69)
        self.screenshot("e2e-private-1-activity")

        # KeePassXC closed: the next tick looks at the screen again.
        vault.terminate()
        wait_for("an analysed record after KeePassXC closed", self.analysed, 45)

        # The timer beside Pause, its first entry: paused for 30 minutes, and the panel says until when.
        self.click(panel, 289, 575)
        self.run("xdotool", "key", "Down", "Return", check=True)
        self.on_panel("Resume", 15)
        with open(os.path.join(self.home, ".config", "Tamlo", "Tamlo.conf")) as f:
            check("pausedUntil=" in f.read(), "the pause's end was not stored")
        self.screenshot("e2e-private-2-paused")
        # Quit, from the panel's header.
        self.click(panel, 295, 25)
        wait_for("Tamlo to quit", lambda: self.app.poll() is not None, 15)
        check(self.app.returncode == 0, "tamlo quit with status %s" % self.app.returncode)


if __name__ == "__main__":
    desktop.main(PrivateWindow)

#!/usr/bin/env python3
"""A password manager's window open beside Tamlo, as a new user would try it.

The same real processes as first_run_test.py, with openbox managing the windows: a window of the
class KeePassXC is on screen, so the Activity tab records "Private" and the stand-in Ollama is sent
nothing; once it closes, the ticks look again.

    private_window_test.py --tamlo PATH --server PATH --out DIR

Exit status: 0 passed, 1 failed, 77 skipped (port 11434 taken and no network of our own).
"""

import os
import subprocess
import sys
import time

import first_run_test as e2e
from first_run_test import EMAIL, Failure, check, wait_for


class PrivateRun(e2e.Run):
    def scenario(self):
        self.start("openbox", ["openbox", "--sm-disable"])
        wait_for("openbox to manage the screen", lambda: b"window id" in subprocess.run(
            ["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], capture_output=True, env=self.env).stdout, 20)
        with open(os.path.join(self.home, ".config", "Tamlo", "Tamlo.conf"), "a") as f:
            f.write("didCompleteInitialSetup=true\n")
        vault = self.start("keepassxc", ["xlogo", "-name", "keepassxc", "-title", "Passwords.kdbx - KeePassXC",
                                         "-geometry", "600x500+600+200"])
        a11y = e2e.Accessibility(self.env)
        command, env = self.tamlo()
        self.app = self.start("tamlo", command, env=env)
        wait_for("the sign-in screen", lambda: "Log in" in a11y.names(), 60)
        self.open_url(e2e.sign_up_in_browser(self.server_url + "/register?redirect=tamlo%3A%2F%2Fauth", EMAIL))
        names = wait_for("the main screen", lambda: "Log in" not in a11y.names() and a11y.names(), 30)
        self.say("panel shows: %s" % sorted(names))

        private = wait_for("a Private record", lambda: [
            s for s in self.snapshots() if s.get("activityDescription") == "Private"], 45)
        check(all(not s.get("imageHash") and s.get("aiCategory") == "Other" for s in private),
              "a private record has an image hash or a category: %r" % private)
        chats = [r for r in self.ollama.recorded() if r["path"] == "/api/chat"]
        check(not chats, "the model was sent %d requests while KeePassXC was on screen" % len(chats))
        self.say("recorded %d private ticks, nothing sent to the model" % len(private))

        # The panel's Activity tab, as the user clicks it.
        panel = subprocess.run(["xdotool", "search", "--name", "^Tamlo$"], capture_output=True, text=True,
                               env=self.env).stdout.split()[-1]
        self.click(panel, 160, 69)
        self.screenshot("e2e-private-1-activity")

        # KeePassXC closed: the next tick looks at the screen again.
        vault.terminate()
        wait_for("an analysed record after KeePassXC closed",
                 lambda: any(s.get("imageHash") for s in self.snapshots()), 45)
        check(self.ollama.image_hashes(), "no image reached the model after KeePassXC closed")
        time.sleep(1)
        self.screenshot("e2e-private-2-closed")

        # The timer beside Pause, its first entry: paused for 30 minutes, and the panel says until when.
        self.click(panel, 289, 575)
        self.screenshot("e2e-private-3-pause-menu")
        subprocess.run(["xdotool", "key", "Down", "Return"], env=self.env, check=True)
        wait_for("Resume in place of Pause", lambda: "Resume" in a11y.names(), 15)
        with open(os.path.join(self.home, ".config", "Tamlo", "Tamlo.conf")) as f:
            check("pausedUntil=" in f.read(), "the pause's end was not stored")
        self.screenshot("e2e-private-4-paused")
        check(self.app.poll() is None, "tamlo ended early with status %s" % self.app.returncode)

    def click(self, window, x, y):
        subprocess.run(["xdotool", "mousemove", "--window", window, str(x), str(y), "click", "1"],
                       env=self.env, check=True)
        time.sleep(1)


if __name__ == "__main__":
    sys.exit(e2e.main(PrivateRun, tools=("openbox", "xlogo", "xdotool", "xprop")))

#!/usr/bin/env python3
"""The Debian packages as a user installs them, in a throwaway root of this test's own.

Packs the build's tamlo and tamlo-server with CPack, installs both into an empty root with dpkg
(the maintainer scripts run too, against that root), checks the files against the layout, runs
the installed programs as a new user would, then removes the app and purges the server.

    package_install_test.py --build DIR --out DIR

Runs as root in a network of its own, so the app meets its real defaults: the server on
127.0.0.1:8787 and a stand-in Ollama on 127.0.0.1:11434. Exit status: 0 passed, 1 failed, 77
skipped (not root, or no network namespace).
"""

import argparse
import glob
import os
import shlex
import shutil
import signal
import stat
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from first_run_test import (EMAIL, SKIP, Accessibility, Failure, Run, StandInOllama, check,  # noqa: E402
                            isolate_network, port_taken, wait_for)

SERVER = ("127.0.0.1", 8787)
ICON_SIZES = (16, 22, 24, 32, 48, 64, 128, 256, 512)
LAYOUT = {
    "tamlo": {"/usr/bin/tamlo", "/usr/share/applications/tamlo.desktop",
              "/usr/share/metainfo/com.mirevon.Tamlo.metainfo.xml", "/usr/share/man/man1/tamlo.1.gz",
              "/usr/share/doc/tamlo/copyright", "/usr/share/doc/tamlo/changelog.gz",
              "/usr/share/icons/hicolor/scalable/apps/tamlo.svg"}
    | {"/usr/share/icons/hicolor/%dx%d/apps/tamlo.png" % (s, s) for s in ICON_SIZES},
    "tamlo-server": {"/usr/bin/tamlo-server", "/lib/systemd/system/tamlo-server.service",
                     "/usr/lib/systemd/user/tamlo-server.service", "/usr/lib/sysusers.d/tamlo-server.conf",
                     "/usr/lib/tmpfiles.d/tamlo-server.conf", "/usr/share/man/man1/tamlo-server.1.gz",
                     "/usr/share/doc/tamlo-server/copyright", "/usr/share/doc/tamlo-server/changelog.gz",
                     "/usr/share/doc/tamlo-server/server.md"},
}


class PackageRun(Run):
    def dpkg(self, *arguments):
        # The maintainer scripts run here, told by DPKG_ROOT which system they act on.
        result = subprocess.run(["dpkg", "--root=" + self.root, "--force-script-chrootless", *arguments],
                                capture_output=True, text=True, timeout=120)
        check(result.returncode == 0, "dpkg %s failed: %s%s" % (" ".join(arguments), result.stdout, result.stderr))
        return result.stdout

    def unit_command(self, unit):
        """The unit's ExecStart, pointed into the root."""
        with open(self.root + unit) as f:
            line = next(line for line in f if line.startswith("ExecStart="))
        command = shlex.split(line[len("ExecStart="):])
        check(os.access(self.root + command[0], os.X_OK), "%s starts %s, which is not installed" % (unit, command[0]))
        return [self.root + command[0]] + [self.root + a if a.startswith("/var/") else a for a in command[1:]]

    def install(self):
        debs = os.path.join(self.work, "debs")
        started = time.monotonic()
        packed = subprocess.run(["cpack", "-G", "DEB", "--config", os.path.join(self.args.build, "CPackConfig.cmake"),
                                 "-B", debs], capture_output=True, text=True, timeout=300)
        check(packed.returncode == 0, "cpack failed: " + packed.stdout + packed.stderr)
        files = sorted(glob.glob(os.path.join(debs, "*.deb")))
        self.say("packed %s in %.0f s" % ([os.path.basename(f) for f in files], time.monotonic() - started))

        self.root = os.path.join(self.work, "root")
        for folder in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers", "etc"):
            os.makedirs(os.path.join(self.root, folder))
        for name, text in (("var/lib/dpkg/status", ""), ("var/lib/dpkg/available", ""),
                           ("etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"), ("etc/group", "root:x:0:\n"),
                           ("etc/shadow", ""), ("etc/gshadow", "")):
            with open(os.path.join(self.root, name), "w") as f:
                f.write(text)
        # The root has no Qt: the programs run against this machine's.
        self.dpkg("--force-depends", "-i", *files)
        for package, expected in LAYOUT.items():
            listed = {p for p in self.dpkg("-L", package).splitlines() if os.path.isfile(self.root + p)}
            check(listed == expected, "%s holds %s, missing %s" % (package, sorted(listed - expected),
                                                                  sorted(expected - listed)))
        for validator in (["desktop-file-validate", "/usr/share/applications/tamlo.desktop"],
                          ["appstreamcli", "validate", "--no-net", "/usr/share/metainfo/com.mirevon.Tamlo.metainfo.xml"]):
            result = subprocess.run(validator[:-1] + [self.root + validator[-1]], capture_output=True, text=True)
            check(result.returncode == 0, "%s: %s%s" % (validator[0], result.stdout, result.stderr))

        # The system service's user and its 0700 state folder, where that user keeps a database.
        with open(os.path.join(self.root, "etc/passwd")) as f:
            user = next((line.split(":") for line in f if line.startswith("tamlo-server:")), None)
        check(user is not None, "postinst made no user tamlo-server")
        state = os.path.join(self.root, "var/lib/tamlo-server")
        info = os.stat(state)
        check((info.st_uid, stat.S_IMODE(info.st_mode)) == (int(user[2]), 0o700),
              "%s is owned by %d with mode %o" % (state, info.st_uid, stat.S_IMODE(info.st_mode)))
        os.chmod(self.work, 0o755)
        admin = subprocess.run(self.unit_command("/lib/systemd/system/tamlo-server.service")
                               + ["user", "add", "admin@example.org"], capture_output=True, text=True, timeout=30,
                               env=dict(os.environ, HOME=state), user=int(user[2]), group=int(user[3]),
                               extra_groups=[])
        check(admin.returncode == 0, "the service user cannot use its state folder: " + admin.stderr)
        self.say("installed; the service user's database is in /var/lib/tamlo-server")

    def scenario(self):
        a11y = Accessibility(self.env)
        with open(self.root + "/usr/share/applications/tamlo.desktop") as f:
            entry = dict(line.strip().split("=", 1) for line in f if "=" in line)
        check(entry.get("MimeType") == "x-scheme-handler/tamlo;", "the launcher entry handles no tamlo:// links")
        launcher = [a for a in shlex.split(entry["Exec"]) if a != "%u"]
        self.env["PATH"] = self.root + "/usr/bin" + os.pathsep + self.env["PATH"]
        self.args.tamlo = shutil.which(launcher[0], path=self.env["PATH"])
        self.args.server = self.root + "/usr/bin/tamlo-server"
        self.server_data = os.path.join(self.home, ".local/share/tamlo-server")

        # Started from the launcher with no server running, the sign-in screen says how to start it.
        command, env = self.tamlo(*launcher[1:])
        self.app = self.start("tamlo", command, env=env)
        names = wait_for("the way to start the server", lambda: "Try again" in a11y.names() and a11y.names(), 60)
        check("Log in" not in names, "the sign-in screen offers a page that cannot load")
        self.screenshot("package-1-start-server")

        # The user unit, as `systemctl --user enable --now tamlo-server` runs it.
        self.start("server", self.unit_command("/usr/lib/systemd/user/tamlo-server.service"))
        wait_for("tamlo-server on %s:%d" % SERVER, lambda: port_taken(SERVER), 30)
        # Chosen in the launcher again: the running Tamlo shows its panel and looks again.
        again = subprocess.run(command, env=env, capture_output=True, timeout=60)
        check(again.returncode == 0, "tamlo started again exited %d" % again.returncode)
        wait_for("the Log in button", lambda: "Log in" in a11y.names(), 15)

        subprocess.run([self.args.server, "--data", self.server_data, "user", "add", EMAIL], check=True,
                       capture_output=True, env=self.env, timeout=30)
        link = subprocess.run([self.args.server, "--data", self.server_data, "login-link", EMAIL],
                              capture_output=True, text=True, env=self.env, timeout=30).stdout.strip()
        check(link.startswith("tamlo://auth?token="), "login-link printed %r" % link)
        self.open_url(link)
        wait_for("the main screen", lambda: "Finish Setup" in a11y.names(), 30)
        today = time.strftime("%Y-%m-%d")
        day = wait_for("today's upload on the server", lambda: self.uploaded_day(today), 60)
        check(day["day"].get("snapshots"), "the upload stored no record")
        self.say("signed in; the server holds %d records of %s" % (len(day["day"]["snapshots"]), today))
        self.screenshot("package-2-signed-in")

    def remove(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                process.wait(timeout=10)
        self.dpkg("-r", "tamlo")
        check(os.path.exists(os.path.join(self.home, ".local/share/Tamlo/snapshots.json")),
              "removing the app took the user's records")
        self.dpkg("-P", "tamlo-server")
        left = {os.path.relpath(os.path.join(d, f), self.root)
                for d, folders, names in os.walk(self.root) for f in folders + names}
        ours = left - {"etc", "var", "var/lib", "var/lib/dpkg"}
        ours = {p for p in ours if not p.startswith(("var/lib/dpkg/", "etc/"))}
        check(ours == {"var/lib/tamlo-server", "var/lib/tamlo-server/tamlo-server.sqlite3"},
              "left after purging: %s" % sorted(ours))
        self.say("removed; only the system service's database is left")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True, help="the build folder with CPackConfig.cmake")
    parser.add_argument("--out", required=True, help="folder for the screenshots")
    args = parser.parse_args()
    if os.geteuid() != 0:
        print("SKIPPED: installing into a root of its own and a network of its own need root", flush=True)
        return SKIP
    isolate_network()
    if not os.environ.get("TAMLO_E2E_ISOLATED") or port_taken(SERVER) or port_taken(("127.0.0.1", 11434)):
        print("SKIPPED: no network of its own for the app's real addresses", flush=True)
        return SKIP

    run = PackageRun(args)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    failed = True
    try:
        run.install()
        run.ollama = StandInOllama()
        threading.Thread(target=run.ollama.serve_forever, daemon=True).start()
        run.set_up_desktop()
        run.scenario()
        run.remove()
        failed = False
        run.say("passed")
    except Failure as failure:
        run.say("FAILED: %s" % failure)
    finally:
        run.tear_down(failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

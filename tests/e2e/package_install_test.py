#!/usr/bin/env python3
"""The build's Debian packages installed by dpkg, maintainer scripts and all, into an empty root of
the test's own; the installed programs run there as a new user meets them, in a network of their
own (the server on 127.0.0.1:8787); then removed and purged. Skipped unless root."""

import glob
import os
import shlex

import desktop
from desktop import check, wait_for

SERVER = ("127.0.0.1", 8787)
LAYOUT = {
    "tamlo": {"/usr/bin/tamlo", "/usr/share/applications/tamlo.desktop", "/usr/share/man/man1/tamlo.1.gz",
              "/usr/share/metainfo/com.mirevon.Tamlo.metainfo.xml", "/usr/share/icons/hicolor/scalable/apps/tamlo.svg"}
    | {"/usr/share/icons/hicolor/%dx%d/apps/tamlo.png" % (s, s) for s in (16, 22, 24, 32, 48, 64, 128, 256, 512)},
    "tamlo-server": {"/usr/bin/tamlo-server", "/lib/systemd/system/tamlo-server.service",
                     "/usr/lib/systemd/user/tamlo-server.service", "/usr/lib/sysusers.d/tamlo-server.conf",
                     "/usr/lib/tmpfiles.d/tamlo-server.conf", "/usr/share/man/man1/tamlo-server.1.gz",
                     "/usr/share/doc/tamlo-server/server.md"},
}
STATE = "/var/lib/tamlo-server"


class PackageInstall(desktop.Desktop):
    needs_own_network = True

    def dpkg(self, *arguments):
        # Maintainer scripts run on this machine, told by DPKG_ROOT which system they act on.
        result = self.run("dpkg", "--root=" + self.root, "--force-script-chrootless", *arguments, timeout=120)
        check(result.returncode == 0, "dpkg %s: %s%s" % (" ".join(arguments), result.stdout, result.stderr))
        return result.stdout

    def unit_command(self, unit):
        with open(self.root + unit) as f:
            command = shlex.split(next(line for line in f if line.startswith("ExecStart="))[len("ExecStart="):])
        return [self.root + a if a.startswith(("/usr/", STATE)) else a for a in command]

    def set_up(self):
        debs = os.path.join(self.work, "debs")
        packed = self.run("cpack", "-G", "DEB", "--config", self.args.build + "/CPackConfig.cmake", "-B", debs,
                          timeout=300)
        check(packed.returncode == 0, "cpack: " + packed.stdout + packed.stderr)
        self.root = os.path.join(self.work, "root")
        for name, text in (("var/lib/dpkg/status", ""), ("var/lib/dpkg/available", ""), ("etc/shadow", ""),
                           ("etc/gshadow", ""), ("etc/passwd", "root:x:0:0::/root:/bin/sh\n"),
                           ("etc/group", "root:x:0:\n")):
            os.makedirs(os.path.dirname(self.root + "/" + name), exist_ok=True)
            with open(self.root + "/" + name, "w") as f:
                f.write(text)
        for folder in ("info", "updates", "triggers"):
            os.makedirs(os.path.join(self.root, "var/lib/dpkg", folder))
        # The root holds only our files: the programs run against this machine's Qt.
        self.dpkg("--force-depends", "-i", *glob.glob(debs + "/*.deb"))
        for package, expected in LAYOUT.items():
            files = {p for p in self.dpkg("-L", package).splitlines() if os.path.isfile(self.root + p)}
            expected |= {"/usr/share/doc/%s/%s" % (package, doc) for doc in ("copyright", "changelog.gz")}
            check(files == expected, "%s: extra %s, missing %s" % (package, files - expected, expected - files))

        # The system service's command, run as its user, keeps its database in its state folder.
        with open(self.root + "/etc/passwd") as f:
            user = next((line.split(":") for line in f if line.startswith("tamlo-server:")), None)
        check(user and os.stat(self.root + STATE).st_mode & 0o777 == 0o700, "no service user or 0700 state folder")
        os.chmod(self.work, 0o755)
        admin = self.run(*self.unit_command("/lib/systemd/system/tamlo-server.service"), "user", "list",
                         env=dict(os.environ, HOME=self.root + STATE), user=int(user[2]), group=int(user[3]),
                         extra_groups=[])
        check(admin.returncode == 0, "the service user cannot use its state folder: " + admin.stderr)
        self.say("installed")
        self.ollama = desktop.StandInOllama()
        self.set_up_desktop()

    def scenario(self):
        with open(self.root + "/usr/share/applications/tamlo.desktop") as f:
            entry = dict(line.strip().split("=", 1) for line in f if "=" in line)
        check(entry["MimeType"] == "x-scheme-handler/tamlo;" and entry["Exec"] == "tamlo %u",
              "launcher entry %r" % entry)
        self.args.tamlo, self.args.server = self.root + "/usr/bin/tamlo", self.root + "/usr/bin/tamlo-server"
        self.server_data = os.path.join(self.home, ".local/share/tamlo-server")

        # From the launcher with no server running, the sign-in screen says how to start it.
        self.start_tamlo()
        names = self.on_panel("Try again", 60)
        check("Log in" not in names, "the sign-in screen offers a page that cannot load")
        self.screenshot("package-1-start-server")
        # The user unit started as systemd would, then Tamlo from the launcher again: the running one looks again.
        self.start("server", self.unit_command("/usr/lib/systemd/user/tamlo-server.service"))
        wait_for("tamlo-server on %s:%d" % SERVER, lambda: desktop.port_taken(SERVER), 30)
        self.open_url("")
        self.on_panel("Log in", 15)

        self.sign_in_by_link()
        self.on_panel("Finish Setup", 30)
        day = wait_for("today's upload on the installed server", self.uploaded_today, 60)
        check(day.get("snapshots"), "the upload stored no record")
        self.screenshot("package-2-signed-in")

        for process in reversed(self.processes):
            process.terminate()
            process.wait(timeout=10)
        self.dpkg("-r", "tamlo")
        self.dpkg("-P", "tamlo-server")
        check(os.path.exists(self.home + "/.local/share/Tamlo/snapshots.json"), "removal took the user's records")
        left = {p for d, dirs, files in os.walk(self.root) for f in dirs + files
                if not (p := os.path.relpath(os.path.join(d, f), self.root)).startswith(("etc", "var/lib/dpkg"))
                and p not in ("var", "var/lib")}
        check(left == {STATE[1:], STATE[1:] + "/tamlo-server.sqlite3"}, "left after purging: %s" % sorted(left))


if __name__ == "__main__":
    desktop.main(PackageInstall, options=("build", "out"))

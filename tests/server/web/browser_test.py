#!/usr/bin/python3
"""A user's whole round through Tamlo's web pages, in real headless Chromium.

A real tamlo-server in e-mail sign-in mode, a stand-in SMTP server on 127.0.0.1 that catches the
sign-in mails, and the app's own sign-in and sync services (tamlo_sync_client) as the computer
that uploads. Registers, signs the browser in from the mailed link, signs the app in from its own
link, sees the upload on the days pages, asks for a sync that the app's poll serves, revokes the
app's session so that its next upload signs it out, exports, and deletes the account. Saves a
screenshot of every page on the way.

Exit code 77 (a skip for CTest) when Chromium, its driver, Selenium or aiosmtpd is missing.
"""

import argparse
import email
import email.policy
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

SKIP = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
EMAIL = "ada@example.org"

try:
    from aiosmtpd.controller import Controller
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError as error:  # pragma: no cover - depends on the machine
    print(f"SKIP: {error.name} is not installed (Debian: python3-selenium, python3-aiosmtpd)")
    sys.exit(SKIP)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class MailCatcher:
    """Keeps every message the server hands over, for the test to wait on."""

    def __init__(self):
        self.messages = []
        self.arrived = threading.Condition()

    async def handle_DATA(self, server, session, envelope):  # noqa: N802 - aiosmtpd's name
        message = email.message_from_bytes(envelope.content, policy=email.policy.default)
        with self.arrived:
            self.messages.append((envelope.mail_from, envelope.rcpt_tos, message))
            self.arrived.notify_all()
        return "250 OK"

    def wait_for(self, count, timeout=20):
        deadline = time.monotonic() + timeout
        with self.arrived:
            while len(self.messages) < count:
                left = deadline - time.monotonic()
                if left <= 0:
                    raise AssertionError(f"expected {count} mails, got {len(self.messages)}")
                self.arrived.wait(left)
            return self.messages[count - 1]


class SyncClient:
    """The app's services in their own process, one JSON answer per command."""

    def __init__(self, program, backend, home):
        self.process = subprocess.Popen([program, backend, home], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)

    def __call__(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            raise AssertionError(f"the sync client ended at {command!r}")
        return json.loads(line)

    def close(self):
        if self.process.poll() is None:
            self.process.stdin.write("quit\n")
            self.process.stdin.flush()
            self.process.wait(10)


def check(condition, message):
    if not condition:
        raise AssertionError(message)


class Round:
    def __init__(self, args, workdir):
        self.args = args
        self.workdir = workdir
        self.shots = []
        os.makedirs(args.screenshots, exist_ok=True)

    def start(self):
        self.catcher = MailCatcher()
        smtp_port = free_port()
        self.smtp = Controller(self.catcher, hostname="127.0.0.1", port=smtp_port)
        self.smtp.start()
        self.port = free_port()
        self.base = f"http://127.0.0.1:{self.port}"
        self.server_log = open(os.path.join(self.workdir, "server.log"), "w")
        self.server = subprocess.Popen(
            [self.args.server, "--data", os.path.join(self.workdir, "data"), "--listen", f"127.0.0.1:{self.port}",
             "--email-sign-in", "--smtp-host", "127.0.0.1", "--smtp-port", str(smtp_port),
             "--smtp-security", "none", "--mail-from", "Tamlo <tamlo@localhost>"],
            stderr=self.server_log)
        for _ in range(100):
            try:
                urllib.request.urlopen(self.base + "/docs/installation", timeout=1).read()
                break
            except OSError:
                time.sleep(0.1)
        else:
            raise AssertionError("tamlo-server did not start")
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for flag in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--hide-scrollbars", "--force-device-scale-factor=1",
                     "--window-size=1000,760", f"--user-data-dir={os.path.join(self.workdir, 'chromium')}"]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
        self.driver.set_page_load_timeout(20)
        self.client = SyncClient(self.args.client, self.base, os.path.join(self.workdir, "home"))

    def stop(self):
        for step in (lambda: self.client.close(), lambda: self.driver.quit(), lambda: self.smtp.stop()):
            try:
                step()
            except Exception:  # noqa: BLE001 - tear-down goes on
                pass
        if getattr(self, "server", None) and self.server.poll() is None:
            self.server.terminate()
            self.server.wait(10)

    # --- helpers -------------------------------------------------------------------------------
    def open(self, path):
        self.driver.get(path if path.startswith("http") else self.base + path)

    def text(self):
        return self.driver.find_element(By.TAG_NAME, "body").text

    def shoot(self, name):
        """Full page height, so nothing below the fold is missing from the picture."""
        height = self.driver.execute_script("return document.documentElement.scrollHeight")
        # The window's height includes what the browser keeps for itself; the page must fit below it.
        self.driver.set_window_size(1000, max(760, min(height + 160, 2400)))
        path = os.path.join(self.args.screenshots, name + ".png")
        self.driver.save_screenshot(path)
        # Every figure whole: no box that holds a number cuts its text, at the page's own width.
        cut = self.driver.execute_script("""
            return [...document.querySelectorAll('main *')].filter(e => !e.children.length && !e.title
                && /\\d/.test(e.textContent) && e.scrollWidth > e.clientWidth).map(e => e.textContent);""")
        check(not cut, f"{name}: figures cut short: {cut}")
        self.driver.set_window_size(1000, 760)
        self.shots.append(path)
        # The strict policy must not have had to block anything on this page.
        blocked = [entry["message"] for entry in self.driver.get_log("browser")
                   if "Content Security Policy" in entry["message"]]
        check(not blocked, f"{name}: the page broke its own policy: {blocked}")

    def submit(self, fields, button_text=None):
        for name, value in fields.items():
            field = self.driver.find_element(By.NAME, name)
            field.clear()
            field.send_keys(value)
        buttons = self.driver.find_elements(By.CSS_SELECTOR, "main button[type=submit]")
        if button_text:
            buttons = [b for b in buttons if b.text == button_text]
        self.click_through(buttons[0])

    def click_through(self, element):
        """Clicks and waits for the next page. The old page is marked on its window object, not held
        by an element reference: newer drivers report a stale reference with a generic error."""
        self.driver.execute_script("window.tamloOldPage = true;")
        element.click()
        WebDriverWait(self.driver, 15).until(lambda driver: driver.execute_script(
            "return window.tamloOldPage === undefined && document.readyState === 'complete';"))

    def mailed_link(self, count):
        sender, recipients, message = self.catcher.wait_for(count)
        check(recipients == [EMAIL], f"mail went to {recipients}")
        # A sender with a display name: the bare address on the envelope, the name in From:.
        check(sender == "tamlo@localhost" and message["From"] == "Tamlo <tamlo@localhost>", f"{sender} {message}")
        body = message.get_body(preferencelist=("plain",)).get_content()
        match = re.search(r"http://\S+/auth/link\?\S+", body)
        check(match, f"no link in the mail: {body}")
        return match.group(0)

    def fetch(self, path):
        cookie = self.driver.get_cookie("tamlo_session")
        request = urllib.request.Request(self.base + path, headers={"Cookie": f"tamlo_session={cookie['value']}"})
        with urllib.request.urlopen(request, timeout=10) as reply:
            return reply.read().decode("utf-8")

    # --- the round -----------------------------------------------------------------------------
    def run(self):
        self.open("/")
        self.shoot("home")
        self.open("/docs/installation")
        self.shoot("installation")

        # Register in the browser; the link comes by mail and signs this browser in.
        self.open("/register")
        self.shoot("register")
        self.submit({"email": EMAIL, "name": "Ada"})
        check("Check your e-mail" in self.text(), self.text())
        self.shoot("check-email")
        self.open(self.mailed_link(1))
        with open(os.path.join(self.workdir, "server.log")) as log:
            check("The SMTP server 127.0.0.1:" in log.read(), "the server did not say its SMTP server answers")
        check("Continue" in self.text(), self.text())
        self.shoot("email-link")
        self.submit({})
        check(self.driver.current_url == self.base + "/days", self.driver.current_url)
        check("No days here yet" in self.text(), self.text())
        self.shoot("days-empty")

        # The app signs in the way the app does: its login page, the mailed link, tamlo://auth.
        self.driver.delete_all_cookies()
        self.open("/login?redirect=tamlo://auth")
        self.shoot("login-from-app")
        self.submit({"email": EMAIL})
        check("Check your e-mail" in self.text(), self.text())
        app_link = self.mailed_link(2)
        check("to=app" in app_link, app_link)
        # The page hands the browser on to the app, which headless Chromium cannot follow: the page is
        # fetched as the browser would, and shown without its hand-over for the picture.
        html = urllib.request.urlopen(app_link, timeout=10).read().decode("utf-8")
        callback = re.search(r'href="(tamlo://auth\?token=[^"]+)"', html).group(1).replace("&amp;", "&")
        check("Open Tamlo" in html and f'content="0;url={callback}"' in html, html)
        self.open("/docs/installation")
        self.driver.execute_script("document.open(); document.write(arguments[0]); document.close();",
                                   html.replace('<meta http-equiv="refresh"', '<meta name="hand-over"'))
        self.shoot("open-tamlo")
        signed_in = self.client("signin " + callback.split("token=", 1)[1])
        check(signed_in["authenticated"], f"the app did not sign in: {signed_in}")

        # Back in the browser, signed in again from a fresh mailed link.
        self.open("/login")
        self.submit({"email": EMAIL})
        self.open(self.mailed_link(3))
        self.submit({})
        check(self.driver.current_url == self.base + "/days", self.driver.current_url)

        # The app uploads today and yesterday through its own sync service; the days pages show them.
        for _ in range(2):
            self.client("record 1 1")  # one project and one category: shares of 100%
        self.client("record 12")
        uploaded = self.client("sync")
        check("lastSync" in uploaded and "syncError" not in uploaded, f"upload: {uploaded}")
        ids = self.client("ids")["ids"]
        self.open("/days")
        check("active" in self.text() and "Website" in self.text(), self.text())
        self.shoot("days")
        self.click_through(self.driver.find_element(By.CSS_SELECTOR, "article.day h2 a"))
        check("Editing the day page, record 12" in self.text(), self.text())
        check("Screen locked" in self.text(), self.text())
        check("Note: shipped the export" in self.text(), self.text())
        self.shoot("day")
        self.open("/days")
        self.click_through(self.driver.find_elements(By.CSS_SELECTOR, "article.day h2 a")[1])
        check("100%" in self.text(), self.text())
        self.shoot("day-one-project")

        # "Sync now": the app's next poll sees it and uploads, and the upload clears it.
        self.open("/sync")
        self.submit({}, "Sync now")
        check("Waiting for your devices" in self.text(), self.text())
        self.shoot("sync-requested")
        before = uploaded["lastSync"]
        time.sleep(1.1)
        polled = self.client("poll")
        check(polled.get("lastSync", 0) > before, f"the poll did not upload: {polled}")
        self.open("/sync")
        check("Waiting for your devices" not in self.text(), self.text())
        self.shoot("sync")

        # Revoking the app's session: its next upload is refused and it signs itself out.
        self.open("/devices")
        check("Tamlo app" in self.text() and "this browser" in self.text(), self.text())
        self.shoot("devices")
        rows = self.driver.find_elements(By.CSS_SELECTOR, "tbody tr")
        app_row = [row for row in rows if "Tamlo app" in row.text][0]
        self.click_through(app_row.find_element(By.TAG_NAME, "button"))
        check("Tamlo app" not in self.text(), self.text())
        after = self.client("sync")
        check(not after["authenticated"], f"the app is still signed in: {after}")

        # Export: nothing the app recorded is missing from it.
        self.open("/export")
        self.shoot("export")
        exported = json.loads(self.fetch("/export/tamlo-data.json"))
        exported_ids = [s["id"] for day in exported["days"] for s in day["snapshots"]]
        check(sorted(exported_ids) == sorted(ids), f"export {exported_ids} != uploaded {ids}")

        # Delete the account, after typing the address.
        self.open("/account")
        self.shoot("account")
        self.submit({"confirm": EMAIL}, "Delete my account")
        check("Your account is deleted" in self.text(), self.text())
        self.shoot("account-deleted")
        self.open("/days")
        check("/login" in self.driver.current_url, self.driver.current_url)
        self.shoot("login")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--server", required=True)
    parser.add_argument("--client", required=True)
    parser.add_argument("--screenshots", required=True)
    args = parser.parse_args()
    for program in (CHROMIUM, CHROMEDRIVER):
        if not shutil.which(program):
            print(f"SKIP: {program} is not installed (Debian: chromium, chromium-driver)")
            return SKIP
    workdir = tempfile.mkdtemp(prefix="tamlo-browser-")
    round_ = Round(args, workdir)
    try:
        round_.start()
        round_.run()
    except Exception:
        log = os.path.join(workdir, "server.log")
        if os.path.exists(log):
            sys.stderr.write(open(log).read()[-4000:])
        raise
    finally:
        round_.stop()
        shutil.rmtree(workdir, ignore_errors=True)
    print(f"PASS: {len(round_.shots)} screenshots in {args.screenshots}")
    return 0


if __name__ == "__main__":
    sys.exit(main())

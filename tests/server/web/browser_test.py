#!/usr/bin/python3
"""A user's round through Tamlo's web pages in headless Chromium, with a screenshot of every page,
against tamlo-server in e-mail sign-in mode and a stand-in SMTP server. Exit code 77 (a skip) without
Chromium, Selenium or aiosmtpd."""

import argparse
import contextlib
import email
import email.policy
import json
import os
import queue
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import types
import urllib.error
import urllib.request
import uuid

SKIP = 77
CHROMIUM, CHROMEDRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
EMAIL = "ada@example.org"
DEVICE = "5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"

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


def check(condition, message):
    if not condition:
        raise AssertionError(message)


class Round:
    def __init__(self, args, workdir):
        self.args, self.workdir, self.shots = args, workdir, []
        os.makedirs(args.screenshots, exist_ok=True)

    def start(self):
        self.mails = queue.Queue()  # every message the server hands over, in order

        async def handle_data(server, session, envelope):
            self.mails.put((envelope.mail_from, envelope.rcpt_tos,
                            email.message_from_bytes(envelope.content, policy=email.policy.default)))
            return "250 OK"
        smtp_port = free_port()
        self.smtp = Controller(types.SimpleNamespace(handle_DATA=handle_data), hostname="127.0.0.1", port=smtp_port)
        self.smtp.start()
        listen = f"127.0.0.1:{free_port()}"
        self.base = "http://" + listen
        self.server = subprocess.Popen(
            [self.args.server, "--data", os.path.join(self.workdir, "data"), "--listen", listen,
             "--email-sign-in", "--smtp-host", "127.0.0.1", "--smtp-port", str(smtp_port),
             "--smtp-security", "none", "--mail-from", "Tamlo <tamlo@localhost>"],
            stderr=open(os.path.join(self.workdir, "server.log"), "w"))
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

    def stop(self):
        for step in (lambda: self.driver.quit(), lambda: self.smtp.stop(),
                     lambda: self.server.terminate(), lambda: self.server.wait(10)):
            with contextlib.suppress(Exception):  # tear-down goes on
                step()

    def api(self, path, body=None):
        """The app's call: its status and JSON answer."""
        request = urllib.request.Request(self.base + path, data=body and json.dumps(body).encode(), headers={
            "Authorization": f"Bearer {self.session}", "Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=10) as reply:
                return reply.status, json.loads(reply.read())
        except urllib.error.HTTPError as error:
            return error.code, json.loads(error.read())

    def upload(self):
        """Twelve records on the 16th, one on the 15th (shares of 100%), each day ending locked."""
        def day(date, count):
            records = [{"id": str(uuid.uuid4()).upper(), "timestamp": f"{date}T09:{i // 2:02}:{i % 2 * 30:02}Z",
                        "activityType": "Meeting" if i % 3 == 0 else "Coding",
                        "projectName": "Website" if i % 2 == 0 else "Tamlo",
                        "activityDescription": f"Editing the day page, record {i}",
                        **({"userNote": "shipped the export"} if i == 1 else {})} for i in range(1, count + 1)]
            records.append({"id": str(uuid.uuid4()).upper(), "timestamp": f"{date}T09:10:00Z", "activityType": "Other",
                            "projectName": "Other", "activityDescription": "Screen Locked"})
            return {"date": date, "snapshots": records}
        days = [day("2026-11-16", 12), day("2026-11-15", 1)]
        return self.api("/activity/sync", {"timezone": "Europe/Berlin", "deviceId": DEVICE,
                                           "backfillComplete": True, "days": days})[0]

    def open(self, path, shot=None):
        self.driver.get(path if path.startswith("http") else self.base + path)
        if shot:
            self.shoot(shot)

    def text(self):
        return self.driver.find_element(By.TAG_NAME, "body").text

    def shoot(self, name):
        """Full page height, so nothing below the fold is missing from the picture."""
        height = self.driver.execute_script("return document.documentElement.scrollHeight")
        # The window's height includes what the browser keeps for itself; the page must fit below it.
        self.driver.set_window_size(1000, max(760, min(height + 160, 2400)))
        self.shots.append(os.path.join(self.args.screenshots, name + ".png"))
        self.driver.save_screenshot(self.shots[-1])
        # Every figure whole: no box that holds a number cuts its text, at the page's own width.
        cut = self.driver.execute_script("""
            return [...document.querySelectorAll('main *')].filter(e => !e.children.length && !e.title
                && /\\d/.test(e.textContent) && e.scrollWidth > e.clientWidth).map(e => e.textContent);""")
        check(not cut, f"{name}: figures cut short: {cut}")
        self.driver.set_window_size(1000, 760)
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
        self.click_through([b for b in buttons if button_text in (None, b.text)][0])

    def click_through(self, element):
        """The old page is marked on its window, as newer drivers report a stale element generically."""
        self.driver.execute_script("window.tamloOldPage = true;")
        element.click()
        WebDriverWait(self.driver, 15).until(lambda driver: driver.execute_script(
            "return window.tamloOldPage === undefined && document.readyState === 'complete';"))

    def mailed_link(self):
        sender, recipients, message = self.mails.get(timeout=20)
        check(recipients == [EMAIL], f"mail went to {recipients}")
        # A sender with a display name: the bare address on the envelope, the name in From:.
        check(sender == "tamlo@localhost" and message["From"] == "Tamlo <tamlo@localhost>", f"{sender} {message}")
        check(re.fullmatch(r"<[0-9a-f-]{36}@localhost>", message["Message-ID"]), message["Message-ID"])
        match = re.search(r"http://\S+/auth/link\?\S+", message.get_body(preferencelist=("plain",)).get_content())
        check(match, f"no link in the mail: {message}")
        return match.group(0)

    def run(self):
        self.open("/", "home")
        self.open("/docs/installation", "installation")

        # Register in the browser; the link comes by mail and signs this browser in, once.
        self.open("/register", "register")
        self.submit({"email": EMAIL, "name": "Ada"})
        check("Check your e-mail" in self.text(), self.text())
        self.shoot("check-email")
        link = self.mailed_link()
        with open(os.path.join(self.workdir, "server.log")) as log:
            check("The SMTP server 127.0.0.1:" in log.read(), "the server did not say its SMTP server answers")
        self.open(link)  # as a mail scanner would: that uses nothing up, its form does
        check("Continue" in self.text(), self.text())
        self.shoot("email-link")
        self.submit({})
        check(self.driver.current_url == self.base + "/days", self.driver.current_url)
        check("No days here yet" in self.text(), self.text())
        self.shoot("days-empty")
        self.open(link)
        self.submit({})
        check("This sign-in link has expired" in self.text(), self.text())

        # The app signs in the way the app does: its login page, the mailed link, tamlo://auth.
        self.open("/login?redirect=tamlo://auth", "login-from-app")
        self.submit({"email": EMAIL})
        check("Check your e-mail" in self.text(), self.text())
        app_link = self.mailed_link()
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
        self.session = None
        status, signed_in = self.api("/auth/verify-token", {"token": callback.split("token=", 1)[1]})
        check(status == 200, f"the app did not sign in: {signed_in}")
        self.session = signed_in["sessionToken"]

        # Asking for a link never tells whether an address has an account, and mails either way.
        for path in ("/login", "/register"):
            pages = []
            for address in (EMAIL, "nobody@example.org"):
                self.open(path)
                self.submit({"email": address})
                pages.append(self.driver.page_source.replace(address, "ADDRESS"))
            check(pages[0] == pages[1], f"{path} tells a registered address from another")
        for _ in range(4):
            self.mails.get(timeout=20)

        # The app uploads two days; the days pages show them.
        check(self.upload() == 200, "the upload was refused")
        self.open("/days")
        check("active" in self.text() and "Website" in self.text(), self.text())
        self.shoot("days")
        self.click_through(self.driver.find_element(By.CSS_SELECTOR, "article.day h2 a"))
        for text in ("Editing the day page, record 12", "Screen locked", "Note: shipped the export"):
            check(text in self.text(), self.text())
        self.shoot("day")
        self.open("/days")
        self.click_through(self.driver.find_elements(By.CSS_SELECTOR, "article.day h2 a")[1])
        check("100%" in self.text(), self.text())
        self.shoot("day-one-project")

        # "Sync now": the app's next poll sees it, and its upload clears it.
        self.open("/sync")
        self.submit({}, "Sync now")
        check("Waiting for your devices" in self.text(), self.text())
        self.shoot("sync-requested")
        check(self.upload() == 200, "the upload was refused")
        self.open("/sync")
        check("Waiting for your devices" not in self.text(), self.text())
        self.shoot("sync")

        # Revoking the app's session: its next upload is refused.
        self.open("/devices")
        check("this browser" in self.text(), self.text())
        self.shoot("devices")
        app_row = [row for row in self.driver.find_elements(By.CSS_SELECTOR, "tbody tr") if "Tamlo app" in row.text]
        self.click_through(app_row[0].find_element(By.TAG_NAME, "button"))
        check("Tamlo app" not in self.text(), self.text())

        self.open("/export", "export")

        self.open("/account", "account")
        self.submit({"confirm": EMAIL}, "Delete my account")
        check("Your account is deleted" in self.text(), self.text())
        self.shoot("account-deleted")
        self.open("/days")
        check("/login" in self.driver.current_url, self.driver.current_url)
        self.shoot("login")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("--server", "--screenshots"):
        parser.add_argument(option, required=True)
    args = parser.parse_args()
    for program in (CHROMIUM, CHROMEDRIVER):
        if not shutil.which(program):
            print(f"SKIP: {program} is not installed (Debian: chromium, chromium-driver)")
            return SKIP
    with tempfile.TemporaryDirectory(prefix="tamlo-browser-", ignore_cleanup_errors=True) as workdir:
        round_ = Round(args, workdir)
        try:
            round_.start()
            round_.run()
        except Exception:
            if os.path.exists(log := os.path.join(workdir, "server.log")):
                sys.stderr.write(open(log).read()[-4000:])
            raise
        finally:
            round_.stop()
    print(f"PASS: {len(round_.shots)} screenshots in {args.screenshots}")
    return 0


if __name__ == "__main__":
    sys.exit(main())

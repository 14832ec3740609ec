#!/usr/bin/env python3
"""Time away and unchanged screens with the real program: Xvfb's screen saver extension gives the
input's idle time, the stand-in Ollama counts the pictures. The away threshold is one minute."""

import desktop
from desktop import check, wait_for


class Presence(desktop.Desktop):
    tools = ("xdotool", "xlogo")

    def scenario(self):
        self.configure(awayThresholdMinutes=1)
        self.run("xdotool", "mousemove", "1", "1", check=True)
        self.start_tamlo()
        sent = lambda: len(self.ollama.analyses())  # noqa: E731

        def next_record(what):
            count = len(self.snapshots())
            return wait_for(what, lambda: self.snapshots()[count:] and self.snapshots()[count], 45)

        # A still screen with recent input reuses the analysis (a second may follow a panel still drawing).
        wait_for("a reused record", lambda: len(self.analysed()) > sent(), 75)
        first, reused = self.analysed()[-2:]
        check(sent() <= 2 and reused["id"] != first["id"] and reused.get("activityDescription") == first.get(
            "activityDescription"), "%d pictures; %r does not repeat %r" % (sent(), reused, first))
        pictures = sent()

        # A minute without input on the still screen: Away, and nothing sent.
        away = wait_for("an Away record", lambda: self.snapshots("Away"), 75)[0]
        check(sent() == pictures and not away.get("imageHash"), "away: %r after %d pictures" % (away, sent()))

        # Still no input, but a new window: the first changed screen is analysed at once.
        self.start("xlogo", ["xlogo", "-geometry", "640x480+40+40"])
        changed = next_record("the record after the new window")
        check(changed.get("imageHash") and sent() == pictures + 1, "new window: %r, %d pictures" % (changed, sent()))

        # Input on the same screen: not away, and the analysis stands in.
        self.run("xdotool", "mousemove", "700", "700", check=True)
        back = next_record("the record after the input")
        check(back.get("imageHash") and sent() == pictures + 1, "after input: %r, %d pictures" % (back, sent()))


if __name__ == "__main__":
    desktop.main(Presence, options=("tamlo",))

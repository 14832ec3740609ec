#!/usr/bin/env python3
"""Time away and unchanged screens with the real program, on first_run_test's desktop: Xvfb
(whose screen saver extension gives the input's idle time), a private bus and a stand-in Ollama
that counts the pictures it is sent. The away threshold is one minute, set in the settings file.

    presence_test.py --tamlo PATH        exit status 0 passed, 1 failed, 77 skipped
"""

import argparse
import os
import subprocess
import sys
import threading

sys.dont_write_bytecode = True
import first_run_test as e2e  # noqa: E402


def scenario(run):
    os.makedirs(os.path.join(run.home, ".config", "Tamlo"))
    with open(os.path.join(run.home, ".config", "Tamlo", "Tamlo.conf"), "w") as f:
        f.write("[General]\nawayThresholdMinutes=1\n")
    subprocess.run(["xdotool", "mousemove", "1", "1"], env=run.env, check=True)
    command, env = run.tamlo()
    run.start("tamlo", command, env=env)
    sent = lambda: len(run.ollama.image_hashes())  # noqa: E731
    labelled = lambda: [s for s in run.snapshots() if s.get("imageHash")]  # noqa: E731

    def next_record(what):
        count = len(run.snapshots())
        return e2e.wait_for(what, lambda: run.snapshots()[count:] and run.snapshots()[count], 45)

    # A still screen with recent input: the analysis stands in again. The panel may still be
    # drawing at the first tick, so a second analysis may follow it.
    e2e.wait_for("a reused record", lambda: len(labelled()) > sent(), 75)
    first, reused = labelled()[-2:]
    e2e.check(sent() <= 2 and reused["id"] != first["id"] and reused.get("activityDescription") == first.get(
        "activityDescription"), "%d pictures; %r does not repeat %r" % (sent(), reused, first))
    pictures = sent()

    # A minute without input on the still screen: Away, and nothing sent.
    away = e2e.wait_for("an Away record", lambda: next(
        (s for s in run.snapshots() if s.get("activityDescription") == "Away"), None), 75)
    e2e.check(sent() == pictures and not away.get("imageHash"), "away: %r after %d pictures" % (away, sent()))
    run.say("still screen: %d picture(s), then reused, then Away" % pictures)

    # Still no input, but a new window: the first changed screen is analysed at once.
    run.start("xlogo", ["xlogo", "-geometry", "640x480+40+40"], env=run.env)
    changed = next_record("the record after the new window")
    e2e.check(changed.get("imageHash") and sent() == pictures + 1, "new window: %r, %d pictures" % (changed, sent()))

    # Input on the same screen: not away, and the analysis stands in.
    subprocess.run(["xdotool", "mousemove", "700", "700"], env=run.env, check=True)
    back = next_record("the record after the input")
    e2e.check(back.get("imageHash") and sent() == pictures + 1, "after input: %r, %d pictures" % (back, sent()))
    run.say("new window analysed; input on it: reused (%d pictures in all)" % sent())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tamlo", required=True)
    args = parser.parse_args()
    e2e.isolate_network()
    if e2e.port_taken(e2e.OLLAMA_ADDRESS):
        print("SKIPPED: 127.0.0.1:11434 is taken and only root gets a network of its own", flush=True)
        return e2e.SKIP
    run = e2e.Run(args)
    failed = True
    try:
        run.ollama = e2e.StandInOllama()
        threading.Thread(target=run.ollama.serve_forever, daemon=True).start()
        run.set_up_desktop()
        scenario(run)
        failed = False
        run.say("passed")
    except e2e.Failure as failure:
        run.say("FAILED: %s" % failure)
    finally:
        run.tear_down(failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

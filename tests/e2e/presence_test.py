#!/usr/bin/env python3
"""Time away and unchanged screens with the real program: Xvfb (whose screen saver extension
gives the input's idle time), a private bus and a stand-in Ollama on 127.0.0.1:11434 that counts
the pictures it is asked about. The away threshold is set to one minute in the settings file.

    presence_test.py --tamlo PATH

Exit status: 0 passed, 1 failed, 77 skipped (port 11434 taken and no network of our own).
"""

import argparse
import os
import signal
import subprocess
import sys
import threading

import first_run_test as e2e


def scenario(run):
    config = os.path.join(run.home, ".config", "Tamlo")
    os.makedirs(config)
    with open(os.path.join(config, "Tamlo.conf"), "w") as f:
        f.write("[General]\nawayThresholdMinutes=1\n")
    # Input now, so the idle time runs from a known moment.
    subprocess.run(["xdotool", "mousemove", "1", "1"], env=run.env, check=True)
    command, env = run.tamlo()
    run.start("tamlo", command, env=env)

    def requests():
        return len(run.ollama.image_hashes())

    def next_record(what, after, timeout):
        return e2e.wait_for(what, lambda: run.snapshots()[after] if len(run.snapshots()) > after else None, timeout)

    # The screen stands still with the input recent: one analysis, then the same labels again
    # without asking. The panel may still be drawing at the first tick, so a second may follow.
    def labelled():
        return [s for s in run.snapshots() if s.get("imageHash")]
    e2e.wait_for("a reused record", lambda: len(labelled()) > requests(), 75)
    first, reused = labelled()[-2:]
    e2e.check(requests() <= 2, "%d pictures were sent for a still screen" % requests())
    e2e.check((reused["aiCategory"], reused.get("activityDescription")) == (
        first["aiCategory"], first.get("activityDescription")) and reused["id"] != first["id"],
        "the reused record %r does not repeat %r" % (reused, first))
    sent = requests()
    run.say("still screen: %d picture(s) sent for %d records" % (sent, len(labelled())))

    # A minute without input on the still screen: away, and nothing sent.
    away_at = e2e.wait_for("an Away record", lambda: next(
        (i for i, s in enumerate(run.snapshots()) if s.get("activityDescription") == "Away"), None), 75)
    away = run.snapshots()[away_at]
    e2e.check(requests() == sent, "a picture was sent while away")
    e2e.check(not away.get("imageHash") and not away["aiCategory"], "the Away record %r has labels" % away)
    run.say("no input for a minute: record %d is Away" % away_at)

    # Without any input, a new window: the first changed screen is analysed at once.
    run.start("xlogo", ["xlogo", "-geometry", "640x480+40+40"], env=run.env)
    changed = next_record("the record after the new window", len(run.snapshots()), 45)
    e2e.check(changed.get("activityDescription") != "Away" and requests() == sent + 1,
              "a changed screen with idle input gave %r after %d pictures" % (changed, requests()))
    run.say("changed screen, idle input: analysed (%d pictures in all)" % requests())

    # Input again on the same screen: not away, and the analysis stands in.
    subprocess.run(["xdotool", "mousemove", "700", "700"], env=run.env, check=True)
    back = next_record("the record after the input", len(run.snapshots()), 45)
    e2e.check(back.get("activityDescription") == changed.get("activityDescription") and requests() == sent + 1,
              "after input on an unchanged screen: %r, %d pictures" % (back, requests()))
    run.say("input on the same screen: reused, still %d pictures" % requests())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tamlo", required=True)
    args = parser.parse_args()
    e2e.isolate_network()
    if e2e.port_taken(e2e.OLLAMA_ADDRESS):
        print("SKIPPED: 127.0.0.1:11434 is taken and only root gets a network of its own", flush=True)
        return e2e.SKIP

    run = e2e.Run(args)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
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

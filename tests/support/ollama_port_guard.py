#!/usr/bin/env python3
"""Holds Ollama's port for a test run, so that a test reaching the real address fails the run
instead of talking to whatever listens there.

    ollama_port_guard.py hold STATE_DIR    listen on 127.0.0.1:11434 in the background
    ollama_port_guard.py check STATE_DIR   stop listening; fail if anything connected

A port already taken (a real Ollama, another checkout's run) cannot be held: the run is told so
and goes on. Tests that need the address start it in a network of their own.
"""

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time


def connecting_program(peer_port):
    """The command line of the local process whose socket has that source port, or "?"."""
    try:
        listing = subprocess.run(["ss", "-Htnp", "src", "127.0.0.1:%d" % peer_port], capture_output=True, text=True)
        with open("/proc/%s/cmdline" % re.findall(r"pid=(\d+)", listing.stdout)[0], "rb") as f:
            return f.read().replace(b"\0", b" ").decode(errors="replace").strip()
    except (IndexError, OSError):
        return "?"


def hold(state):
    shutil.rmtree(state, ignore_errors=True)
    os.makedirs(state)
    listener = socket.socket()
    try:
        listener.bind(("127.0.0.1", 11434))
        listener.listen(16)
    except OSError as error:
        with open(os.path.join(state, "busy"), "w") as f:
            f.write(str(error))
        print("127.0.0.1:11434 is taken (%s): this run cannot tell whether a test reaches it" % error)
        return 0
    if os.fork():
        return 0
    os.setsid()
    if os.fork():
        os._exit(0)
    # CTest waits for every holder of the test's output to close it.
    devnull = os.open(os.devnull, os.O_RDWR)
    for fd in (0, 1, 2):
        os.dup2(devnull, fd)
    with open(os.path.join(state, "guard.pid"), "w") as f:
        f.write(str(os.getpid()))
    signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
    listener.settimeout(60)
    deadline = time.monotonic() + 4 * 3600  # never outlive a forgotten run by much
    while time.monotonic() < deadline:
        try:
            connection, peer = listener.accept()
        except socket.timeout:
            continue
        program = connecting_program(peer[1])
        connection.close()
        with open(os.path.join(state, "connections.log"), "a") as log:
            log.write("%s %s\n" % (time.strftime("%H:%M:%S"), program))
    os._exit(0)


def check(state):
    if os.path.exists(os.path.join(state, "busy")):
        print("127.0.0.1:11434 was taken by another program; nothing was checked")
        return 0
    try:
        with open(os.path.join(state, "guard.pid")) as f:
            os.kill(int(f.read()), signal.SIGTERM)
    except (OSError, ValueError):
        print("The guard of 127.0.0.1:11434 was not running")
        return 1
    try:
        with open(os.path.join(state, "connections.log")) as f:
            print("A test connected to Ollama's real address, 127.0.0.1:11434:\n" + f.read())
            return 1
    except FileNotFoundError:
        print("No test connected to 127.0.0.1:11434")
        return 0


if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[1] not in ("hold", "check"):
        sys.exit(__doc__)
    # Each run of ctest (the parent of both calls) keeps its own state, should two overlap.
    state_dir = os.path.join(sys.argv[2], str(os.getppid()))
    status = hold(state_dir) if sys.argv[1] == "hold" else check(state_dir)
    if sys.argv[1] == "check":
        shutil.rmtree(state_dir, ignore_errors=True)
    sys.exit(status)

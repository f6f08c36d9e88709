#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""polkit's own text agent, pkttyagent, for one process, answered as a user
at its terminal would answer it.

    tty_agent.py USER PID ANSWER STATE_FOLDER

runs pkttyagent as USER for process PID on a terminal of its own. When the
agent asks, STATE_FOLDER/asked appears and the answer waits for
STATE_FOLDER/answer; then ANSWER is given: "password:SECRET" chooses USER
(when asked who authenticates) and types SECRET; "cancel" declines to
choose anyone, which is pkttyagent's cancel. Everything the agent printed
goes to STATE_FOLDER/agent.log; STATE_FOLDER/done appears when it reported
the outcome."""
import os
import pty
import re
import select
import sys
import termios
import time

user, pid, answer, state = sys.argv[1:5]
child, fd = pty.fork()
if child == 0:
    os.execvp("setpriv", ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", "--reset-env",
                          "--", "pkttyagent", "--process", pid])

log = open(os.path.join(state, "agent.log"), "ab")
seen = b""


def touch(name):
    open(os.path.join(state, name), "w").close()


def wait_for_answer():
    touch("asked")
    while not os.path.exists(os.path.join(state, "answer")):
        time.sleep(0.1)


while True:
    ready, _, _ = select.select([fd], [], [], 1)
    if not ready:
        if os.waitpid(child, os.WNOHANG)[0]:
            break
        continue
    try:
        data = os.read(fd, 4096)
    except OSError:
        break
    if not data:
        break
    log.write(data)
    log.flush()
    seen += data
    if b"Choose identity" in seen:
        wait_for_answer()
        choices = dict((name.decode(), number.decode()) for number, name in re.findall(rb" (\d+)\.\s+(?:.*\()?([a-z0-9]+)\)?\r?\n", seen))
        os.write(fd, (b"none\n" if answer == "cancel" else choices.get(user, "1").encode() + b"\n"))
        seen = b""
    elif b"Password:" in seen:
        if not os.path.exists(os.path.join(state, "asked")):
            wait_for_answer()
        # The agent turns echo off, discarding what was typed before; type
        # once it has.
        for _ in range(100):
            if not termios.tcgetattr(fd)[3] & termios.ECHO:
                break
            time.sleep(0.05)
        os.write(fd, answer.split(":", 1)[1].encode() + b"\n")
        seen = b""
    if b"==== AUTHENTICATION" in seen and (b"FAILED" in seen or b"COMPLETE" in seen or b"CANCELED" in seen):
        touch("done")
        seen = b""

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""tty_agent.py USER PID ANSWER STATE_FOLDER: polkit's text agent, pkttyagent, as USER for process PID on a
terminal of its own, answered as a user there would. When it asks, STATE_FOLDER/asked appears and the
answer waits for STATE_FOLDER/answer: "password:SECRET" chooses USER (if asked who) and types SECRET;
"cancel" chooses no one (pkttyagent's cancel). Its output goes to STATE_FOLDER/agent.log;
STATE_FOLDER/done appears once it reported the outcome."""
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

log = open(os.path.join(state, "agent.log"), "ab", buffering=0)
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
    seen += data
    if b"Choose identity" in seen:
        wait_for_answer()
        choices = dict((name.decode(), number.decode()) for number, name in re.findall(rb" (\d+)\.\s+(?:.*\()?([a-z0-9]+)\)?\r?\n", seen))
        os.write(fd, (b"none\n" if answer == "cancel" else choices.get(user, "1").encode() + b"\n"))
        seen = b""
    elif b"Password:" in seen:
        if not os.path.exists(os.path.join(state, "asked")):
            wait_for_answer()
        # The agent turns echo off, discarding what was typed before; type once it has.
        for _ in range(100):
            if not termios.tcgetattr(fd)[3] & termios.ECHO:
                break
            time.sleep(0.05)
        os.write(fd, answer.split(":", 1)[1].encode() + b"\n")
        seen = b""
    if b"==== AUTHENTICATION" in seen and any(word in seen for word in (b"FAILED", b"COMPLETE", b"CANCELED")):
        touch("done")
        seen = b""

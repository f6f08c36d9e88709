# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""What the Python system tests share: users, files and waits in the sandbox."""
import os
import pwd
import subprocess
import time

def in_sandbox():
    return os.geteuid() == 0 and bool(os.environ.get("OV_IN_SANDBOX"))

def sh(*args, **kw):
    return subprocess.run(args, check=True, **kw)

def user(name, *groups):
    try:
        return pwd.getpwnam(name)
    except KeyError:
        sh("useradd", "-m", *(["-G", ",".join(groups)] if groups else []), name)
        return pwd.getpwnam(name)

def write(path, data, mode=0o644, mtime=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())
    os.chmod(path, mode)
    if mtime:
        os.utime(path, (mtime, mtime))

def read(path):
    with open(path, "rb") as f:
        return f.read()

def wait_for(predicate, seconds=5):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(0.05)
    return predicate()

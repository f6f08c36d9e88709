#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""The change journal's daemon on ext4, tmpfs and FUSE: random changes copied from its lists leave the
copy equal, every replaced or deleted file in the Safety Net; each way of losing track ends in a full
walk that says why; another local user gets nothing out of it."""
import os
import random
import re
import shutil
import signal
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from ovtest import in_sandbox, read, wait_for, write  # noqa: E402

JOURNAL = "/usr/libexec/orvane-journal"
PSYNC = "/usr/local/bin/psync"
if not in_sandbox():
    print("skipped: needs root in the test sandbox")
    sys.exit(77)

WORK = b"/tmp/journal-test"
LOG = WORK + b"/journal.log"
random.seed(int(os.environ.get("OV_SEED", "25")))

def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout

def mkdirs(*folders):
    for folder in folders:
        os.makedirs(folder)

class Daemon:
    def start(self):
        self.process = subprocess.Popen([JOURNAL], stderr=open(LOG, "ab"))
        assert wait_for(lambda: subprocess.run([JOURNAL, "--status"], capture_output=True).returncode == 0), "the journal did not start"

    def signal(self, number):
        self.process.send_signal(number)
        if number in (signal.SIGKILL, signal.SIGTERM):
            self.process.wait()

def copy(src, dst, net=None, settings=(), racing=False):
    """psync's mirror (racing: files may vanish or change type under it): which way it went, and why."""
    options = ["-d", "--hold-deletions", *settings]
    if net:
        os.makedirs(net, exist_ok=True)
        options += [b"--safety-net=" + net, "--safety-net-owner=root", "--archive=kept"]
    done = subprocess.run([PSYNC, *options, src, dst], stdout=subprocess.PIPE, input=b"delete\n")
    assert done.returncode == 0 or (racing and done.returncode == 1), done
    way = re.search(rb"^psync: (journal|full)(?: walk)? \((.*)\)$", done.stdout, re.M)
    assert way, "psync did not say which way it went: %r" % done.stdout
    return way[1].decode(), "" if way[1] == b"journal" else way[2].decode(errors="replace")

def same(src, dst, flags="-aHAXx"):
    diff = subprocess.run(["diff", "-r", "--no-dereference", src, dst], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    dry = run("rsync", flags, "-ni", "--modify-window=-1", "--delete", src + b"/", dst + b"/")
    assert diff.returncode == 0 and not dry, (diff.stdout + dry).decode(errors="replace")

def walk(top):
    """Every entry below top: relative path -> (kind, content or link target)."""
    kind = lambda p: ("link", os.readlink(p)) if os.path.islink(p) else ("dir", None) if os.path.isdir(p) else ("file", read(p))
    return {os.path.relpath(p, top): kind(p) for d, dirs, files in os.walk(top) for p in (os.path.join(d, n) for n in dirs + files)}

NAMES = [b"plain", b"with space", "caf\u00e9".encode(), "\u65e5\u672c".encode(), b"bad\xff\xfe", b"new\nline", b".hidden"]

class Changes:
    """Random changes to a tree: everything a user does to files."""
    count = 0

    def __init__(self, top):
        self.top = top

    def name(self):
        Changes.count += 1
        return random.choice(NAMES) + b"-%d" % Changes.count

    def pick(self, kind):
        found = [p for folder, dirs, files in os.walk(self.top) for p in (os.path.join(folder, n) for n in (dirs if kind == "dir" else files))
                 if kind == "dir" or (not os.path.islink(p) and os.stat(p).st_nlink == 1)]
        return random.choice(found) if found else None

    def folder(self):
        return self.pick("dir") or self.top

    def write(self, path, size=None):
        with open(path, "wb") as f:
            f.write(os.urandom(random.randint(0, 4096) if size is None else size))

    def once(self, links=False):
        ops = ["new", "append", "truncate", "rewrite", "delete", "rename", "mkdir", "rmtree", "move_dir",
               "file_to_dir", "dir_to_file", "symlink", "chmod", "times", "xattr", "acl"] + (["hardlink"] * 3 if links else [])
        op = random.choice(ops)
        f, d = self.pick("file"), self.pick("dir")
        if op == "new" or (f is None and op in ("append", "truncate", "rewrite", "delete", "rename", "file_to_dir",
                                                  "chmod", "xattr", "acl", "hardlink")):
            self.write(os.path.join(self.folder(), self.name()))
        elif op == "append":
            open(f, "ab").write(b"more\n")
        elif op == "truncate":
            os.truncate(f, os.path.getsize(f) // 2)
        elif op == "rewrite":  # same size, same second
            self.write(f, os.path.getsize(f))
        elif op == "delete":
            os.unlink(f)
        elif op == "rename":
            os.rename(f, os.path.join(self.folder(), self.name()))
        elif op == "mkdir" or d is None:
            new = os.path.join(self.folder(), self.name())
            os.makedirs(os.path.join(new, b"sub"))
            for _ in range(random.randint(0, 4)):
                self.write(os.path.join(new, random.choice([b"", b"sub/"]) + self.name()))
        elif op == "rmtree":
            shutil.rmtree(d)
        elif op == "move_dir":
            target = self.folder()
            if not (target + b"/").startswith(d + b"/"):
                os.rename(d, os.path.join(target, self.name()))
        elif op == "file_to_dir":
            os.unlink(f)
            os.mkdir(f)
            self.write(os.path.join(f, self.name()))
        elif op == "dir_to_file":
            shutil.rmtree(d)
            self.write(d)
        elif op == "symlink":
            os.symlink(random.choice([b"../elsewhere", self.name(), b"/etc/hostname"]), os.path.join(self.folder(), self.name()))
        elif op == "chmod":
            os.chmod(random.choice([f, d]), random.choice([0o600, 0o640, 0o755, 0o700]))
        elif op == "times":
            os.utime(random.choice([f, d]) or d, ns=(random.getrandbits(50), random.getrandbits(50)))
        elif op == "xattr":
            os.setxattr(f, b"user.orvane", os.urandom(8))
        elif op == "acl":
            subprocess.run(["setfacl", "-m", "u:nobody:r" + random.choice(["", "w"]), random.choice([f, d])], check=True)
        elif op == "hardlink":
            os.link(f, os.path.join(self.folder(), self.name()))
        return op

def rounds(src, dst, count):
    """The Safety Net keeps every destination file a copy replaces or deletes, as it was."""
    changes, journal_runs = Changes(src), 0
    for i in range(count):
        ops = [changes.once(links=i % 5 == 4) for _ in range(random.randint(5, 30))]
        now = walk(src)
        going = {p: v for p, v in walk(dst).items() if v[0] != "dir" and now.get(p) != v}
        net = WORK + b"/net-%d" % random.getrandbits(32)
        kind, why = copy(src, dst, net)
        kept = walk(net + b"/kept" + dst)
        missing = [p for p, v in going.items() if kept.get(p) != v]
        assert not missing, "not in the Safety Net: %r" % missing[:5]
        shutil.rmtree(net, ignore_errors=True)
        same(src, dst)
        journal_runs += kind == "journal"
        # Only a file with other names outside the list makes a full walk.
        assert kind == "journal" or "hard links" in why, (i, why, ops)
    assert journal_runs >= count // 2, journal_runs

def expect(src, dst, reason, flags="-aHAXx"):
    kind, why = copy(src, dst)
    same(src, dst, flags)
    assert (kind, why) == ("journal", "") if reason is None else reason in why, (kind, why, reason)

def main():
    disk, image = WORK + b"/disk", WORK + b"/disk.img"
    os.makedirs(disk, exist_ok=True)
    run("truncate", "-s", "1G", image)
    run("mkfs.ext4", "-q", "-N", "200000", image)
    device = run("losetup", "-f", "--show", image).strip()
    run("mount", device, disk)
    daemon = Daemon()
    try:
        daemon.start()
        src, dst = disk + b"/source", disk + b"/backup"
        mkdirs(src, dst)
        Changes(src).once()
        expect(src, dst, "first run to this destination")
        rounds(src, dst, 20)
        # The journal is root's: its state and socket, and no one else's cut.
        state, sock = os.stat("/var/lib/orvane/journal"), os.stat("/run/orvane-journal.socket")
        assert (state.st_uid, state.st_mode & 0o777, sock.st_uid, sock.st_mode & 0o077) == (0, 0o700, 0, 0)
        subprocess.run(["useradd", "-m", "mallory"], check=True)
        as_mallory = ["setpriv", "--reuid=mallory", "--regid=mallory", "--clear-groups"]
        answer = run(*as_mallory, JOURNAL, "--cut", src, dst, "/dev/null", "/dev/null")
        assert answer == b"full 0 no journal running\n", answer
        # The installed scripts' sources are watched from the start, and no longer once no script copies them.
        script = b"/Library/Application Support/Orvane/.daily/orvane_daily.rb"
        os.makedirs(os.path.dirname(script), mode=0o755, exist_ok=True)
        write(script + b".new", b'frequency = "Daily"\nsourceFolders = [ "/home/scripted \\"one\\"" ]\n', 0o700)
        os.makedirs(b'/home/scripted "one"')
        os.rename(script + b".new", script)
        watched = lambda: b'/home/scripted "one": watched (installed scripts)' in run(JOURNAL, "--status")
        assert wait_for(watched), run(JOURNAL, "--status")
        os.unlink(script)
        assert wait_for(lambda: not watched())
        # Each way of losing track: a full walk that says why, then the journal again.
        def overflow():
            daemon.signal(signal.SIGSTOP)
            os.mkdir(src + b"/many")
            for i in range(50000):
                open(src + b"/many/%d" % i, "wb").close()
            shutil.rmtree(src + b"/many")
            daemon.signal(signal.SIGCONT)

        def restart():
            run(JOURNAL, "--stop")
            daemon.process.wait()
            daemon.start()

        changes = Changes(src)
        for lose_track, reason in ((lambda: daemon.signal(signal.SIGKILL), "no journal running"),
                                   (daemon.start, "the journal stopped unexpectedly"), (None, None),
                                   (overflow, "more changes at once than the journal could follow"), (None, None),
                                   (restart, "the journal was restarted")):
            if lose_track:
                lose_track()
            changes.once()
            expect(src, dst, reason)
        changes.once()
        kind, why = copy(src, dst, settings=["--exclude=*.o-never"])
        assert "settings changed" in why, why
        same(src, dst)
        # A folder of the same disk bound inside the source shows its changes
        # under its other path: walked while it is there, and once it goes.
        os.makedirs(src + b"/bound/here")
        write(src + b"/bound/from/file", b"bound")
        run("mount", "--bind", src + b"/bound/from", src + b"/bound/here")
        expect(src, dst, "a folder of the same disk is mounted inside it")
        open(src + b"/bound/here/file", "ab").write(b"+")
        expect(src, dst, "a folder of the same disk is mounted inside it")
        run("umount", src + b"/bound/here")
        expect(src, dst, "a disk was mounted or unmounted inside the folder")
        changes.once()
        expect(src, dst, None)
        left_out(disk)
        # Two destinations in turn, on another file system (tmpfs): each gets what it lacks.
        other, disks = WORK + b"/other", [WORK + b"/backup-a", WORK + b"/backup-b"]
        mkdirs(other, *disks)
        changes = Changes(other)
        for turn in range(6):
            for _ in range(10):
                changes.once()
            expect(other, disks[turn % 2], "first run to this destination" if turn < 2 else None)
        # A source on FUSE cannot be watched.
        backing, fuse, fuse_dst = WORK + b"/fuse-backing", WORK + b"/fuse", WORK + b"/fuse-backup"
        mkdirs(backing, fuse, fuse_dst)
        subprocess.run(["rclone", "mount", "--config=/dev/null", "--vfs-cache-mode=off", "--attr-timeout=0", "--daemon", backing, fuse], check=True)
        for i in range(3):
            write(fuse + b"/file-%d" % i, b"x" * i)
            expect(fuse, fuse_dst, "FUSE file system", flags="-ax")  # rclone has no ACLs or extended attributes
        run("fusermount3", "-u", fuse)
        attack(src, dst, as_mallory)
    finally:
        if daemon.process.poll() is None:
            daemon.signal(signal.SIGCONT)
            daemon.signal(signal.SIGTERM)
        subprocess.run(["umount", "-l", disk])
        subprocess.run(["losetup", "-d", device])
        sys.stdout.write(read(LOG).decode(errors="replace")[-3000:])

def left_out(disk):
    """A journal run leaves out (exclusions, cache folders) what a full walk with the same rules does
    (the second copy's rules change each run, which makes each a full walk)."""
    src, journal, walked = disk + b"/rules", disk + b"/rules-journal", disk + b"/rules-walked"
    mkdirs(src, journal, walked)
    rules = ["--exclude=*.o", "--exclude=build/", "--exclude-path=/top/skip"]
    steps = [
        "mkdir -p a/build a/b top/skip && echo 1 > a/x.o && echo 2 > a/build/f && echo 3 > a/b/build && echo 4 > top/skip/f",
        "echo 5 > a/y.o && echo 6 > a/build/g && echo 7 >> a/b/build && echo 8 > top/skip/g && echo 9 > top/f",
        "rm -r a/build && rm a/x.o && mkdir a/b/build && echo 10 > a/b/build/f || true",
        "mkdir -p cache/sub && echo 11 > cache/sub/f && printf 'Signature: 8a477f597d28d172789f06886806bc55' > cache/CACHEDIR.TAG",
        "echo 12 > cache/sub/g && echo 13 > cache/h && echo 14 > plain",
        "mkdir -p moved/in && cp -a cache moved/in/cache2 && mv moved elsewhere",
        "rm -r cache && echo 15 > plain",
    ]
    for i, step in enumerate(steps):
        subprocess.run(["sh", "-c", step], cwd=src, check=True)
        kind, why = copy(src, journal, settings=rules)
        assert kind == "journal" or i == 0 or "cache" in why, (i, why)
        kind, why = copy(src, walked, settings=rules + ["--exclude-path=/never-%d" % i])
        assert kind == "full", why
        same(walked, journal)

def attack(src, dst, as_mallory):
    """Another user swaps a folder of his for a link to root's while root copies what the journal lists."""
    write(b"/root/secret/passwd", b"SECRET")
    home = b"/home/mallory/src"
    os.makedirs(home + b"/d")
    run("chown", "-R", "mallory:mallory", home)
    racer = subprocess.Popen(as_mallory + ["python3", "-c", """
import os, time
os.chdir("/home/mallory/src")
while True:
    try:
        open("d/passwd", "w").write(str(time.time()))
        os.rename("d", "d.away"); os.symlink("/root/secret", "d")
        time.sleep(0.001)
        os.unlink("d"); os.rename("d.away", "d")
    except OSError:
        pass
"""])
    try:
        backup, net, journal_runs = WORK + b"/mallory-backup", WORK + b"/mallory-net", 0
        os.makedirs(backup)
        for i in range(200):
            journal_runs += copy(home, backup, net, racing=True)[0] == "journal"
            leaked = [(folder, path) for folder in (backup, net) for path, entry in walk(folder).items() if entry[1] == b"SECRET"]
            assert not leaked, "root copied %r" % leaked
            shutil.rmtree(net)
    finally:
        racer.kill()
    assert journal_runs > 100, journal_runs

main()

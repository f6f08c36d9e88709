#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The installed psync on real files as root: "ovadmin" owns the Safety Net, "ovbob" attacks.
import os
import random
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from ovtest import in_sandbox, read, sh, user, write  # noqa: E402

PSYNC = "/usr/local/bin/psync"
ANY_RSYNC = os.environ.get("OV_PSYNC_ANY_RSYNC", "")
OLD_RSYNC = os.environ.get("OV_OLD_RSYNC", "")
NET_NAME = "2026-11-25 10.00.00 Daily"

def psync(*args, stdin=None, program=PSYNC):
    return subprocess.run([program, *args], input=stdin, capture_output=True)

class PsyncTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not in_sandbox():
            raise unittest.SkipTest("runs only inside tests/sandbox/ov-sandbox")
        cls.admin, cls.bob = user("ovadmin").pw_uid, user("ovbob").pw_uid

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="ov-psync-", dir="/tmp")
        os.chmod(self.dir, 0o755)
        self.src, self.dst, self.mounts = f"{self.dir}/source", f"{self.dir}/backup", []
        os.makedirs(self.src)
        os.makedirs(self.dst)
        self.new_net(f"{self.dir}/Safety Net")

    def tearDown(self):
        for m in reversed(self.mounts):
            subprocess.run(["umount", "-l", m])
        sh("rm", "-rf", "--one-file-system", self.dir)

    def new_net(self, path):
        self.net = path
        os.makedirs(path)
        os.chown(path, self.admin, self.admin)

    def ok(self, *args, **kw):
        r = psync(*args, **kw)
        self.assertEqual(0, r.returncode, r.stderr)
        return r

    def net_args(self, keep="everything", name=NET_NAME):
        return ["--safety-net=" + self.net, "--safety-net-owner=ovadmin", "--archive=" + name, "--keep=" + keep]

    def kept(self, name=NET_NAME):
        return os.path.join(self.net, name, self.dst.lstrip("/"))

    def mount_tmpfs(self, point, size="16m"):
        os.makedirs(point, exist_ok=True)
        sh("mount", "-t", "tmpfs", "-o", "size=" + size, "ov-test", point)
        self.mounts.append(point)

    # Contents, owners, modes, nanosecond times, xattrs, ACLs, hard links and
    # holes; a change of metadata alone reaches the copy at the next run.
    def test_copy_keeps_every_kind_of_metadata(self):
        write(f"{self.src}/tagged.txt", "tagged")
        sh("setfattr", "-n", "user.xdg.tags", "-v", "red", f"{self.src}/tagged.txt")
        sh("setfattr", "-n", "trusted.ov", "-v", "root only", f"{self.src}/tagged.txt")
        os.makedirs(f"{self.src}/shared")
        sh("setfacl", "-m", "u:ovbob:rwx", "-d", "-m", "u:ovbob:rx", f"{self.src}/shared")
        write(f"{self.src}/shared/plain", "plain")
        write(f"{self.src}/private", "bob's", mode=0o600)
        os.chown(f"{self.src}/private", self.bob, self.bob)
        os.link(f"{self.src}/shared/plain", f"{self.src}/twin")
        with open(f"{self.src}/sparse", "wb") as f:
            f.truncate(64 << 20)
        os.symlink("tagged.txt", f"{self.src}/link")

        def meta(tree):
            out = lambda *cmd: subprocess.run(cmd, capture_output=True).stdout
            return {rel: (s.st_mode, s.st_uid, s.st_mtime_ns, out("getfacl", "-cp", p),
                          out("getfattr", "-d", "-m", "-", "--absolute-names", p).split(b"\n", 1)[-1])
                    for rel in ("tagged.txt", "shared", "private", "sparse")
                    for p in [f"{tree}/{rel}"] for s in [os.lstat(p)]}
        self.ok("-d", self.src, self.dst)
        self.assertEqual(meta(self.src), meta(self.dst))
        self.assertEqual(os.stat(f"{self.dst}/twin").st_ino, os.stat(f"{self.dst}/shared/plain").st_ino)
        self.assertLess(os.stat(f"{self.dst}/sparse").st_blocks, 64)
        # A new tag alone, a tag removed, an ACL removed.
        sh("setfattr", "-n", "user.xdg.tags", "-v", "red,blue", f"{self.src}/tagged.txt")
        sh("setfattr", "-n", "user.baloo.rating", "-v", "8", f"{self.src}/private")
        sh("setfacl", "-b", "-k", f"{self.src}/shared")
        self.ok("-d", self.src, self.dst)
        self.assertEqual(meta(self.src), meta(self.dst))

    # rsync compares whole seconds unless told otherwise: a rewrite within
    # the same second with the same size must still be copied.
    def test_same_second_rewrite_is_copied(self):
        misses = 0
        for i in range(60):
            for amount in (100, 999):
                write(f"{self.src}/balance", f"balance: {amount} EUR {i:03d}")
                psync(self.src, self.dst)
            misses += read(f"{self.dst}/balance") != f"balance: 999 EUR {i:03d}".encode()
        self.assertEqual(0, misses)

    # Patterns at depth, paths, folders only, cache folders, odd names;
    # excluded stays at the target, dropped goes to the Safety Net.
    def test_exclusions(self):
        for n in [b"keep.txt", b"deep/a/b/junk.tmp", b"deep/node_modules/x.js", b"node_modules/y.js", "photos/été/raw.tmp".encode(),
                  "photos/été/ok.jpg".encode(), b"odd \xff\xfe/name.tmp", b"docs/build", b"docs/build2/file", b"logs/app.log",
                  b"cache/CACHEDIR.TAG", b"cache/data", b"notcache/CACHEDIR.TAG"]:
            write(os.path.join(self.src.encode(), n),
                  b"Signature: 8a477f597d28d172789f06886806bc55\n" if n == b"cache/CACHEDIR.TAG" else b"x" * 10)
        write(f"{self.dst}/logs/old.log", "earlier copy")
        write(f"{self.dst}/node_modules/stale.js", "earlier copy")
        r = self.ok("--exclude=*.tmp", "--exclude=node_modules/", "--exclude-path=/docs/build", "--exclude=docs/build2/",
                    "--drop=logs/", "-d", *self.net_args(), self.src, self.dst)
        top = self.dst.encode()
        self.assertEqual({b"keep.txt", b"deep", b"deep/a", b"deep/a/b", b"photos", "photos/été".encode(), "photos/été/ok.jpg".encode(),
                          b"odd \xff\xfe", b"docs", b"notcache", b"notcache/CACHEDIR.TAG", b"node_modules", b"node_modules/stale.js"},
                         {os.path.relpath(os.path.join(d, n), top) for d, dirs, files in os.walk(top) for n in dirs + files})
        self.assertEqual(b"earlier copy", read(os.path.join(self.kept(), "logs/old.log")))
        self.assertIn(b"psync: kept 1 files", r.stdout)

    # A folder that holds the target, excluded: the target is never copied into itself.
    def test_target_inside_an_excluded_folder(self):
        write(f"{self.src}/a", "a")
        inside = f"{self.src}/Backups/daily"
        os.makedirs(inside)
        self.ok("-d", "--exclude-path=/Backups", self.src, inside)
        self.assertEqual(["a"], os.listdir(inside))

    def test_mount_inside_source_is_named(self):
        self.mount_tmpfs(f"{self.src}/Photos")
        write(f"{self.src}/Photos/p.jpg", "photo")
        r = psync(self.src, self.dst)
        self.assertEqual(1, r.returncode)
        self.assertIn(f"psync: not copied: {self.src}/Photos is another disk mounted inside the source".encode(), r.stdout)

    # Kept files keep their owner and mode; a second pair into the same target
    # takes the next second; another disk copies a file of mode 000 too.
    # (test_journal and test_journeys check what is kept.)
    def test_safety_net(self):
        write(f"{self.dst}/changed", "old", mtime=1e9)
        write(f"{self.dst}/sub/private", "bob's secret", mode=0o600)
        os.chown(f"{self.dst}/sub/private", self.bob, self.bob)
        os.chmod(f"{self.dst}/sub", 0o750)
        # A file the owner could not reach at its place shows him no more in
        # the archive; a hard-linked one is copied apart from its twin.
        os.makedirs(f"{self.dst}/closed", mode=0o700)
        write(f"{self.dst}/closed/report", "root's")
        write(f"{self.dst}/open", "anyone's")
        for tree in (self.src, self.dst):
            write(f"{tree}/stays", "stays", mtime=1e9)
        os.link(f"{self.dst}/stays", f"{self.dst}/twin")
        write(f"{self.src}/changed", "new")
        self.ok("-d", *self.net_args(), self.src, self.dst)
        top, kept = os.path.join(self.net, NET_NAME), self.kept()
        owner_mode = lambda p: (os.stat(p).st_uid, stat.S_IMODE(os.stat(p).st_mode))
        # The folder keeps its own mode (a restore brings it back as it was);
        # the archive's top, his alone, shuts others out.
        self.assertEqual([(self.bob, 0o600), (self.admin, 0o750), (self.admin, 0o700), 0o600, 0o644, 1],
                         [owner_mode(f"{kept}/sub/private"), owner_mode(f"{kept}/sub"), owner_mode(top),
                          owner_mode(f"{kept}/closed/report")[1], owner_mode(f"{kept}/open")[1], os.stat(f"{kept}/twin").st_nlink])
        self.assertEqual(self.admin, os.stat(kept).st_uid)
        for version, used in (("newer", "10.00.01"), ("newest", "10.00.02")):
            write(f"{self.src}/changed", version)
            r = psync("-d", *self.net_args(), self.src, self.dst)
            self.assertIn(f"psync: kept 1 files in 2026-11-25 {used} Daily".encode(), r.stdout)
        other = f"{self.dir}/other disk"
        self.mount_tmpfs(other)
        self.new_net(f"{other}/net")
        write(f"{self.dst}/locked", "locked", mode=0o000)
        write(f"{self.src}/changed", "last")
        self.ok("-d", *self.net_args(), self.src, self.dst)
        self.assertEqual((b"locked", 0), (read(f"{self.kept()}/locked"), stat.S_IMODE(os.stat(f"{self.kept()}/locked").st_mode)))
        self.assertEqual([], [n for n in os.listdir(self.net) if n.startswith(".psync")])
        os.chown(self.net, self.bob, self.bob)
        r = psync("-d", *self.net_args(), self.src, self.dst)
        self.assertEqual((2, True), (r.returncode, b"does not belong to ovadmin" in r.stderr))

    # Pruning removes the archive by descriptor: links in it are removed, never
    # followed; a mount inside stops it.
    def test_prune_archives(self):
        victim = f"{self.dir}/victim"
        write(f"{victim}/keep", "keep")
        for name in ("old one", "old two"):
            write(f"{self.net}/{name}/d/file", "archived")
            os.symlink(victim, f"{self.net}/{name}/d/link")
            os.symlink(victim, f"{self.net}/{name}/top")
        sh("chown", "-R", "ovadmin:ovadmin", self.net)
        prune = ["--prune-archives", "--safety-net=" + self.net, "--safety-net-owner=ovadmin"]
        self.assertEqual(b"psync: removed old one\npsync: removed old two\n", self.ok(*prune, "old one", "old two").stdout)
        self.assertEqual((["keep"], []), (os.listdir(victim), os.listdir(self.net)))
        self.mount_tmpfs(f"{self.net}/mounted/inside")
        write(f"{self.net}/mounted/inside/f", "f")
        self.assertEqual(2, psync(*prune, "mounted").returncode)
        self.assertTrue(os.path.exists(f"{self.net}/mounted/inside/f"))

    # Too many deletions are held; each answer, and none.
    def test_hold_deletions(self):
        for i in range(40):
            write(f"{self.dst}/f{i:02d}", "x", mtime=1e9)
            if i < 5:
                write(f"{self.src}/f{i:02d}", "x", mtime=1e9)
        write(f"{self.src}/new", "new")
        for answer, status, left in ((b"keep\n", 3, 41), (b"", 3, 41), (b"delete\n", 0, 6)):
            r = psync("-d", "--hold-deletions", *self.net_args(), self.src, self.dst, stdin=answer)
            self.assertEqual((status, left), (r.returncode, len(os.listdir(self.dst))), (answer, r.stderr))
            self.assertIn(b"psync: hold 35\n", r.stdout)
            self.assertTrue(os.path.exists(f"{self.dst}/new"))
        self.assertEqual(35, len(os.listdir(os.path.join(self.kept()))))
        # Killed while it waits for the answer: the next run puts them back.
        for i in range(5, 40):
            write(f"{self.dst}/f{i:02d}", "x")
        p = subprocess.Popen([PSYNC, "-d", "--hold-deletions", self.src, self.dst], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.assertEqual(b"psync: full walk (no journal running)\n", p.stdout.readline())
        self.assertEqual(b"psync: hold 35\n", p.stdout.readline())
        p.kill()
        p.wait()
        self.ok(self.src, self.dst)
        self.assertEqual(41, len(os.listdir(self.dst)))

    # kill -9 at any moment: every file old or new, a user's ".notes.backup"
    # (named like rsync's temporary files) survives, the next run finishes.
    def test_killed_runs(self):
        old, new = ({i: os.urandom(2 << 20) for i in range(8)} for _ in range(2))
        at = lambda tree, i: f"{tree}/d{i % 3}/file{i}"
        for round_ in range(100):
            first_copy, walk = round_ % 4 == 0, ["-d"] if round_ % 3 == 0 else []
            sh("rm", "-rf", self.src, self.dst)
            os.makedirs(self.dst)
            for i in old:
                write(at(self.src, i), new[i])
                if not first_copy:  # else an empty target: psync's own first copy
                    write(at(self.dst, i), old[i], mtime=1e9)
            if not first_copy:
                write(f"{self.dst}/.notes.backup", "my notes")
                write(f"{self.dst}/d1/.config.abcdef", "looks temporary")
            p = subprocess.Popen([PSYNC, *walk, *self.net_args(), self.src, self.dst],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
            time.sleep(random.uniform(0, 0.25))
            os.killpg(p.pid, signal.SIGKILL)
            p.wait()
            for i in old:
                if os.path.exists(at(self.dst, i)):
                    self.assertIn(read(at(self.dst, i)), (old[i], new[i]), round_)
                else:  # between rsync's two renames the old version waits in the work folder for the next run
                    self.assertTrue(first_copy or any(os.path.exists(at(f"{self.dst}/{w}/kept", i))
                                                      for w in os.listdir(self.dst) if w.startswith(".psync-work")), round_)
            self.ok(*walk, *self.net_args(), self.src, self.dst)
            self.assertTrue(all(new[i] == read(at(self.dst, i)) for i in old), round_)
            self.assertTrue(first_copy or os.path.exists(f"{self.dst}/.notes.backup")
                            or any(".notes.backup" in fs for _, _, fs in os.walk(self.net)), round_)
            if round_ % 3 and not first_copy:
                self.assertEqual(b"my notes", read(f"{self.dst}/.notes.backup"))
                self.assertTrue(os.path.exists(f"{self.dst}/d1/.config.abcdef"))
            self.assertEqual([], [n for n in os.listdir(self.dst) if n.startswith(".psync-work")], round_)
            sh("rm", "-rf", self.net)
            self.new_net(self.net)

    # The remote volume's side store is written by descriptor: a link at its
    # name is replaced, never followed.
    def test_side_store_follows_no_link(self):
        victim = f"{self.dir}/victim"
        write(victim, "untouched")
        write(f"{self.src}/a", "a", mode=0o640)
        os.symlink(victim, f"{self.dst}/.psync-attributes")
        self.ok("-r", self.src, self.dst)
        self.assertEqual(b"untouched", read(victim))
        self.assertIn(b"640 0 0 a\0", read(f"{self.dst}/.psync-attributes"))

    def test_old_rsync_is_refused(self):
        if not os.path.exists(OLD_RSYNC):
            self.skipTest("no old rsync unpacked (dev/install-deps test)")
        sh("mount", "--bind", OLD_RSYNC, "/usr/bin/rsync")
        try:
            write(f"{self.src}/a", "a")
            r = psync(self.src, self.dst)
            self.assertEqual(2, r.returncode)
            self.assertRegex(r.stderr.decode().splitlines()[-1], r"^psync: rsync 3\.2\.7 is too old: backups need rsync 3\.5\.0 or newer")
            self.assertEqual([], os.listdir(self.dst))
        finally:
            sh("umount", "/usr/bin/rsync")

    # The target's owner (bob, who also owns the Safety Net here) races the
    # work folder and the archive with links to a root-only folder, while
    # psync runs: nothing lands there. With rsync 3.5.0, and with the old
    # rsync and psync's own code alone (no version check).
    def test_races_on_the_work_folder_and_the_archive(self):
        for program, rsync in ((PSYNC, None), (ANY_RSYNC, OLD_RSYNC)):
            if rsync and not (os.path.exists(rsync) and os.path.exists(program)):
                self.skipTest("no old rsync unpacked (dev/install-deps test)")
            with self.subTest(rsync=rsync or "installed"):
                self.race(program, rsync)

    def race(self, program, rsync):
        victim, parent = f"{self.dir}/victim", f"{self.dir}/bob"
        os.makedirs(victim, mode=0o700, exist_ok=True)
        target, net = f"{parent}/backup", f"{parent}/net"
        for d in (target, net):
            os.makedirs(d, exist_ok=True)
        sh("chown", "-R", "ovbob:ovbob", parent)
        racer = subprocess.Popen(["runuser", "-u", "ovbob", "--", "sh", "-c", """
            cd "$1"; v=$2
            while :; do
                for w in backup/.psync-work*; do mv "$w" "backup/x$$" 2>/dev/null && ln -s "$v" "$w" 2>/dev/null; rm -rf "backup/x$$" 2>/dev/null; done
                for a in net/*Daily net/*Daily/*; do mv "$a" "$a.m" 2>/dev/null && ln -s "$v" "$a" 2>/dev/null; done
                mkdir -p backup/.psync-work-2 2>/dev/null && ln -sfn "$v" backup/.psync-work-2/kept 2>/dev/null
                mv backup backup.real 2>/dev/null && ln -s "$v" backup 2>/dev/null; rm -f backup 2>/dev/null; mv backup.real backup 2>/dev/null
                rm -rf net/*.m 2>/dev/null
            done""", "sh", parent, victim], start_new_session=True)
        if rsync:
            sh("mount", "--bind", rsync, "/usr/bin/rsync")
        try:
            for i in range(200):
                write(f"{self.src}/file", f"version {i}", mtime=1e9 + i)
                write(f"{self.src}/new{i % 7}", f"new {i}")
                psync("-d", "--safety-net=" + net, "--safety-net-owner=ovbob", f"--archive=2026-11-25 10.{i // 60:02d}.{i % 60:02d} Daily",
                      self.src, target, program=program)
        finally:
            os.killpg(racer.pid, signal.SIGKILL)
            racer.wait()
            if rsync:
                sh("umount", "/usr/bin/rsync")
        self.assertEqual([], os.listdir(victim))
        self.assertEqual([], [f"{d}/{f}" for d, _, fs in os.walk(self.dir) for f in fs
                              if os.lstat(f"{d}/{f}").st_uid == self.bob and not f"{d}/".startswith(parent + "/")])

if __name__ == "__main__":
    unittest.main(verbosity=2)

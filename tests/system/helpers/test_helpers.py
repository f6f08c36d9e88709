#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""The installed set-user-ID helpers, run by a real administrator and a real ordinary user. A real polkitd
decides the unlock: its defaults (an administrator's password no one gives here), a grant rule for an
unlocked pane, a deny rule for a refused password. The system log is caught at /dev/log."""
import os
import subprocess
import sys
import time
import unittest

SYSTEM_TESTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, SYSTEM_TESTS)
from ovtest import read, user, write  # noqa: E402

RESOURCES = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
SUPPORT = "/Library/Application Support/Orvane"
TOOLS = ["archive_table", "install_scripts", "remove_scripts", "install_crontab", "manual_backup", "connect_volume"]
INSTALLED = {f: f"{SUPPORT}/.{f}/orvane_{f}.rb" for f in ("daily", "weekly", "monthly")}
DAILY_LINE = '30\t3\t*\t*\t*\troot\t"/Library/Application Support/Orvane/.daily/orvane_daily.rb"\n'
DEBIAN_CRONTAB = ("# /etc/crontab: system-wide crontab\nSHELL=/bin/sh\nPATH=/usr/local/sbin:/usr/local/bin:/sbin:/bin:/usr/sbin:/usr/bin\n\n"
                  "17 *\t* * *\troot\tcd / && run-parts --report /etc/cron.hourly\n#\n")
ANACRONTAB = "SHELL=/bin/sh\n1\t5\tcron.daily\trun-parts --report /etc/cron.daily\n"
TMP_NAMES = ["/tmp/BackupItems.plist", "/tmp/orvane_daily.rb", "/tmp/orvane_weekly.rb", "/tmp/orvane_monthly.rb",
             "/tmp/orvane_manual.rb", "/tmp/crontab.orvane", "/tmp/anacrontab.orvane"]
AUTHPRIV = 10 << 3
SYSLOG = "/run/ov-syslog"

def shared_shell(command, *args):  # with the shell tests' polkit and system log helpers
    subprocess.run(["bash", "-c", '. "$0/e2e/polkit.sh"; . "$0/syslog.sh"; ' + command, SYSTEM_TESTS, *args],
                   check=True, stdout=subprocess.DEVNULL)

def owner_mode(path):
    st = os.stat(path)
    return st.st_uid, st.st_gid, st.st_mode & 0o7777

def parts(**named):
    named = {n: d.encode() if isinstance(d, str) else d for n, d in named.items()}
    return b"".join(b"%s %d\n" % (n.encode(), len(d)) + d for n, d in named.items())

def filled(**settings):
    """The template as the pane fills it: settings lines replaced by literals."""
    text = read(RESOURCES + "/backup_script.rb")
    for line, value in settings.items():
        text = text.replace(b"#ov_" + line.encode(), line.encode() + b" = " + value.encode(), 1)
    return text

class Helpers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        assert os.environ.get("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox"
        cls.admin, cls.user = user("ovadmin", "sudo"), user("ovuser")
        shared_shell('catch_syslog "$1"', SYSLOG)

    def setUp(self):
        self.rule("YES")
        subprocess.run(["rm", "-rf", SUPPORT, "/etc/crontab.ov", *TMP_NAMES], check=True)
        for sub in ("", "/.daily", "/.weekly", "/.monthly"):
            os.mkdir(SUPPORT + sub, 0o775)
            os.chmod(SUPPORT + sub, 0o775)
        write("/etc/crontab", DEBIAN_CRONTAB)
        write("/etc/anacrontab", ANACRONTAB)
        self.log_from = os.path.getsize(SYSLOG)

    def rule(self, result):
        """None: polkit's defaults; "YES": the administrator holds the unlock; "NO": refused."""
        shared_shell({None: "polkit_rule default", "YES": "polkit_rule grant ovadmin", "NO": "polkit_rule deny"}[result])

    def run_tool(self, who, tool, data=b"", args=("--Orvane",)):
        """The tool as a child of a shell of who's (its caller), input on stdin."""
        return subprocess.run(
            ["setpriv", "--reuid=%d" % who.pw_uid, "--regid=%d" % who.pw_gid, "--init-groups", "--",
             "sh", "-c", '"$@"; status=$?; exit $status', "sh", os.path.join(RESOURCES, tool), *args],
            input=data, capture_output=True, env={"PATH": "/usr/bin:/bin"}, timeout=60)

    def refused(self, result, words):
        err = result.stderr.decode()
        self.assertNotEqual(result.returncode, 0, result)
        self.assertEqual(len(err.strip().splitlines()), 1, err)
        self.assertIn(words, err)

    def logged(self, words):
        for _ in range(300):
            hits = [l for l in read(SYSLOG)[self.log_from:].decode(errors="replace").splitlines() if words in l]
            if hits:
                self.assertEqual(int(hits[0][1:hits[0].index(">")]) & ~7, AUTHPRIV, hits[0])
                return hits[0]
            time.sleep(0.1)
        self.fail("not in the system log: %r" % words)

    def plant_all(self, who, data=b"planted"):
        for path in TMP_NAMES:
            write(path, data, 0o600)
            os.chown(path, who.pw_uid, who.pw_gid)

    def ok(self, *args):
        result = self.run_tool(*args)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_installed_layout(self):
        for tool in TOOLS:
            self.assertEqual(owner_mode(os.path.join(RESOURCES, tool)), (0, 0, 0o4755), tool)
        # As "make install" left them (setUp only re-makes the support folders).
        for folder in ("/Library", "/Library/Application Support", "/Library/PreferencePanes/Orvane.prefPane", RESOURCES):
            self.assertEqual(owner_mode(folder), (0, 0, 0o755), folder)

    def test_no_unlock_no_root(self):
        self.plant_all(self.admin, b"#!/bin/sh\nid > /tmp/pwned\n")
        inputs = {"archive_table": b"bplist00 x", "install_scripts": parts(daily=filled()),
                  "install_crontab": parts(crontab=DEBIAN_CRONTAB + DAILY_LINE), "manual_backup": filled(),
                  "remove_scripts": b"", "connect_volume": parts(server="smb://fileserver", account="ann", volume="share")}
        for name in INSTALLED.values():
            write(name, b"# installed\n")
        # An administrator never unlocked, one whose password was refused, an ordinary user where the administrator is granted.
        for result, who in ((None, self.admin), ("NO", self.admin), ("YES", self.user)):
            self.rule(result)
            for tool, data in inputs.items():
                with self.subTest(rule=result, who=who.pw_name, tool=tool):
                    self.refused(self.run_tool(who, tool, data), "does not hold Orvane's unlock")
        self.logged("does not hold Orvane's unlock")
        self.assertFalse(os.path.exists(SUPPORT + "/BackupItems.plist"))
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB)
        for name in INSTALLED.values():
            self.assertEqual(read(name), b"# installed\n")
        self.assertFalse(os.path.exists("/tmp/pwned"))
        # No argument list but exactly --Orvane, whoever asks.
        self.rule("YES")
        for args in ([], ["--orvane"], ["--Orvane", "--Orvane"], ["--Orvane", "/etc/shadow"]):
            for tool in TOOLS:
                self.refused(self.run_tool(self.admin, tool, b"", args), "exactly one argument")

    def test_granted_save_installs_whatever_others_planted(self):
        # Another user's files at every old hand-off name, and a link.
        self.plant_all(self.user)
        os.unlink("/tmp/BackupItems.plist")
        os.symlink("/etc/shadow", "/tmp/BackupItems.plist")
        daily = filled(frequency='"Daily"', username='"ovadmin"')
        self.ok(self.admin, "install_crontab", parts(crontab=DEBIAN_CRONTAB + DAILY_LINE))
        self.ok(self.admin, "archive_table", b"bplist00 items")
        self.ok(self.admin, "install_scripts", parts(daily=daily, weekly=filled(frequency='"Weekly"')))
        self.assertEqual(read(SUPPORT + "/BackupItems.plist"), b"bplist00 items")
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB + DAILY_LINE)
        self.assertEqual(read("/etc/crontab.ov").decode(), DEBIAN_CRONTAB)
        self.assertEqual(read(INSTALLED["daily"]), daily)
        self.assertFalse(os.path.exists(INSTALLED["monthly"]))
        for path, mode in ((SUPPORT + "/BackupItems.plist", 0o644), ("/etc/crontab", 0o644), (INSTALLED["daily"], 0o700)):
            self.assertEqual(owner_mode(path), (0, 0, mode), path)
        for name in TMP_NAMES[1:]:
            self.assertEqual(read(name), b"planted")
        self.logged("installed the item list")
        self.logged("installed /etc/crontab")
        # Framed input that is not what the tool takes changes nothing.
        for bad in (b"daily 5\nabc", b"cron 3\nabc", b"daily 0\ndaily 0\n", b"daily 07\n", b"daily\n"):
            self.refused(self.run_tool(self.admin, "install_scripts", bad), "refused")
        self.assertEqual(read(INSTALLED["daily"]), daily)

    def test_folders_others_could_change(self):
        os.chown(SUPPORT, self.admin.pw_uid, self.admin.pw_gid)
        self.refused(self.run_tool(self.admin, "archive_table", b"bplist00 x"), "may be changed by someone other than root")
        self.logged("may be changed by someone other than root")
        os.chown(SUPPORT, 0, 0)
        sudo = int(subprocess.run(["getent", "group", "sudo"], capture_output=True, text=True).stdout.split(":")[2])
        os.chown(SUPPORT + "/.daily", 0, sudo)
        self.refused(self.run_tool(self.admin, "install_scripts", parts(daily=filled())), ".daily may be changed")
        self.assertFalse(os.path.exists(INSTALLED["daily"]))
        os.chown(SUPPORT + "/.daily", 0, 0)
        os.rmdir(SUPPORT + "/.weekly")
        os.symlink("/etc/cron.d", SUPPORT + "/.monthly.link")
        os.rmdir(SUPPORT + "/.monthly")
        os.rename(SUPPORT + "/.monthly.link", SUPPORT + "/.monthly")
        self.refused(self.run_tool(self.admin, "install_scripts", parts(daily=filled())), "Not a directory")
        os.unlink(SUPPORT + "/.monthly")
        # Missing ones are made again, root's own.
        self.ok(self.admin, "install_scripts", parts(weekly=filled()))
        for sub in (".weekly", ".monthly"):
            self.assertEqual(owner_mode(SUPPORT + "/" + sub), (0, 0, 0o775), sub)
        self.assertTrue(os.path.exists(INSTALLED["weekly"]))

    def test_only_the_filled_template_runs_as_root(self):
        hostile = {"any #! file": b"#!/usr/bin/ruby\nFile.write('/tmp/pwned', 'x')\n", "empty": b"",
                   "code after a setting": filled(username='"x"; File.write("/tmp/pwned", "x")'),
                   "interpolation": filled(username='"#{File.write(%q(/tmp/pwned), 1)}"'),
                   "unknown setting": filled(frequency='"Daily"').replace(b"#ov_username", b"system = \"x\""),
                   "lists too deep": filled(exclusions='[ [ [ "a" ] ] ]'), "code in a list": filled(exclusions='[ [ "a" ], `id` ]'),
                   "changed code": filled().replace(b"class OrvaneBackup", b"File.write('/tmp/pwned', 'x')\nclass OrvaneBackup")}
        for case, script in hostile.items():
            with self.subTest(case=case):
                self.refused(self.run_tool(self.admin, "manual_backup", script), "refused")
                self.refused(self.run_tool(self.admin, "install_scripts", parts(daily=script)), "refused")
        self.assertFalse(os.path.exists("/tmp/pwned"))
        self.assertFalse(os.path.exists(INSTALLED["daily"]))

    def test_every_script_the_builder_makes_is_accepted(self):
        """The pane's builder, every setting, names with quotes, "#", backslashes, a newline, placeholders, not UTF-8."""
        fill = os.environ.get("OV_FILL_SCRIPT")
        if not fill:
            self.skipTest("OV_FILL_SCRIPT names no script builder")
        names = [b'/home/a"b', b"/home/#{x}", b"/home/back\\slash\\", b"/home/new\nline", b"/home/#ov_logfile",
                 b"/home/caf\xe9 \xff\xfe", b'/home/"; File.write("/tmp/pwned", "x") #']
        pairs = [p for name in names for p in (name, name + b" backup")]
        everything = ["--mirror", "--remote", "--progress", "--repair", "--prompt", "--wait", "--user", "ovadmin",
                      "--toast", 'Toast "11" #{x}', "--autoconnect", 'smb://file"server#1', "o'brien\\x",
                      "vol #{1}", "--safetynet", "/home/Safety \"Net\" #", "7", "Changed"]
        builds = {"every setting, weekly": ["--frequency", "Weekly"] + everything,
                  "manual": ["--manual", "--progress", "--safetynet", "/home/net", "3", "Deleted"]}
        for case, options in builds.items():
            with self.subTest(case=case):
                script = subprocess.run([fill] + options + pairs, capture_output=True, check=True).stdout
                self.assertIn(b"runKind = \"manual\"" if "--manual" in options else b"runKind = \"scheduled\"", script)
                self.ok(self.admin, "install_scripts", parts(daily=script))
                self.assertEqual(read(INSTALLED["daily"]), script)
                if "--manual" in options:
                    self.ok(self.admin, "manual_backup", script)
                    self.logged("started the manual backup")
                    self.logged("the manual backup ended")
                    self.assertEqual([n for n in os.listdir("/tmp") if n.startswith("orvane-manual.")], [])
                # One byte of code changed, or one more line, and it is refused.
                for bad in (script.replace(b"runKind = ", b"runKind = File.read(\"/etc/shadow\") || "),
                            script.replace(b"\nshowProgress = ", b"\n$stdout.sync = true\nshowProgress = "),
                            script.replace(b"def log(message)", b"def log(message) ")):
                    self.refused(self.run_tool(self.admin, "install_scripts", parts(daily=bad)), "refused")
                    self.refused(self.run_tool(self.admin, "manual_backup", bad), "refused")
        self.assertFalse(os.path.exists("/tmp/pwned"))

    def test_crontab_lines_never_joined(self):
        write("/etc/crontab", "SHELL=/bin/sh\n15 4 * * * root /usr/bin/true")
        # The pane appended its line straight onto the unterminated one.
        joined = "SHELL=/bin/sh\n15 4 * * * root /usr/bin/true" + DAILY_LINE
        self.ok(self.admin, "install_crontab", parts(crontab=joined))
        self.assertEqual(read("/etc/crontab").decode(), "SHELL=/bin/sh\n15 4 * * * root /usr/bin/true\n" + DAILY_LINE)
        # A line of someone else's stays refused, and anacron without its table.
        self.refused(self.run_tool(self.admin, "install_crontab", parts(crontab=DEBIAN_CRONTAB + "* * * * *\troot\t/tmp/x\n")),
                     "not Orvane's")
        os.unlink("/etc/anacrontab")
        self.refused(self.run_tool(self.admin, "install_crontab", parts(anacrontab=ANACRONTAB)), "no /etc/anacrontab")

    def test_unreadable_archive_survives_saves(self):
        write(SUPPORT + "/BackupItems.plist", b"bplist00 from elsewhere, unreadable")
        for n in range(3):
            self.ok(self.admin, "archive_table", b"bplist00 save %d" % n)
        kept = [n for n in os.listdir(SUPPORT) if n.startswith("BackupItems.kept-")]
        self.assertEqual(len(kept), 1, os.listdir(SUPPORT))
        self.assertEqual(read(SUPPORT + "/" + kept[0]), b"bplist00 from elsewhere, unreadable")
        self.assertEqual(read(SUPPORT + "/BackupItems.plist"), b"bplist00 save 2")
        self.assertEqual(read(SUPPORT + "/BackupItems.previous.plist"), b"bplist00 save 1")
        self.refused(self.run_tool(self.admin, "archive_table", b"rm -rf /"), "not a property list")

if __name__ == "__main__":
    unittest.main(verbosity=2)

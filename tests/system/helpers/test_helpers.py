#!/usr/bin/env python3
"""The set-user-ID helpers, run by real users inside the test sandbox.

An administrator (group sudo) and an ordinary user are made in the sandbox's
own /etc; the helpers are the installed, root-owned, set-user-ID ones.
"""
import os
import pwd
import stat
import subprocess
import unittest

RESOURCES = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
SUPPORT = "/Library/Application Support/Orvane"
TOOLS = ["archive_table", "install_scripts", "remove_scripts", "install_crontab", "manual_backup"]
SCRIPTS = {
    "daily": ("/tmp/orvane_daily.rb", SUPPORT + "/.daily/orvane_daily.rb"),
    "weekly": ("/tmp/orvane_weekly.rb", SUPPORT + "/.weekly/orvane_weekly.rb"),
    "monthly": ("/tmp/orvane_monthly.rb", SUPPORT + "/.monthly/orvane_monthly.rb"),
}
DAILY_LINE = '30\t3\t*\t*\t*\troot\t"/Library/Application Support/Orvane/.daily/orvane_daily.rb"\n'
DEBIAN_CRONTAB = (
    "# /etc/crontab: system-wide crontab\n"
    "SHELL=/bin/sh\n"
    "PATH=/usr/local/sbin:/usr/local/bin:/sbin:/bin:/usr/sbin:/usr/bin\n\n"
    "17 *\t* * *\troot\tcd / && run-parts --report /etc/cron.hourly\n"
    "#\n"
)
ANACRONTAB = "SHELL=/bin/sh\n1\t5\tcron.daily\trun-parts --report /etc/cron.daily\n"
# Everything these tests make in /tmp. Only these go between tests: a kept
# folder (the checkout itself) may live under /tmp too.
TMP_FILES = ["/tmp/BackupItems.plist", "/tmp/orvane_daily.rb", "/tmp/orvane_weekly.rb", "/tmp/orvane_monthly.rb",
             "/tmp/orvane_manual.rb", "/tmp/crontab.orvane", "/tmp/anacrontab.orvane", "/tmp/manual-ran",
             "/tmp/admins-own-file"]


def sh(*args):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL)


def read(path):
    with open(path, "rb") as f:
        return f.read()


class Helpers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        assert os.environ.get("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox"
        for name, groups in (("ovadmin", ["-G", "sudo"]), ("ovuser", [])):
            try:
                pwd.getpwnam(name)
            except KeyError:
                sh("useradd", "-m", *groups, name)
        cls.admin = pwd.getpwnam("ovadmin")
        cls.user = pwd.getpwnam("ovuser")

    def setUp(self):
        subprocess.run(["rm", "-rf", SUPPORT, *TMP_FILES], check=True)
        for sub in ("", "/.daily", "/.weekly", "/.monthly"):
            os.mkdir(SUPPORT + sub, 0o775)
            os.chown(SUPPORT + sub, self.admin.pw_uid, self.admin.pw_gid)
        with open("/etc/crontab", "w") as f:
            f.write(DEBIAN_CRONTAB)
        with open("/etc/anacrontab", "w") as f:
            f.write(ANACRONTAB)
        for path in ("/etc/crontab.ov",):
            if os.path.exists(path):
                os.unlink(path)

    def give(self, who, path, data, mode=0o600):
        """A file as the pane writes it: owned by its user, mode 0600."""
        if os.path.lexists(path):
            os.unlink(path)
        with open(path, "wb") as f:
            f.write(data.encode() if isinstance(data, str) else data)
        os.chown(path, who.pw_uid, who.pw_gid)
        os.chmod(path, mode)

    def run_tool(self, who, tool, args=("--Orvane",), env=None, pass_fds=()):
        return subprocess.run(
            ["setpriv", "--reuid=%d" % who.pw_uid, "--regid=%d" % who.pw_gid, "--init-groups",
             "--", os.path.join(RESOURCES, tool), *args],
            capture_output=True, text=True, env=env or {"PATH": "/usr/bin:/bin"}, timeout=60, pass_fds=pass_fds)

    def refused(self, result, words):
        self.assertNotEqual(result.returncode, 0, result)
        self.assertEqual(len(result.stderr.strip().splitlines()), 1, result.stderr)
        self.assertIn(words, result.stderr)

    def give_all_inputs(self, who):
        self.give(who, "/tmp/BackupItems.plist", "bplist00 items")
        for temporary, _ in SCRIPTS.values():
            self.give(who, temporary, "#!/usr/bin/ruby\nputs 1\n")
        self.give(who, "/tmp/crontab.orvane", DEBIAN_CRONTAB + DAILY_LINE)
        self.give(who, "/tmp/orvane_manual.rb", "#!/usr/bin/ruby\nFile.write('/tmp/manual-ran', 'yes')\n")
        for _, installed in SCRIPTS.values():
            self.give(self.admin, installed, "#!/usr/bin/ruby\n# installed\n", 0o700)

    def assert_nothing_changed(self):
        self.assertFalse(os.path.exists(SUPPORT + "/BackupItems.plist"))
        for _, installed in SCRIPTS.values():
            self.assertEqual(read(installed), b"#!/usr/bin/ruby\n# installed\n")
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB)
        self.assertFalse(os.path.exists("/etc/crontab.ov"))
        self.assertFalse(os.path.exists("/tmp/manual-ran"))

    def test_installed_set_user_id_root(self):
        for tool in TOOLS:
            st = os.stat(os.path.join(RESOURCES, tool))
            self.assertEqual((st.st_uid, st.st_mode & 0o7777), (0, 0o4755), tool)

    def test_non_administrator_gets_nothing_done(self):
        self.give_all_inputs(self.user)
        for tool in TOOLS:
            self.refused(self.run_tool(self.user, tool), "not an administrator")
        self.assert_nothing_changed()

    def test_argument_list_must_be_exactly_orvane(self):
        self.give_all_inputs(self.admin)
        for args in ([], ["--orvane"], ["--Orvane", "--Orvane"], [""], ["--Orvane", "/etc/shadow"]):
            for tool in TOOLS:
                self.refused(self.run_tool(self.admin, tool, args), "exactly one argument")
        self.assert_nothing_changed()

    def test_hostile_inputs_are_refused(self):
        secret = "/tmp/admins-own-file"
        self.give(self.admin, secret, "#!/usr/bin/ruby\nadmin's own file\n")
        cases = {
            "link": lambda p: os.symlink(secret, p),
            "someone else's": lambda p: self.give(self.user, p, "#!/usr/bin/ruby\n", 0o644),
            "hard link": lambda p: os.link(secret, p),
            "group-writable": lambda p: self.give(self.admin, p, "#!/usr/bin/ruby\n", 0o620),
            "folder": lambda p: os.mkdir(p),
        }
        words = {"link": "Too many levels", "someone else's": "not owned", "hard link": "more than one link",
                 "group-writable": "writable by others", "folder": "not a regular file"}
        for tool, path in (("archive_table", "/tmp/BackupItems.plist"), ("manual_backup", "/tmp/orvane_manual.rb"),
                           ("install_scripts", "/tmp/orvane_weekly.rb"), ("install_crontab", "/tmp/crontab.orvane")):
            for case, plant in cases.items():
                with self.subTest(tool=tool, case=case):
                    subprocess.run(["rm", "-rf", path])
                    plant(path)
                    self.refused(self.run_tool(self.admin, tool), words[case])
                    subprocess.run(["rm", "-rf", path])
        self.assertFalse(os.path.exists(SUPPORT + "/BackupItems.plist"))
        self.assertFalse(os.path.exists(SCRIPTS["weekly"][1]))
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB)

    def test_archive_table_keeps_the_previous_archive(self):
        self.give(self.admin, "/tmp/BackupItems.plist", "bplist00 first")
        self.assertEqual(self.run_tool(self.admin, "archive_table").returncode, 0)
        archive = SUPPORT + "/BackupItems.plist"
        st = os.stat(archive)
        self.assertEqual((st.st_uid, st.st_mode & 0o777, read(archive)), (0, 0o644, b"bplist00 first"))
        self.give(self.admin, "/tmp/BackupItems.plist", "<?xml second")
        self.assertEqual(self.run_tool(self.admin, "archive_table").returncode, 0)
        self.assertEqual(read(archive), b"<?xml second")
        self.assertEqual(read(SUPPORT + "/BackupItems.previous.plist"), b"bplist00 first")
        self.give(self.admin, "/tmp/BackupItems.plist", "rm -rf /")
        self.refused(self.run_tool(self.admin, "archive_table"), "not a property list")
        self.assertEqual(read(archive), b"<?xml second")

    def test_scripts_installed_and_removed(self):
        for temporary, _ in SCRIPTS.values():
            self.give(self.admin, temporary, "#!/usr/bin/ruby\n")
        self.assertEqual(self.run_tool(self.admin, "install_scripts").returncode, 0)
        for _, installed in SCRIPTS.values():
            st = os.stat(installed)
            self.assertEqual((st.st_uid, st.st_gid, st.st_mode & 0o777), (0, 0, 0o700))
        # The weekly schedule lost its last item.
        os.unlink(SCRIPTS["weekly"][0])
        self.assertEqual(self.run_tool(self.admin, "install_scripts").returncode, 0)
        self.assertFalse(os.path.exists(SCRIPTS["weekly"][1]))
        self.assertTrue(os.path.exists(SCRIPTS["daily"][1]))
        # Not a script: nothing of the set changes.
        self.give(self.admin, SCRIPTS["monthly"][0], "rm -rf /")
        self.refused(self.run_tool(self.admin, "install_scripts"), "does not start with #!")
        self.assertTrue(os.path.exists(SCRIPTS["monthly"][1]))
        self.assertEqual(self.run_tool(self.admin, "remove_scripts").returncode, 0)
        for _, installed in SCRIPTS.values():
            self.assertFalse(os.path.exists(installed))
        self.assertEqual(self.run_tool(self.admin, "remove_scripts").returncode, 0)

    def test_scripts_never_written_through_a_linked_folder(self):
        daily = SUPPORT + "/.daily"
        os.rmdir(daily)
        os.symlink("/etc/cron.d", daily)
        self.give(self.admin, SCRIPTS["daily"][0], "#!/usr/bin/ruby\n")
        self.refused(self.run_tool(self.admin, "install_scripts"), "Not a directory")
        self.assertFalse(os.path.exists("/etc/cron.d/orvane_daily.rb"))

    def test_install_crontab_takes_only_own_lines(self):
        self.give(self.admin, "/tmp/crontab.orvane", DEBIAN_CRONTAB + DAILY_LINE)
        self.give(self.admin, "/tmp/anacrontab.orvane",
                  ANACRONTAB + '7\t25\torvane.weekly\t"/Library/Application Support/Orvane/.weekly/orvane_weekly.rb"\n')
        result = self.run_tool(self.admin, "install_crontab")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB + DAILY_LINE)
        self.assertEqual(read("/etc/crontab.ov").decode(), DEBIAN_CRONTAB)
        self.assertIn("orvane.weekly", read("/etc/anacrontab").decode())
        st = os.stat("/etc/crontab")
        self.assertEqual((st.st_uid, st.st_mode & 0o777), (0, 0o644))
        self.assertFalse(os.path.exists("/tmp/crontab.orvane"))

        # Taking the line out again is fine; adding a line of one's own is not.
        self.give(self.admin, "/tmp/crontab.orvane", DEBIAN_CRONTAB + "* * * * *\troot\t/tmp/evil\n")
        self.refused(self.run_tool(self.admin, "install_crontab"), "not Orvane's")
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB + DAILY_LINE)
        self.give(self.admin, "/tmp/crontab.orvane", DEBIAN_CRONTAB)
        self.assertEqual(self.run_tool(self.admin, "install_crontab").returncode, 0)
        self.assertEqual(read("/etc/crontab").decode(), DEBIAN_CRONTAB)

        # Without /etc/crontab the saved copy is the base.
        os.unlink("/etc/crontab")
        self.give(self.admin, "/tmp/crontab.orvane", read("/etc/crontab.ov").decode() + DAILY_LINE)
        self.assertEqual(self.run_tool(self.admin, "install_crontab").returncode, 0)
        self.assertTrue(read("/etc/crontab").decode().endswith(DAILY_LINE))

        os.unlink("/etc/anacrontab")
        self.give(self.admin, "/tmp/anacrontab.orvane", ANACRONTAB)
        self.refused(self.run_tool(self.admin, "install_crontab"), "no /etc/anacrontab")
        self.assertFalse(os.path.exists("/etc/anacrontab"))

    def test_manual_backup_runs_a_private_copy_as_root(self):
        self.give(self.admin, "/tmp/orvane_manual.rb",
                  "#!/usr/bin/ruby\n"
                  "File.write('/tmp/manual-ran', [Process.uid, Process.euid, Process.gid, "
                  "ENV.keys.sort.join(','), __FILE__, File.stat(__FILE__).uid, File.exist?('/proc/self/fd/9')].join(' '))\n")
        # A descriptor the caller leaves open never reaches the root process.
        leaked = os.open("/etc/hostname", os.O_RDONLY)
        os.dup2(leaked, 9, inheritable=True)
        result = self.run_tool(self.admin, "manual_backup", pass_fds=(9,),
                               env={"PATH": "/tmp/evil:/usr/bin", "RUBYOPT": "-r/tmp/evil", "LD_PRELOAD": "/tmp/evil.so"})
        os.close(9)
        os.close(leaked)
        self.assertEqual(result.returncode, 0, result.stderr)
        uid, euid, gid, keys, script, owner, fd_open = read("/tmp/manual-ran").decode().split(" ")
        self.assertEqual((uid, euid, gid, owner, fd_open), ("0", "0", "0", "0", "false"))
        self.assertEqual(keys, "HOME,LANG,LOGNAME,PATH,SHELL,USER")
        self.assertNotEqual(script, "/tmp/orvane_manual.rb")
        self.assertFalse(os.path.exists(os.path.dirname(script)), "the private copy is cleaned up")
        self.assertEqual(stat.S_IMODE(os.stat("/tmp/orvane_manual.rb").st_mode), 0o600)


if __name__ == "__main__":
    unittest.main(verbosity=2)

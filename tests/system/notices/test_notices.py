#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""orvane-notice as a backup script runs it: as the user, with the user's session environment, on a real
session bus. Plasma cannot run here: desktop_standin.py records what reaches the desktop and answers."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from ovtest import read, user as make_user, wait_for, write  # noqa: E402

NOTICE = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/orvane-notice"
HERE = os.path.dirname(os.path.abspath(__file__))
USER = "ovnotice"
WORK = tempfile.mkdtemp(prefix="ov-notices-")
RECORD, ANSWER, SHIMS, PAPLAY_LOG, OPENED_LOG = (os.path.join(WORK, name) for name in
                                                 ("record.jsonl", "answer.json", "bin", "paplay.log", "opened.log"))
started = []

def as_user(command):
    return ["runuser", "-u", USER, "--"] + command

def daemon_as_user(command):
    return ["setpriv", "--reuid=" + USER, "--regid=" + USER, "--init-groups", "env", "HOME=" + home] + command

def start_bus(socket):
    bus = subprocess.Popen(daemon_as_user(["dbus-daemon", "--session", "--nofork", "--nopidfile",
                                           "--address=unix:path=" + socket, "--print-address=1"]),
                           stdout=subprocess.PIPE, text=True)
    started.append(bus)
    return bus.stdout.readline().strip(), bus

def shim(name, log):
    """A program that notes its arguments in LOG."""
    write(os.path.join(SHIMS, name), '#!/bin/sh\necho "$@" >> %s\n' % log, 0o755)
    return os.path.join(SHIMS, name)

def setUpModule():
    global user, home, runtime, address
    user = make_user(USER)
    home = user.pw_dir
    runtime = "/run/user/%d" % user.pw_uid
    os.makedirs(runtime, exist_ok=True)
    os.chown(runtime, user.pw_uid, user.pw_gid)
    os.chmod(runtime, 0o700)
    address = start_bus(runtime + "/bus")[0]
    ready = os.path.join(WORK, "ready")
    for path in (RECORD, ANSWER, PAPLAY_LOG, OPENED_LOG):
        write(path, "", 0o666)
    os.chmod(WORK, 0o777)
    started.append(subprocess.Popen(daemon_as_user(["env", "DBUS_SESSION_BUS_ADDRESS=" + address, "python3",
                                                    os.path.join(HERE, "desktop_standin.py"), RECORD, ANSWER, ready])))
    assert wait_for(lambda: os.path.exists(ready), 20), "the stand-in desktop did not start"
    # paplay plays the alert sound; the user's default viewer for logs.
    shim("paplay", PAPLAY_LOG)
    write_as_user(".local/share/applications/ov-test-logviewer.desktop",
                  "[Desktop Entry]\nType=Application\nName=Log viewer\nExec=%s %%f\nMimeType=text/plain;text/x-log;\n"
                  % shim("logviewer", OPENED_LOG))
    write_as_user(".config/mimeapps.list",
                  "[Default Applications]\ntext/plain=ov-test-logviewer.desktop\ntext/x-log=ov-test-logviewer.desktop\n")
    for frequency in ("daily", "weekly"):
        write("/var/log/orvane_%s.log" % frequency, "backup log\n")
    started.append(subprocess.Popen(["Xvfb", ":78", "-ac", "-nolisten", "tcp", "-screen", "0", "640x480x24"],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))

def tearDownModule():
    for process in reversed(started):
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
    shutil.rmtree(WORK, ignore_errors=True)

def write_as_user(relative, text):
    path = os.path.join(home, relative)
    subprocess.run(as_user(["mkdir", "-p", os.path.dirname(path)]), check=True)
    subprocess.run(as_user(["tee", path]), input=text, text=True, stdout=subprocess.DEVNULL, check=True)

def settings(**values):
    """The pane's settings domain, as an XML property list: a notice that closes itself after a second, silent."""
    values = {"DisplayAlert": True, "AutoDismissAlert": True, "TimeValue": 1, "TimeUnit": 0, "PlaySound": False, **values}
    kind = lambda v: "integer" if isinstance(v, int) else "string"
    write_as_user(".config/org.orvane.Orvane.plist", '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>%s</dict></plist>\n'
                  % "".join(f"<key>{k}</key><{str(v).lower()}/>" if isinstance(v, bool) else f"<key>{k}</key><{kind(v)}>{v}</{kind(v)}>"
                            for k, v in values.items()))

def answer(**what):
    write(ANSWER, json.dumps(what), 0o666)

def session_environment(bus=True, display=False, runtime_dir=None):
    return (["HOME=" + home, "USER=" + USER, "LOGNAME=" + USER, "PATH=%s:/usr/bin:/bin" % SHIMS, "XDG_RUNTIME_DIR=" + (runtime_dir or runtime)]
            + ["DBUS_SESSION_BUS_ADDRESS=" + (bus if isinstance(bus, str) else address)] * bool(bus) + ["DISPLAY=:78"] * display)

def notice(*arguments, background=False, report=None, **environment):
    """Standard input: nothing, REPORT through a pipe, or (in the background) a pipe left open for the caller."""
    command = as_user(["env", "-i"] + session_environment(**environment) + [NOTICE] + list(arguments))
    if background:
        return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    start = time.monotonic()
    result = subprocess.run(command, input=report, stdin=None if report is not None else subprocess.DEVNULL,
                            capture_output=True, text=True, timeout=60)
    return result.returncode, result.stderr, time.monotonic() - start

def lines(path):
    with open(path) as f:
        return f.read().splitlines()

def mark():
    return len(lines(RECORD))

def events(since, kind=None):
    return [e for e in map(json.loads, lines(RECORD)[since:]) if kind in (None, e["event"])]

def shown(since, event_id=None):
    return [e for e in events(since, "notify") if event_id in (None, e["hints"]["x-kde-eventId"])]

def user_processes(name):
    return sorted(map(int, subprocess.run(["pgrep", "-u", USER, "-x", name], capture_output=True, text=True).stdout.split()))

class FinishedNotice(unittest.TestCase):
    def finished(self, frequency, result, given=None, report=None, **values):
        settings(**values)
        answer(**(given or {}))
        for path in (PAPLAY_LOG, OPENED_LOG):
            open(path, "w").close()
        since = mark()
        status, err, elapsed = notice("--finished", frequency, result, report=report)
        self.assertEqual(status, 0, err)
        return since, elapsed

    def test_closes_by_itself_after_the_set_delay_with_the_chosen_sound(self):
        since, _ = self.finished("Daily", "complete", TimeValue=2, PlaySound=True, Sound="Magic Bell")
        notified, closed = shown(since), events(since, "close")
        self.assertEqual([(n["app"], n["body"], n["hints"]["x-kde-eventId"], n["hints"]["desktop-entry"], n["actions"]) for n in notified],
                         [("Orvane", "The daily backup is complete.", "backupComplete", "org.orvane.Orvane.notice", [])])
        self.assertEqual(len(closed), 1, "the notice closes itself once")
        self.assertTrue(1.8 <= closed[0]["time"] - notified[0]["time"] < 4)
        self.assertEqual(lines(PAPLAY_LOG), ["/Library/Sounds/Magic Bell.aiff"])

    def test_stays_until_the_user_closes_it_without_auto_dismiss(self):
        since, elapsed = self.finished("Monthly", "complete", dict(close=2, after=3), AutoDismissAlert=False)
        self.assertEqual([e["body"] for e in shown(since)], ["The monthly backup is complete."])
        self.assertEqual(events(since, "close"), [], "only the user closed it")
        self.assertGreaterEqual(elapsed, 3)

    def test_the_next_end_notice_of_the_same_kind_takes_its_place(self):
        settings(AutoDismissAlert=False)
        answer()
        since = mark()
        daily, weekly = (notice("--finished", f, "complete", background=True) for f in ("Daily", "Weekly"))
        for waiting in (daily, weekly):
            waiting.stdin.close()
            started.append(waiting)
        self.assertTrue(wait_for(lambda: len(shown(since)) == 2, 20), "both notices show")
        old = {n["body"]: n["id"] for n in shown(since)}["The daily backup is complete."]
        self.finished("Daily", "errors", dict(close=2, after=1), AutoDismissAlert=False)
        self.assertEqual(daily.wait(10), 0, "the old daily notice's program ends")
        self.assertEqual([e["id"] for e in events(since, "close")], [old], "only the old daily notice is taken away")
        self.assertIsNone(weekly.poll(), "the weekly notice stays")
        weekly.terminate()

    def test_nothing_shown_or_played_when_switched_off(self):
        since, elapsed = self.finished("Daily", "errors", DisplayAlert=False)
        self.assertEqual((events(since), lines(PAPLAY_LOG)), ([], []))
        self.assertLess(elapsed, 10)

    def test_error_notice_shows_the_log_of_its_frequency(self):
        since, _ = self.finished("Weekly", "errors", dict(action="Show Log"), AutoDismissAlert=False)
        self.assertEqual([(n["body"], n["hints"]["x-kde-eventId"], n["actions"]) for n in shown(since)],
                         [("The weekly backup finished with errors.", "backupErrors", ["Show Log"])])
        self.assertTrue(wait_for(lambda: lines(OPENED_LOG), 10), "the log viewer was not started")
        self.assertEqual(lines(OPENED_LOG), ["/var/log/orvane_weekly.log"])

    def test_a_caution_shows_what_the_run_reported(self):
        # The log is for administrators: no "Show Log" for this user.
        os.chmod("/var/log/orvane_daily.log", 0o640)
        self.addCleanup(os.chmod, "/var/log/orvane_daily.log", 0o644)
        report = "2026-01-01 10:00:00 1500 files in /media/b are no longer in /home/a; they were kept <ok>\n"
        since, _ = self.finished("Daily", "caution", report=report)
        self.assertEqual([(n["hints"]["x-kde-eventId"], n["body"], n["actions"]) for n in shown(since)],
                         [("backupCaution", "The daily backup finished, but something needs your attention.\n" + report.strip(), [])])

class Questions(unittest.TestCase):
    def test_answers_a_run_does_not_give(self):  # ScriptRun gives Back Up Now, Delete and Keep through real runs
        deletions = ["--ask-deletions", "1500", "/media/backup", "/home/ann", "Weekly"]
        for arguments, given, expected, environment in ((["--prompt", "Daily"], {"action": "Skip"}, 1, {}),
                                                        (["--prompt", "Daily"], {"close": 1}, 3, {}),
                                                        (deletions, {"close": 1}, 2, {}),
                                                        # The bus found in the runtime folder.
                                                        (["--prompt", "Daily", "manual"], {"action": "Back Up Now"}, 0, {"bus": False})):
            with self.subTest(arguments=arguments[0], answer=given):
                answer(**given)
                since = mark()
                status, err, _ = notice(*arguments, **environment)
                self.assertEqual(status, expected, err)
                self.assertEqual(len(shown(since)), 1)
                if expected == 3:
                    self.assertIn("without an answer", err)
        self.assertEqual(shown(since)[0]["body"], "A manual backup is about to start.")

    def test_the_question_and_the_job_go_when_the_run_ends(self):
        progress = "/tmp/ov_Weekly.progress"
        write(progress, "1 10 1 10 1 1\n")
        self.addCleanup(os.unlink, progress)
        answer()
        for arguments, appeared, expected, gone in ((["--ask-deletions", "12", "/b", "/a", "Daily", "manual"], "notify", 2, "close"),
                                                    (["--progress", progress, "Weekly"], "job-update", 0, "job-terminate")):
            since = mark()
            running = notice(*arguments, background=True)
            self.assertTrue(wait_for(lambda: events(since, appeared), 10), arguments[0])
            running.stdin.close()  # the run is gone (its progress file stays)
            self.assertEqual(running.wait(10), expected)
            self.assertEqual(len(events(since, gone)), 1, arguments[0])

class ScriptRun(unittest.TestCase):
    """A real script, filled by the pane's builder, run as root as cron runs it, the user's desktop logged in."""
    def setUp(self):
        settings()
        desktop = subprocess.Popen(daemon_as_user(["env", "DISPLAY=:78", "DBUS_SESSION_BUS_ADDRESS=" + address,
                                                   "XDG_RUNTIME_DIR=" + runtime, "sleep", "600"]))
        self.addCleanup(desktop.wait)
        self.addCleanup(desktop.kill)
        self.addCleanup(answer)
        self.root = tempfile.mkdtemp(prefix="ov-run-")
        self.addCleanup(shutil.rmtree, self.root, True)

    def cron_run(self, *fill_arguments):
        script = os.path.join(self.root, "daily.rb")
        write(script, subprocess.run([os.environ["OV_FILL_SCRIPT"], "--user", USER, *fill_arguments], capture_output=True, check=True).stdout, 0o700)
        return subprocess.run(["env", "-i", "LANG=C.UTF-8", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", script],
                              capture_output=True, timeout=300)

    def end_notice(self, since):
        ends = lambda: shown(since, "backupComplete") + shown(since, "backupCaution")
        self.assertTrue(wait_for(ends, 20), "no end notice")
        return ends()[0]["body"]

    def test_a_run_asks_shows_its_progress_and_ends_with_its_notice(self):
        answer(action="Back Up Now")
        pairs = []
        # Each folder takes long enough for the job to show it.
        for name in ("first", "second"):
            source, destination = os.path.join(self.root, name), os.path.join(self.root, name + "-backup")
            write(destination + "/notes.txt", "")  # not a first copy, which takes no time
            write(source + "/data.bin", os.urandom(250 << 20))
            pairs += [source, destination]
        since = mark()
        run = self.cron_run("--progress", "--prompt", *pairs)
        self.assertEqual(run.returncode, 0, run.stderr)
        for i in (0, 2):
            self.assertEqual(subprocess.run(["cmp", pairs[i] + "/data.bin", pairs[i + 1] + "/data.bin"]).returncode, 0)
        self.assertEqual(len(shown(since, "promptBeforeBackup")), 1, "the run asked once")
        self.assertTrue(wait_for(lambda: events(since, "job-terminate"), 20), "the progress job did not end")
        requests = events(since, "job-request")
        state, seen = dict(requests[0]["hints"]), []
        for update in events(since, "job-update"):
            state.update(update["properties"])
            seen.append(dict(state))
        self.assertEqual([(r["desktopEntry"], r["capabilities"]) for r in requests], [("org.orvane.Orvane.notice", 0)],
                         "one job for the whole run, which a user cannot cancel (it is root's run)")
        self.assertEqual(seen[-1]["title"], "Daily backup")
        self.assertEqual({s["descriptionValue1"] for s in seen if s.get("descriptionLabel1") == "Folder"}, {"1 of 2", "2 of 2"},
                         "each folder shown as the one it is")
        self.assertEqual([(e["code"], e["message"]) for e in events(since, "job-terminate")], [(0, "")])
        self.assertEqual(self.end_notice(since), "The daily backup is complete.")

    def test_a_mirror_asks_before_it_deletes_much(self):
        source, destination = os.path.join(self.root, "source"), os.path.join(self.root, "backup")
        for given, status, left, reason in ((dict(action="Delete"), 0, 2, None),
                                            (dict(action="Keep"), 1, 22, "since Keep was chosen")):
            with self.subTest(answer=given):
                shutil.rmtree(destination, ignore_errors=True)
                for folder, names in ((source, ["a", "b"]), (destination, ["a", "b"] + ["gone %d" % i for i in range(20)])):
                    for name in names:
                        write(os.path.join(folder, name), name)
                answer(**given)
                since = mark()
                run = self.cron_run("--mirror", source, destination)
                self.assertEqual(run.returncode, status, run.stderr)
                self.assertEqual(len(os.listdir(destination)), left)
                self.assertEqual([e["body"] for e in shown(since, "askDeletions")],
                                 ["20 files in %s are no longer in %s. Delete them from the backup?" % (destination, source)])
                end = self.end_notice(since)
                if reason is None:
                    self.assertFalse(os.path.exists("/var/log/.orvane_daily.err"))
                    self.assertEqual(end, "The daily backup is complete.")
                else:
                    self.assertIn("20 files in %s are no longer in %s; they were kept in the backup, %s"
                                  % (destination, source, reason), read("/var/log/.orvane_daily.err").decode())
                    self.assertIn("they were kept in the backup, " + reason, end)

class Refusals(unittest.TestCase):
    def test_without_a_desktop_it_says_why_and_starts_no_bus(self):
        """The old program, without the user's bus address on a display, left a dbus-launch and a dbus-daemon."""
        empty_runtime = os.path.join(WORK, "runtime-without-bus")
        os.makedirs(empty_runtime, exist_ok=True)
        os.chown(empty_runtime, user.pw_uid, user.pw_gid)
        other, daemon = start_bus(os.path.join(WORK, "bus-without-desktop"))
        settings()
        before = user_processes("dbus-daemon")
        no_address = dict(bus=False, display=True, runtime_dir=empty_runtime)
        for environment, said in ((no_address, ["DBUS_SESSION_BUS_ADDRESS"] * 2),
                                  (dict(bus=other), ["no notification server", "no job progress server"])):
            for arguments, words in zip((["--prompt", "Daily"], ["--progress", "/tmp/ov_Daily.progress", "Daily"]), said):
                status, err, elapsed = notice(*arguments, **environment)
                self.assertEqual(status, 3, arguments)
                self.assertIn(words, err)
                self.assertLess(elapsed, 10)
        time.sleep(0.5)
        self.assertEqual((user_processes("dbus-daemon"), user_processes("dbus-launch")), (before, []))
        daemon.terminate()
        # The same environment does autolaunch a bus for a plain D-Bus client: the check above would see one.
        subprocess.run(as_user(["env", "-i"] + session_environment(**no_address)
                               + ["dbus-send", "--session", "--dest=org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer.Ping"]),
                       capture_output=True, timeout=30)
        launched = [pid for pid in user_processes("dbus-daemon") if pid not in before]
        self.assertTrue(launched, "the environment does not reproduce autolaunching")
        for pid in launched + user_processes("dbus-launch"):
            os.kill(pid, 15)

    def test_wrong_calls_are_refused(self):
        for arguments in (["--nonsense"], [], ["--finished", "Hourly", "complete"], ["--finished", "Daily", "done"],
                          ["--ask-deletions", "0", "/b", "/a", "Daily"], ["--ask-deletions", "3", "/b", "/a"]):
            status, err, _ = notice(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertIn("usage", err)

if __name__ == "__main__":
    unittest.main(verbosity=2)

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""A stand-in for Plasma's notification and job view servers, which cannot run in the sandbox: it records
every call as a JSON line in RECORD and answers a notification with actions as the file ANSWER says then:
  {"action": "Back Up Now"}          the user clicks that action
  {"close": 1} / {"close": 2}        the popup expires / the user closes it
  {..., "after": SECONDS}            ... that long after it appeared
Usage: desktop_standin.py RECORD ANSWER READY"""
import json
import os
import sys
import time

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

record_path, answer_path, ready_path = sys.argv[1:4]

def plain(value):
    for kinds, make in (((dbus.Boolean, bool), bool), ((int, dbus.Byte), int), (float, float),
                        (dict, lambda d: {str(k): plain(v) for k, v in d.items()}), ((list, tuple), lambda l: [plain(v) for v in l])):
        if isinstance(value, kinds):
            return make(value)
    return str(value)

def record(event, **fields):
    with open(record_path, "a") as out:
        out.write(json.dumps(dict(event=event, time=time.monotonic(), **plain(fields))) + "\n")

class Notifications(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.next_id, self.open = 1, set()

    @dbus.service.method("org.freedesktop.Notifications", out_signature="as")
    def GetCapabilities(self):
        return ["actions", "body", "icon-static", "persistence"]

    @dbus.service.method("org.freedesktop.Notifications", in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        nid = int(replaces) or self.next_id
        self.next_id = max(self.next_id, nid + 1)
        labels = {str(actions[i + 1]): str(actions[i]) for i in range(0, len(actions) - 1, 2)}
        record("notify", id=nid, app=app, icon=icon, summary=summary, body=body, actions=list(labels), hints=hints, timeout=timeout)
        self.open.add(nid)
        try:
            with open(answer_path) as f:
                answer = json.load(f)
        except (OSError, ValueError):
            answer = None
        if answer and ("close" in answer or answer.get("action") in labels):
            GLib.timeout_add(int(answer.get("after", 0.3) * 1000), self.answer, nid, answer, labels)
        return nid

    def answer(self, nid, answer, labels):
        if "action" in answer and nid in self.open:
            self.ActionInvoked(nid, labels[answer["action"]])
        self.close(nid, 2 if "action" in answer else answer["close"])  # Plasma closes a popup once an action was chosen
        return False

    def close(self, nid, reason):
        if nid in self.open:
            self.open.discard(nid)
            self.NotificationClosed(nid, reason)

    @dbus.service.method("org.freedesktop.Notifications", in_signature="u")
    def CloseNotification(self, nid):
        record("close", id=nid)
        self.close(int(nid), 3)

    @dbus.service.signal("org.freedesktop.Notifications", signature="uu")
    def NotificationClosed(self, nid, reason):
        pass

    @dbus.service.signal("org.freedesktop.Notifications", signature="us")
    def ActionInvoked(self, nid, key):
        pass

class JobView(dbus.service.Object):
    def __init__(self, bus, path, number):
        super().__init__(bus, path)
        self.number = number

    @dbus.service.method("org.kde.JobViewV3", in_signature="a{sv}")
    def update(self, properties):
        record("job-update", job=self.number, properties=properties)

    @dbus.service.method("org.kde.JobViewV3", in_signature="usa{sv}")
    def terminate(self, code, message, hints):
        record("job-terminate", job=self.number, code=code, message=message)
        self.remove_from_connection()

class JobViewServer(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/JobViewServer")
        self.bus, self.jobs = bus, 0

    @dbus.service.method("org.kde.JobViewServerV2", in_signature="sia{sv}", out_signature="o")
    def requestView(self, desktop_entry, capabilities, hints):
        self.jobs += 1
        path = "/org/kde/notificationmanager/jobs/JobView_%d" % self.jobs
        JobView(self.bus, path, self.jobs)
        record("job-request", job=self.jobs, desktopEntry=desktop_entry, capabilities=capabilities, hints=hints)
        return dbus.ObjectPath(path)

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
names = [dbus.service.BusName(name, bus) for name in ("org.freedesktop.Notifications", "org.kde.JobViewServer")]
servers = [Notifications(bus), JobViewServer(bus)]
open(ready_path, "w").close()
GLib.MainLoop().run()

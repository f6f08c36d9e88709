#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""The item list as the module installs it, by another keyed-archive reader and writer than ours. An item
is "FREQUENCY|SOURCE|DESTINATION|DESTINATION LABEL[|EXCLUSION...]"; read back, an exclusion also removed
from the backup ends in " removed", and an unticked item's frequency starts with "-".
  items.py ARCHIVE ITEM...   writes the list (binary, mode 0644)
  items.py ARCHIVE           prints it, an item a line (nothing if unreadable)"""
import os
import plistlib
import sys
from plistlib import UID

if len(sys.argv) == 2:
    try:
        archive = plistlib.load(open(sys.argv[1], "rb"))
    except (OSError, ValueError):
        sys.exit()
    objects = archive["$objects"]
    listed = lambda o, key: [objects[u.data] for u in objects[o[key].data]["NS.objects"]] if key in o else []
    for item in (objects[u.data] for u in objects[archive["$top"]["root"].data]["NS.objects"]):
        removed = listed(item, "OVExclusionsRemovedFromBackup")
        print("|".join([("" if item.get("OVCheckColumn") else "-") + str(item["OVFrequencyColumn"])]
                       + [objects[item[k].data] for k in ("OVSourcePath", "OVDestPath", "OVBackupDestination")]
                       + [e + " removed" * (e in removed) for e in listed(item, "OVExclusions")]))
    sys.exit()

objects = ["$null"]

def add(o):
    objects.append(o)
    return UID(len(objects) - 1)

items = {"NS.objects": []}
root = add(items)
item_class = add({"$classname": "OVBackupItem", "$classes": ["OVBackupItem", "NSObject"]})
items["$class"] = add({"$classname": "NSMutableArray", "$classes": ["NSMutableArray", "NSArray", "NSObject"]})
array_class = add({"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]})
for item_text in sys.argv[2:]:
    frequency, source, destination, label, *exclusions = item_text.split("|")
    item = {"$class": item_class, "OVCheckColumn": True, "OVCheckEnabled": True, "OVToast": False,
            "OVFrequencyColumn": int(frequency), "OVSourceColumn": 0, "OVDestColumn": 0,
            "OVSourcePath": add(source), "OVBackupSource": add(os.path.basename(source)),
            "OVDestPath": add(destination), "OVBackupDestination": add(label)}
    if exclusions:
        item["OVExclusions"] = add({"$class": array_class, "NS.objects": [add(e) for e in exclusions]})
    items["NS.objects"].append(add(item))
with open(sys.argv[1], "wb") as f:
    f.write(plistlib.dumps({"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": root}, "$objects": objects},
                           fmt=plistlib.FMT_BINARY))
os.chmod(sys.argv[1], 0o644)

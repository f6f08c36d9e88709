#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""write_items.py ARCHIVE ITEM...: the item list as the module installs it,
written by another keyed-archive writer than ours (binary, mode 0644). Each
ITEM is "FREQUENCY|SOURCE|DESTINATION|DESTINATION LABEL[|EXCLUSION...]"."""
import os
import plistlib
import sys
from plistlib import UID

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

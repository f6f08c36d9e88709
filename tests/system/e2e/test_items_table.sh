#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# In System Settings under Xvfb: unlock, add an item, give it a source and a
# destination through the real folder dialog, make it weekly, quit, open
# again: the item is there with its labels. Screenshots go to $1.
set -u
out=${1:?output folder}
mkdir -p "$out" /root/Documents/Fotos /root/Backups
. "$(dirname "$0")/desktop.sh"
. "$(dirname "$0")/polkit.sh"
archive="/Library/Application Support/Orvane/BackupItems.plist"

open_orvane() {
    systemsettings kcm_orvane >>/tmp/systemsettings.log 2>&1 &
    window=$(timeout 30 xdotool search --sync --name '^Orvane' | head -1)
    sleep 3
}
# choose_folder X PATH: the row's menu at column X (a double-click opens it),
# its "Choose Folder…", the dialog.
choose_folder() {
    xdotool mousemove --window "$window" "$1" 157 click --repeat 2 --delay 80 1
    sleep 1.5
    xdotool key End Return
    timeout 10 xdotool search --sync --onlyvisible --name 'Find Directory' >/dev/null
    sleep 0.5
    xdotool type --delay 20 "$2"
    xdotool key Return
    sleep 1.5
}

open_orvane
xdotool mousemove --window "$window" 284 601 click 1
sleep 1.5
xdotool mousemove --window "$window" 305 426 click 1
sleep 1
choose_folder 508 /root/Documents/Fotos
choose_folder 775 /root/Backups
# The frequency menu: from "Manually" up past its separator to "Weekly".
xdotool mousemove --window "$window" 334 157 click --repeat 2 --delay 80 1
sleep 1.5
xdotool key Up Up Return
sleep 1
xdotool mousemove --window "$window" 600 300
screenshot "$out/items-table.png"

xdotool key --window "$window" ctrl+q
for _ in $(seq 50); do pgrep -x systemsettings >/dev/null || break; sleep 0.2; done
sleep 1
check "quitting saved the items in place" grep -q Fotos "$archive"
check "the item's destination label is saved" grep -q Backups "$archive"

open_orvane
screenshot "$out/items-table-reopened.png"
check "the reopened module shows Orvane" test -n "$window"
check "the list holds the default item and the new one" python3 - "$archive" <<'PY'
import plistlib, sys
archive = plistlib.load(open(sys.argv[1], 'rb'))
objects = archive['$objects']
items = [o for o in objects if isinstance(o, dict) and 'OVFrequencyColumn' in o]
def text(uid):
    return objects[uid.data] if uid.data else None
assert len(items) == 2, items
new = items[1]
assert new['OVFrequencyColumn'] == 1, new
assert new['OVCheckColumn'] is True
assert text(new['OVSourcePath']) == '/root/Documents/Fotos', text(new['OVSourcePath'])
assert text(new['OVBackupSource']) == 'Fotos'
assert text(new['OVDestPath']) == '/root/Backups'
PY
finish

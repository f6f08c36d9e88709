#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Opens Orvane in System Settings under Xvfb, opens the options dialog,
# steps through its six tabs keeping a screenshot of each, changes a setting
# and presses OK; the stored settings hold it. Screenshots go to $1.
set -u
out=${1:?output folder}
mkdir -p "$out"
. "$(dirname "$0")/desktop.sh"
. "$(dirname "$0")/polkit.sh"

systemsettings kcm_orvane >/tmp/systemsettings.log 2>&1 &
window=$(timeout 30 xdotool search --sync --name '^Orvane' | head -1)
check "System Settings opens on Orvane" test -n "$window"
sleep 3

# Options wait for the lock: open it through polkit (bottom left of the pane).
xdotool mousemove --window "$window" 284 601 click 1
sleep 2
screenshot "$out/unlocked.png"

# The options button sits right of the table, left of "Back Up Now".
xdotool mousemove --window "$window" 768 426 click 1
dialog=$(timeout 10 xdotool search --sync --name 'Orvane Options' | head -1)
check "the options dialog opens" test -n "$dialog"
sleep 1
for tab in 1 2 3 4 5 6; do
    screenshot "$out/options-tab-$tab.png"
    xdotool key --window "$dialog" ctrl+Tab
    sleep 0.7
done

# Back on the first tab: tick "wait until away" with the keyboard, then OK.
xdotool key --window "$dialog" Tab space
sleep 0.3
xdotool key --window "$dialog" Return
sleep 1.5
check "OK closes the dialog" sh -c "! xdotool search --onlyvisible --name 'Orvane Options' >/dev/null 2>&1"
domain=/root/.config/org.orvane.Orvane.plist
check "OK stores the settings" test -s "$domain"
check "the stored settings hold the change" sh -c "grep -A1 '<key>WaitUntilAway</key>' '$domain' | grep -q '<true/>'"
check "the sound menu offers the bell" sh -c "grep -A1 '<key>Sound</key>' '$domain' | grep -q 'Magic Bell'"
finish

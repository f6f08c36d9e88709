#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# A user's way through Orvane in System Settings under Xvfb, as an
# administrator who is not root, with polkit granting the unlock: an item
# added, leaving applies it, quitting applies the next edit, the search finds
# Orvane again. Screenshots go to $1.
set -u
out=${1:?output folder}
mkdir -p "$out"
. "$(dirname "$0")/desktop.sh"
. "$(dirname "$0")/polkit.sh"
polkit_rule grant || exit 1
admin_session
as_admin mkdir -p /home/ovadmin/Fotos /home/ovadmin/Backups

support="/Library/Application Support/Orvane"
archive="$support/BackupItems.plist"

double_click() { # double_click X Y
    xdotool mousemove --window "$window" "$1" "$2" click --repeat 2 --delay 80 1
}
choose_folder() { # choose_folder X PATH: the new row's menu at column X, "Choose Folder…", the dialog
    double_click "$1" 157
    sleep 1.5
    xdotool key End Return
    timeout 10 xdotool search --sync --onlyvisible --name 'Find Directory' >/dev/null
    sleep 0.5
    xdotool type --delay 20 "$2"
    xdotool key Return
    sleep 1.5
}

user systemsettings kcm_orvane >>/tmp/systemsettings.log 2>&1 &
window=$(timeout 30 xdotool search --sync --name '^Orvane' | head -1)
check "System Settings shows Orvane" test -n "$window" || { finish; exit 1; }
sleep 3
check "nothing is scheduled yet" sh -c "! grep -q orvane_daily /etc/crontab"

# Unlock (polkit's rule grants it).
xdotool mousemove --window "$window" 284 601 click 1
sleep 2

# Add an item, give it both folders, make it daily.
xdotool mousemove --window "$window" 305 426 click 1
sleep 1
# A plain click only selects the new row: no menu, no folder dialog.
xdotool mousemove --window "$window" 508 157 click 1
sleep 1.5
check "a plain click opens no folder dialog" sh -c "! xdotool search --onlyvisible --name 'Find Directory' >/dev/null 2>&1"
screenshot "$out/leave-selected-row.png"
xdotool key Escape
sleep 0.5
choose_folder 508 /home/ovadmin/Fotos
choose_folder 775 /home/ovadmin/Backups
# The frequency menu: from "Manually" up past its separator to "Daily".
double_click 334 157
sleep 1.5
xdotool key Up Up Up Return
sleep 1
xdotool mousemove --window "$window" 600 300
screenshot "$out/leave-before.png"
check "nothing is saved before leaving" sh -c "! grep -q Fotos '$archive' 2>/dev/null"

# Another module from the sidebar ("Applications"): the module reports the
# edit it has not applied, so System Settings asks first; Apply saves, and
# System Settings destroys Orvane.
xdotool mousemove --window "$window" 77 126 click 1
ask=$(timeout 10 xdotool search --sync --onlyvisible --name 'Apply Settings' | head -1)
check "System Settings asks to apply the changes" test -n "$ask"
screenshot "$out/leave-asks.png"
xdotool key --window "$ask" alt+a
for _ in $(seq 40); do left_orvane && break; sleep 0.25; done
check "System Settings shows the other module" left_orvane
sleep 1
screenshot "$out/leave-other-module.png"
applied() { grep -q Fotos "$archive" 2>/dev/null && grep -q "$support/.daily/orvane_daily.rb" /etc/crontab; }
for _ in $(seq 40); do applied && break; sleep 0.25; done
check "leaving saved the item list in place" grep -q Fotos "$archive"
check "leaving installed the daily script" test -f "$support/.daily/orvane_daily.rb"
check "leaving put the daily line in the crontab" grep -q "$support/.daily/orvane_daily.rb" /etc/crontab

# Back: the item is there, as saved.
printf '%s\n' "07/04/26" >"$support/.daily/.lastbackup"
for i in $(seq 300); do echo "line $i: copied Fotos/picture-$i.jpg to Backups, a line long enough to wrap in the log window when it is not too wide"; done >/var/log/orvane_daily.log
echo "newest line: the daily backup is complete" >>/var/log/orvane_daily.log
xdotool mousemove --window "$window" 61 252 click 1
check "System Settings shows Orvane again" wait_for_title "$window" '^Orvane' 20
sleep 3
screenshot "$out/leave-back.png"
new_item() { "$(dirname "$0")/../items.py" "$archive" | tail -n +2 | cut -d'|' -f1-3; } # after the default item
check "the list holds the default item and the new one, daily" same "$(new_item)" "0|/home/ovadmin/Fotos|/home/ovadmin/Backups"

# The daily status button: the log opens, at its newest line.
xdotool mousemove --window "$window" 485 489 click 1
log=$(timeout 10 xdotool search --sync --onlyvisible --name 'Orvane Backup Log' | head -1)
check "the daily log opens" test -n "$log"
sleep 1
screenshot "$out/leave-log-at-end.png"
xdotool windowfocus --sync "$log"
xdotool key Escape
for _ in $(seq 25); do xdotool search --onlyvisible --name 'Orvane Backup Log' >/dev/null 2>&1 || break; sleep 0.2; done
check "Escape closes the log" sh -c "! xdotool search --onlyvisible --name 'Orvane Backup Log' >/dev/null 2>&1"

# The options: "wait until away" ticked with the keyboard and OK (the
# tabs' pictures are dev/make-help-screenshots').
xdotool mousemove --window "$window" 768 426 click 1
dialog=$(timeout 10 xdotool search --sync --onlyvisible --name 'Orvane Options' | head -1)
check "the options dialog opens" test -n "$dialog"
sleep 1
xdotool windowfocus --sync "$dialog"
xdotool key Tab space
sleep 0.3
xdotool key Return
sleep 1.5
check "OK closes the options" sh -c "! xdotool search --onlyvisible --name 'Orvane Options' >/dev/null 2>&1"
domain=/home/ovadmin/.config/org.orvane.Orvane.plist
check "the stored settings hold the change" sh -c "grep -A1 '<key>WaitUntilAway</key>' '$domain' | grep -q '<true/>'"

# Weekly now (the frequency menu: from "Daily" one down), then quit.
double_click 334 157
sleep 1.5
xdotool key Down Return
sleep 1
xdotool key --window "$window" ctrl+q
for _ in $(seq 100); do pgrep -x systemsettings >/dev/null || break; sleep 0.2; done
check "quitting applied the change" same "$(new_item)" "1|/home/ovadmin/Fotos|/home/ovadmin/Backups"

# System Settings alone, Orvane found through the sidebar's search.
user systemsettings >>/tmp/systemsettings.log 2>&1 &
window=$(timeout 30 xdotool search --sync --name 'System Settings' | head -1)
check "System Settings opens a window" test -n "$window"
sleep 3
xdotool mousemove --window "$window" 127 23 click 1
sleep 0.5
xdotool type --delay 40 Orvane
sleep 1.5
screenshot "$out/systemsettings-search.png"
for _ in 1 2 3; do
    xdotool mousemove --window "$window" 61 96 click 1
    wait_for_title "$window" '^Orvane' 10 && break
done
check "the search finds Orvane and shows it" wait_for_title "$window" '^Orvane' 1
sleep 2
screenshot "$out/leave-reopened.png"
check "no installation problem is reported" sh -c "! xdotool search --name 'not installed correctly' >/dev/null 2>&1"
xdotool key --window "$window" ctrl+q
finish

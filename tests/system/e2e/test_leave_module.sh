#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# A user's way through Orvane in System Settings under Xvfb, as an
# administrator who is not root, with polkit granting the unlock: an item
# added, leaving applies it, quitting applies the next edit, the search finds
# Orvane again. Screenshots go to $1.
set -u
. "$(dirname "$0")/desktop.sh"
admin_desktop "$@"
polkit_rule grant || exit 1
as_admin mkdir -p /home/ovadmin/Fotos /home/ovadmin/Backups
double_click() { xdotool mousemove --window "$window" "$1" "$2" click --repeat 2 --delay 80 1; } # double_click X Y
choose_folder() { # choose_folder X PATH: the new row's menu at column X, "Choose Folder…", the dialog
    double_click "$1" 157; sleep 1.5
    xdotool key End Return
    shown 'Find Directory' >/dev/null; sleep 0.5
    xdotool type --delay 20 "$2"; xdotool key Return; sleep 1.5
}
new_item() { "$(dirname "$0")/../items.py" "$archive" | tail -n +2 | cut -d'|' -f1-3; } # after the default item

check "System Settings shows Orvane" open_settings '^Orvane' kcm_orvane || { finish; exit 1; }
sleep 3
check "nothing is scheduled yet" sh -c "! grep -q orvane_daily /etc/crontab"
click 284 601; sleep 2 # the lock, which polkit's rule opens
click 305 426; sleep 1 # a new item
# A plain click only selects the new row: no menu, no folder dialog.
click 508 157; sleep 1.5
check "a plain click opens no folder dialog" not_shown 'Find Directory'
screenshot "$out/leave-selected-row.png"
xdotool key Escape; sleep 0.5
choose_folder 508 /home/ovadmin/Fotos
choose_folder 775 /home/ovadmin/Backups
# The frequency menu: from "Manually" up past its separator to "Daily".
double_click 334 157; sleep 1.5
xdotool key Up Up Up Return; sleep 1
xdotool mousemove --window "$window" 600 300
screenshot "$out/leave-before.png"
check "nothing is saved before leaving" sh -c "! grep -q Fotos '$archive' 2>/dev/null"

# The module reports the edit it has not applied, so System Settings asks
# first; Apply saves, and System Settings destroys Orvane.
check "System Settings asks to apply the changes" leave_orvane
screenshot "$out/leave-asks.png"
xdotool key --window "$ask" alt+a
check "System Settings shows the other module" wait_for 100 left_orvane
sleep 1
screenshot "$out/leave-other-module.png"
check "leaving saved the item list in place" wait_for 100 grep -qs Fotos "$archive"
check "leaving put the daily line in the crontab" wait_for 100 grep -q "$support/.daily/orvane_daily.rb" /etc/crontab
check "leaving installed the daily script" test -f "$support/.daily/orvane_daily.rb"

printf '%s\n' "07/04/26" >"$support/.daily/.lastbackup"
for i in $(seq 300); do echo "line $i: copied Fotos/picture-$i.jpg to Backups, a line long enough to wrap in the log window when it is not too wide"; done >/var/log/orvane_daily.log
echo "newest line: the daily backup is complete" >>/var/log/orvane_daily.log
check "System Settings shows Orvane again" back_to_orvane
sleep 3
screenshot "$out/leave-back.png"
check "the list holds the default item and the new one, daily" same "$(new_item)" "0|/home/ovadmin/Fotos|/home/ovadmin/Backups"

# The daily status button: the log opens, at its newest line.
click 485 489
log=$(shown 'Orvane Backup Log')
check "the daily log opens" test -n "$log"
sleep 1
screenshot "$out/leave-log-at-end.png"
xdotool windowfocus --sync "$log"; xdotool key Escape
check "Escape closes the log" wait_for 50 not_shown 'Orvane Backup Log'

# The options: "wait until away" ticked with the keyboard and OK (the
# tabs' pictures are dev/make-help-screenshots').
click 768 426
dialog=$(shown 'Orvane Options')
check "the options dialog opens" test -n "$dialog"
sleep 1
xdotool windowfocus --sync "$dialog"; xdotool key Tab space; sleep 0.3; xdotool key Return; sleep 1.5
check "OK closes the options" wait_for 50 not_shown 'Orvane Options'
check "the stored settings hold the change" wait_for 50 \
    sh -c "grep -A1 '<key>WaitUntilAway</key>' /home/ovadmin/.config/org.orvane.Orvane.plist | grep -q '<true/>'"

# Weekly now (the frequency menu: from "Daily" one down), then quit.
double_click 334 157; sleep 1.5
xdotool key Down Return; sleep 1
xdotool key --window "$window" ctrl+q
wait_for 200 settings_gone
check "quitting applied the change" same "$(new_item)" "1|/home/ovadmin/Fotos|/home/ovadmin/Backups"

# System Settings alone, Orvane found through the sidebar's search.
check "System Settings opens a window" open_settings 'System Settings'
sleep 3
# A busy machine may take the typing before the search field has the focus: the whole search again.
for _ in 1 2 3; do
    click 127 23; sleep 0.5; xdotool key ctrl+a; xdotool type --delay 40 Orvane; sleep 1.5
    screenshot "$out/systemsettings-search.png"
    click 61 96; wait_for_title "$window" '^Orvane' 10 && break
done
check "the search finds Orvane and shows it" wait_for_title "$window" '^Orvane' 1
sleep 2
screenshot "$out/leave-reopened.png"
check "no installation problem is reported" not_shown 'not installed correctly'
xdotool key --window "$window" ctrl+q
finish

#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# test_restore.sh TEST_BINARY SCREENSHOTS: restoring from real backups. Four
# daily runs, then the item moves to Weekly: before its first weekly run and
# after it, every version is listed with what is true of it, by the command
# line and by the window's code path (TEST_BINARY, as the user); then the
# installed service menu is valid and opens the window at the path it is given.
set -euo pipefail
[ -n "${OV_IN_SANDBOX:-}" ] || { echo "run me in tests/sandbox/ov-sandbox" >&2; exit 2; }
here=$(dirname "$(realpath "$0")")
binary=$1 shots=$2 user=ovrestore
src=/home/$user/Documents dest="/Volumes/Backup Disk/Documents"
mkdir -p "$shots"
useradd --create-home --user-group "$user"
"$here/make-backups.sh" "$user" daily
# The item list as the pane installs it, written by another keyed-archive
# writer than ours: now weekly, leaving out *.tmp and the user's cache.
"$here/../items.py" "/Library/Application Support/Orvane/BackupItems.plist" "1|$src|$dest|Backup Disk: Documents|*.tmp|$src/.cache"

as_user() { setpriv --reuid="$user" --regid="$user" --init-groups env HOME="/home/$user" LANG=C.UTF-8 "$@"; }
restore_cli() { # restore_cli EXPECTED-STATUS ARGUMENTS...: orvane-restore as the user; its output in $out, its reasons in $err
    local status=0
    out=$(as_user orvane-restore "${@:2}" 2>/tmp/restore-err) || status=$?
    err=$(cat /tmp/restore-err)
    [ "$status" = "$1" ] || { echo "orvane-restore ${*:2} exited $status, not $1:" >&2; printf '%s\n%s\n' "$out" "$err" >&2; exit 1; }
}

echo "== moved to Weekly, before its first weekly run"
# The copy, then the daily runs' Safety Net: the second version deleted by
# the run of 01/07, the first replaced by the run of 01/06.
restore_cli 0 --list "$src/report.txt"
expected=$(printf '%s\t%s\t%s\t%s\t%s\t%s\n' \
    2026-01-08T11:00:00 24 backup present "$src/report.txt" "$dest/report.txt" \
    2026-01-06T10:00:00 32 safety-net deleted "$src/report.txt" "$src/Safety Net Archives/2026-01-07 20.00.00 Daily$dest/report.txt" \
    2026-01-05T09:00:00 22 safety-net present "$src/report.txt" "$src/Safety Net Archives/2026-01-06 20.00.00 Daily$dest/report.txt")
[ "$(printf '%s\n' "$out" | cut -f 1-6)" = "$expected" ] || { printf 'listed:\n%s\nnot:\n%s\n' "$out" "$expected" >&2; exit 1; }
# Before the weekly run the window says the copy is from an earlier run.
env QT_QPA_PLATFORM=offscreen OV_SCREENSHOTS=/tmp/restore-shots "$binary" beforeTheWeeklyRun

"$here/make-backups.sh" "$user" weekly

echo "== the command line after the weekly run"
# The tree as it was on a date, and as it was at a moment of that day.
restore_cli 0 --list --at 2026-01-06 "$src"
printf '%s\n' "$out" | cut -f 1,3,4,5 | grep -qx "$(printf '2026-01-06T10:00:00\tsafety-net\tpresent\t%s' "$src/report.txt")"
printf '%s\n' "$out" | cut -f 4,5 | grep -qx "$(printf 'deleted\t%s' "$src/Projekt/Daten/zahlen.csv")" && { echo "Projekt was gone on 01/06" >&2; exit 1; }
restore_cli 0 --list --at "2026-01-05 21:00" "$src/Projekt" && printf '%s\n' "$out" | cut -f 4,5 | grep -qx "$(printf 'deleted\t%s' "$src/Projekt/Daten/zahlen.csv")"
# Restored elsewhere, to the nanosecond; beside what is there; replacing.
install -d -o "$user" /tmp/elsewhere
restore_cli 0 --restore --at 2026-01-05T23:00:00 --to /tmp/elsewhere "$src/precise.txt" "$src/report.txt"
[ "$out" = "$(printf '/tmp/elsewhere/precise.txt\n/tmp/elsewhere/report.txt')" ] || { echo "restored: $out" >&2; exit 1; }
[ "$(stat -c %y /tmp/elsewhere/precise.txt)" = "$(stat -c %y /tmp/restore-fixture/2026-01-05/precise.txt)" ]
stat -c %y /tmp/elsewhere/precise.txt | grep -q '\.489320685 '
cmp /tmp/elsewhere/report.txt /tmp/restore-fixture/2026-01-05/report.txt
restore_cli 0 --restore "$src/precise.txt" && [ "$out" = "" ] # the source already holds its newest version
restore_cli 0 --restore --at 2026-01-05 "$src/precise.txt" && [ "$out" = "$src/precise (2026-01-06 20.00.00).txt" ]
restore_cli 0 --restore --replace --at 2026-01-05 "$src/precise.txt" && cmp "$src/precise.txt" /tmp/restore-fixture/2026-01-05/precise.txt
# Nothing there, and what is no backup at all, each with its status and reason.
restore_cli 1 --list --at 2026-01-01 "$src/report.txt" && grep -q "was not in the backup on that date" <<< "$err"
as_user touch "$src/later.tmp"
restore_cli 1 --list "$src/later.tmp" && grep -q "is left out of the backups" <<< "$err"
restore_cli 2 --list /etc/hostname && grep -q "is in no backup item's source folder" <<< "$err"
restore_cli 2 --list --at "next week" "$src" && grep -q "is not a date" <<< "$err"
restore_cli 2 --restore --to /nowhere "$src/report.txt"

echo "== restore as the user, by the window's code path"
# The test drops to the user, who may write only its own folder.
install -d -o "$user" /tmp/restore-shots
env QT_QPA_PLATFORM=offscreen OV_SCREENSHOTS=/tmp/restore-shots "$binary" \
    everyVersionComesBack metadataComesBack safetyNetIsNoPartOfTheSource backInPlace window clearAnswers
cp /tmp/restore-shots/*.png "$shots/"

echo "== the service menu"
menu=/usr/share/kio/servicemenus/orvane-restore.desktop
desktop-file-validate "$menu"
grep -qx 'Name=Restore an earlier version…' "$menu"
command=$(sed -n 's/^Exec=//p' "$menu" | tail -1)
folder="/home/$user/Documents/Ünïcødé"
# The file manager runs the command with %f as the file's path, as the user.
Xvfb :73 -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$! app=
trap 'kill $xvfb $app 2>/dev/null || true' EXIT
sleep 1
read -r -a argv <<< "${command%% %f}"
setpriv --reuid="$user" --regid="$user" --init-groups env HOME="/home/$user" DISPLAY=:73 "${argv[@]}" "$folder" &
app=$!
for _ in $(seq 50); do
    window=$(DISPLAY=:73 xdotool search --name '^Restore: Documents$' 2>/dev/null | head -1 || true)
    [ -n "$window" ] && break; sleep 0.2
done
[ -n "$window" ] || { echo "orvane-restore showed no window" >&2; exit 1; }
sleep 1
DISPLAY=:73 import -window "$window" "$shots/orvane-restore-from-menu.png"
# Sized to its content (the test binary checks the columns), within the screen.
width=$(DISPLAY=:73 xdotool getwindowgeometry "$window" | sed -n 's/.*Geometry: \([0-9]*\)x.*/\1/p')
[ "$width" -ge 640 ] && [ "$width" -le 1280 ] || { echo "the window is $width pixels wide" >&2; exit 1; }
ps -o user= -p "$app" | grep -qx "$user"
echo "the window opened as $user at $folder"

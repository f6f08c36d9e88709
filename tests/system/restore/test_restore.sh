#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# test_restore.sh TEST_BINARY SCREENSHOTS: restoring from real backups in the
# sandbox, then the file manager's way in: the installed service menu is
# valid and its command opens the window at the path it is given.
set -euo pipefail
[ -n "${OV_IN_SANDBOX:-}" ] || { echo "run me in tests/sandbox/ov-sandbox" >&2; exit 2; }
here=$(dirname "$(realpath "$0")")
binary=$1 shots=$2
user=ovrestore
mkdir -p "$shots"

useradd --create-home --user-group "$user"
"$here/make-backups.sh" "$user"

echo "== restore as the user"
# The test drops to the user, who may write only its own folder.
install -d -o "$user" /tmp/restore-shots
env QT_QPA_PLATFORM=offscreen OV_SCREENSHOTS=/tmp/restore-shots "$binary"
cp /tmp/restore-shots/*.png "$shots/"

echo "== the service menu"
menu=/usr/share/kio/servicemenus/orvane-restore.desktop
desktop-file-validate "$menu"
grep -qx 'Name=Restore an earlier version…' "$menu"
command=$(sed -n 's/^Exec=//p' "$menu" | tail -1)
file="/home/$user/Documents/Ünïcødé/naïve café.md"
# The file manager runs the command with %f as the file's path, as the user.
Xvfb :73 -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb $app 2>/dev/null || true' EXIT
app=
sleep 1
read -r -a argv <<< "${command%% %f}"
setpriv --reuid="$user" --regid="$user" --init-groups env HOME="/home/$user" DISPLAY=:73 "${argv[@]}" "$file" &
app=$!
for _ in $(seq 50); do
    window=$(DISPLAY=:73 xdotool search --name '^Restore: Documents$' 2>/dev/null | head -1 || true)
    [ -n "$window" ] && break
    sleep 0.2
done
[ -n "$window" ] || { echo "orvane-restore showed no window" >&2; exit 1; }
sleep 1
DISPLAY=:73 import -window "$window" "$shots/orvane-restore-from-menu.png"
ps -o user= -p "$app" | grep -qx "$user"
echo "the window opened as $user at $file"

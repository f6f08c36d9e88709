#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# Remakes the pictures of the manual from the real module in System Settings
# under Xvfb, after two real backups (a daily one that completes, a weekly one
# whose disk is not connected). Run it in the sandbox against an installed
# build, from the source tree (the scripts filled by the build's
# ov_fill_script, or OV_FILL_SCRIPT's):
#   tests/sandbox/ov-sandbox --install build --keep resources/help -- \
#       tests/system/e2e/make_help_screenshots.sh resources/help/help-images
set -eu
out=$(realpath -m "${1:?output folder}")
source_dir=$(realpath "$(dirname "$0")/../../..")
fill=${OV_FILL_SCRIPT:-$source_dir/build/tests/system/ov_fill_script}
mkdir -p "$out"
[ "${OV_IN_SANDBOX:-}" = 1 ] || { echo "run me in tests/sandbox/ov-sandbox" >&2; exit 2; }
# X's abstract sockets are shared by every sandbox on the machine: a network
# namespace of our own keeps another test's Xvfb on the same display away.
if [ -z "${OV_OWN_NETWORK:-}" ]; then
    exec env OV_OWN_NETWORK=1 unshare --net "$0" "$@"
fi
ip link set lo up

for state in complete caution partial; do
    rsvg-convert -w 24 -h 24 -f png -o "$out/status-$state.png" "$source_dir/resources/images/$state.svg"
done

# A home, a backup disk with one folder per item, and the item list.
support="/Library/Application Support/Orvane"
mkdir -p /root/Documents/Letters /root/Pictures /root/Music /Volumes/Backup/Documents /Volumes/Backup/Music \
    "$support/.daily" "$support/.weekly" "$support/.monthly"
echo "Dear landlord," >/root/Documents/Letters/rent.odt
echo "Shopping: bread, tea" >/root/Documents/notes.txt
"$(dirname "$(realpath "$0")")/../items.py" "$support/BackupItems.plist" \
    "0|/root/Documents|/Volumes/Backup/Documents|Backup: Documents" \
    "1|/root/Pictures|/Volumes/Photos/Pictures|Photos: Pictures" \
    "4|/root/Music|/Volumes/Backup/Music|Backup: Music"

# backup FREQUENCY SOURCE DESTINATION: one real run of the installed
# template as the pane fills it, with the Safety Net on.
backup() {
    local script=/tmp/orvane_${1,,}.rb
    "$fill" --frequency "$1" --safetynet "/root/Documents/Safety Net Archives" 10 Everything "$2" "$3" >"$script"
    chmod 700 "$script"
    "$script" || true
}
mkdir -p "/root/Documents/Safety Net Archives"
backup Daily /root/Documents /Volumes/Backup/Documents
sleep 1
echo "Dear landlord, the rent for April" >/root/Documents/Letters/rent.odt
backup Daily /root/Documents /Volumes/Backup/Documents
backup Weekly /root/Pictures /Volumes/Photos/Pictures

. "$source_dir/tests/system/e2e/desktop.sh"
. "$source_dir/tests/system/e2e/polkit.sh"
shot() { # shot WINDOW FILE (an empty WINDOW would make import wait for a click)
    [ -n "$1" ] || { echo "no window for $2" >&2; exit 1; }
    import-im6.q16 -window "$1" "$out/$2"
}

systemsettings kcm_orvane >/tmp/systemsettings.log 2>&1 &
window=$(timeout 60 xdotool search --sync --name '^Orvane' | head -1)
# Until System Settings has drawn the module (a black window is not).
for _ in $(seq 60); do
    import-im6.q16 -window "$window" /tmp/probe.png 2>/dev/null &&
        [ "$(convert-im6.q16 /tmp/probe.png -format '%[fx:mean>0.5]' info:)" = 1 ] && break
    sleep 1
done
sleep 3
# Open the lock (polkitd grants root), then the whole window.
xdotool mousemove --window "$window" 284 601 click 1
sleep 2
xdotool mousemove --window "$window" 5 5
sleep 0.5
shot "$window" pane.png
convert-im6.q16 "$out/pane.png" -crop 646x134+264+444 +repage "$out/status.png"
# Scaled here, smoothly, to fit the help sheet.
convert-im6.q16 "$out/pane.png" -resize 640x "$out/pane.png"

# The status box, and the daily log behind its date.
sheet=
for _ in 1 2 3 4 5 6; do
    xdotool mousemove --window "$window" 490 489 click 1
    sheet=$(timeout 5 xdotool search --sync --onlyvisible --name 'Orvane Backup Log' | head -1) && [ -n "$sheet" ] && break
    sleep 2
done
sleep 1
shot "$sheet" log.png
xdotool key --window "$sheet" Escape
sleep 1

# The help, from the Help button at the top right.
xdotool mousemove --window "$window" 868 69 click 1
help=$(timeout 10 xdotool search --sync --onlyvisible --name 'Orvane Help' | head -1)
sleep 1
shot "$help" help-sheet.png
xdotool mousemove --window "$help" 667 536 click 1
sleep 1

# The options, tab by tab.
xdotool mousemove --window "$window" 768 426 click 1
dialog=$(timeout 10 xdotool search --sync --onlyvisible --name 'Orvane Options' | head -1)
sleep 1
# Each tab by its header (x within the dialog); the dialog fits itself to it.
for tab in general:48 safetynet:135 remote:220 schedules:303 notices:386 about:455; do
    xdotool mousemove --window "$dialog" "${tab#*:}" 26 click 1
    sleep 1
    xdotool mousemove --window "$dialog" 5 5
    sleep 0.3
    shot "$dialog" "options-${tab%%:*}.png"
done
xdotool key --window "$dialog" Escape
sleep 0.5
convert-im6.q16 "$out/help-sheet.png" -resize 480x "$out/help-sheet.png"
echo "pictures in $out"

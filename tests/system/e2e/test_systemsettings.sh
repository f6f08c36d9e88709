#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Opens System Settings under Xvfb, finds Orvane through the sidebar's
# search, clicks its entry and checks that the module is shown and did its
# start-up. Screenshots stay in the folder given as $1.
set -u
out=${1:?output folder}
mkdir -p "$out"
. "$(dirname "$0")/desktop.sh"

systemsettings >/tmp/systemsettings.log 2>&1 &
window=$(timeout 30 xdotool search --sync --name 'System Settings' | head -1)
check "System Settings opens a window" test -n "$window"
sleep 3
screenshot "$out/systemsettings-start.png"

# Filtered by the search field, the sidebar holds a category heading and,
# under it, the Orvane entry.
xdotool mousemove --window "$window" 127 23 click 1
sleep 0.5
xdotool type --delay 40 Orvane
sleep 1.5
screenshot "$out/systemsettings-search.png"
for _ in 1 2 3; do
    xdotool mousemove --window "$window" 61 96 click 1
    wait_for_title "$window" '^Orvane' 10 && break
done
check "clicking the Orvane entry shows the module" wait_for_title "$window" '^Orvane' 1
sleep 2
screenshot "$out/systemsettings-orvane.png"

check "the module prepared its support folders" test -d "/Library/Application Support/Orvane/.monthly"
check "the support folder has mode 0775" test "$(stat -c %a '/Library/Application Support/Orvane')" = 775
check "no installation problem is reported" sh -c "! xdotool search --name 'not installed correctly' >/dev/null 2>&1"

echo "screenshots: $out"
finish

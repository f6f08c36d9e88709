#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# make-backups.sh USER daily|weekly: backups of ~USER/Documents onto
# "/Volumes/Backup Disk/Documents" by the installed backup script (filled by
# OV_FILL_SCRIPT, run as cron runs it under faketime at each run's date), the
# Safety Net on ("Everything") in its default folder inside Documents, files
# changed, deleted and re-created between the runs: "daily" makes four daily
# runs, "weekly" then one weekly run of the same folders (the item moved).
# What each run saw goes to /tmp/restore-fixture/<day>. Sandbox only.
set -euo pipefail
user=$1 phase=$2
src=/home/$user/Documents dest="/Volumes/Backup Disk/Documents" fixture=/tmp/restore-fixture script=/tmp/restore-$phase.rb
sn="$src/Safety Net Archives"
mkdir -p "$src" "$dest" "$sn" "$fixture" && chown "$user:" "$src" "$sn"
frequency=Daily; [ "$phase" = weekly ] && frequency=Weekly
"${OV_FILL_SCRIPT:?}" --frequency "$frequency" --mirror --user "$user" --safetynet "$sn" 30 Everything "$src" "$dest" > "$script"
chmod 700 "$script"

run() { # run STAMP: one run at that moment ("2026-01-06 20.00.00")
    local day=${1%% *}
    # Only the script's own clock, stopped at the run's moment (a busy machine
    # must not let the archive's second slip): stat and rsync see real times.
    if ! env -i LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin FAKETIME_DONT_FAKE_MONOTONIC=1 NO_FAKE_STAT=1 FAKETIME_ONLY_CMDS=ruby \
        faketime -f "${1//./:}" "$script"; then
        echo "the backup at $1 failed:" >&2
        cat /var/log/.orvane_"$phase".err /var/log/orvane_"$phase".log >&2 || true
        exit 1
    fi
    cp -a "$src" "$fixture/$day" && rm -rf "$fixture/$day/Safety Net Archives"
}
put() { # put PATH TIME CONTENT: the user's own file, with its time
    install -d -o "$user" -g "$user" "$(dirname "$1")"
    printf '%s' "$3" > "$1" && chown "$user:" "$1" && touch -d "$2" "$1"
}

if [ "$phase" = weekly ]; then
    put "$src/report.txt" "2026-01-09 10:00:00.250000001" "Bericht, wöchentlich"
    run "2026-01-09 20.00.00"
    exit 0
fi

put "$src/report.txt" "2026-01-05 09:00" "Bericht, erste Fassung"
# A time within the second, and a Dolphin tag: both come back.
put "$src/precise.txt" "2026-01-05 09:00:00.489320685" "genau"
put "$src/tagged.txt" "2026-01-05 09:05" "markiert"
setpriv --reuid="$user" --regid="$user" --init-groups setfattr -n user.xdg.tags -v "Wichtig,Arbeit" "$src/tagged.txt"
# What the item leaves out (the window says so).
put "$src/notes.tmp" "2026-01-05 09:06" "scratch"
put "$src/Ünïcødé/naïve café.md" "2026-01-05 09:10" "crème brûlée"
put "$src/Ünïcødé/löschen.txt" "2026-01-05 09:20" "wird gelöscht"
put "$src/Projekt/plan.txt" "2026-01-05 09:30" "plan"
put "$src/Projekt/Daten/zahlen.csv" "2026-01-05 09:40" "1,2,3"
head -c 3000000 /dev/urandom > "$src/Projekt/Daten/gross.bin" && chown "$user:" "$src/Projekt/Daten/gross.bin" && touch -d "2026-01-05 09:50" "$src/Projekt/Daten/gross.bin"
# Enough other files that no run deletes a quarter of the backup (such a
# run keeps the files until the user answers).
for i in $(seq 16); do put "$src/Archiv/alt-$i.txt" "2026-01-04 12:00" "alt $i"; done
chmod 0640 "$src/Projekt/plan.txt" && chmod 0750 "$src/Projekt/Daten"
run "2026-01-05 20.00.00"

put "$src/report.txt" "2026-01-06 10:00" "Bericht, zweite Fassung, länger"
put "$src/precise.txt" "2026-01-06 10:00:00.000000999" "genauer"
rm -rf "$src/Projekt"
run "2026-01-06 20.00.00"

rm "$src/report.txt" "$src/Ünïcødé/löschen.txt"
run "2026-01-07 20.00.00"

put "$src/report.txt" "2026-01-08 11:00" "Bericht, neu geschrieben"
run "2026-01-08 20.00.00"

# A destination the user may not read.
install -d -m 0700 -o root -g root "/Volumes/Backup Disk/Private"

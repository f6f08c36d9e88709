#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# make-backups.sh USER: four daily backups of ~USER/Documents onto
# "/Volumes/Backup Disk/Documents" at faked dates, laid out as the backup
# script lays them out (rsync as psync runs it, the Safety Net through
# --backup-dir, the daily last-backup marker), with files changed, deleted
# and re-created between the runs. Pristine copies of what each run saw go
# to /tmp/restore-fixture/<run>. Sandbox only: it writes /Volumes, /Library
# and /home.
set -euo pipefail
user=$1
home=/home/$user
src=$home/Documents
dest="/Volumes/Backup Disk/Documents"
sn="$home/Safety Net Archives"
support="/Library/Application Support/Orvane"
fixture=/tmp/restore-fixture

mkdir -p "$src" "$dest" "$sn" "$support/.daily" "$fixture"
chown "$user:" "$src" "$sn"

# run STAMP: one daily run at that moment ("2026-01-06 20.00.00").
run() {
    local stamp=$1 archive="$sn/$1 Daily"
    rsync --archive --hard-links --one-file-system --delete \
        --backup --backup-dir="$archive$dest" "$src/" "$dest/"
    [ -d "$archive" ] && chown -R "$user:" "$archive"
    local day=${stamp%% *}
    date -d "$day" +%m/%d/%y > "$support/.daily/.lastbackup"
    cp -a "$src" "$fixture/$day"
}

# as USER: the user's own files, with their times.
put() { # put PATH TIME CONTENT
    install -d -o "$user" -g "$user" "$(dirname "$1")"
    printf '%s' "$3" > "$1"
    chown "$user:" "$1"
    touch -d "$2" "$1"
}

put "$src/report.txt" "2026-01-05 09:00" "Bericht, erste Fassung"
put "$src/Ünïcødé/naïve café.md" "2026-01-05 09:10" "crème brûlée"
put "$src/Ünïcødé/löschen.txt" "2026-01-05 09:20" "wird gelöscht"
put "$src/Projekt/plan.txt" "2026-01-05 09:30" "plan"
put "$src/Projekt/Daten/zahlen.csv" "2026-01-05 09:40" "1,2,3"
head -c 3000000 /dev/urandom > "$src/Projekt/Daten/gross.bin"
chown "$user:" "$src/Projekt/Daten/gross.bin"; touch -d "2026-01-05 09:50" "$src/Projekt/Daten/gross.bin"
chmod 0640 "$src/Projekt/plan.txt"
chmod 0750 "$src/Projekt/Daten"
run "2026-01-05 20.00.00"

put "$src/report.txt" "2026-01-06 10:00" "Bericht, zweite Fassung, länger"
rm -rf "$src/Projekt"
run "2026-01-06 20.00.00"

rm "$src/report.txt" "$src/Ünïcødé/löschen.txt"
run "2026-01-07 20.00.00"

put "$src/report.txt" "2026-01-08 11:00" "Bericht, neu geschrieben"
run "2026-01-08 20.00.00"

# A destination the user may not read.
install -d -m 0700 -o root -g root "/Volumes/Backup Disk/Private"

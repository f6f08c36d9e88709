#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Dolphin's "Exclude from Backups" and "Include in Backups" with a real
# polkitd: the service menu is valid and runs orvane-exclude; as an
# administrator whom polkit grants the unlock, the installed item list and the
# scripts change (archive_table and install_scripts, its children, check
# polkit themselves); refused, nothing changes; a path in no item is said so.
set -euo pipefail
[ -n "${OV_IN_SANDBOX:-}" ] || { echo "run me in tests/sandbox/ov-sandbox" >&2; exit 2; }
here=$(dirname "$(realpath "$0")")
. "$here/../e2e/polkit.sh"
support="/Library/Application Support/Orvane"
archive="$support/BackupItems.plist" script="$support/.daily/orvane_daily.rb"
src=/home/ovadmin/Documents dest=/Volumes/Backup/Documents
mkdir -p "$src/Videos" "$src/Fotos" "$dest" && chown -R ovadmin: "$src"

echo "== the service menu"
menu=/usr/share/kio/servicemenus/orvane-exclude.desktop
desktop-file-validate "$menu"
for line in 'Name=Exclude from Backups' 'Name=Include in Backups' 'Exec=orvane-exclude --exclude %F' 'Exec=orvane-exclude --include %F'; do
    grep -qx "$line" "$menu"
done
# One daily item of the administrator's Documents, installed as the module installs it.
"$here/../items.py" "$archive" "0|$src|$dest|Backup: Documents"
exclusions() { "$here/../items.py" "$archive" | cut -d'|' -f5- | tr '|' '\n'; } # the item's, one "entry [removed]" a line
exclude() { # exclude EXPECTED-STATUS MESSAGE ARGUMENTS...: orvane-exclude as the administrator, exiting so, saying MESSAGE
    local status=0
    as_admin env QT_QPA_PLATFORM=offscreen orvane-exclude --no-dialogs "${@:3}" 2>/tmp/exclude-err || status=$?
    [ "$status" = "$1" ] && { [ -z "$2" ] || grep -q -- "$2" /tmp/exclude-err; } && return
    echo "orvane-exclude ${*:3} exited $status (expected $1${2:+, saying “$2”}):" >&2; cat /tmp/exclude-err >&2; exit 1
}

echo "== refused: nothing changes"
polkit_rule deny
before=$(md5sum "$archive")
exclude 2 "Nothing was changed: no administrator's password was given" --exclude --keep-in-backup "$src/Videos"
[ "$(md5sum "$archive")" = "$before" ]
[ ! -e "$script" ]

echo "== granted: the list and the scripts change"
polkit_rule grant
exclude 0 "is left out of the backups of $src from the next backup on" --exclude --keep-in-backup "$src/Videos"
[ "$(exclusions)" = "$src/Videos" ]
# install_scripts ran: the daily script is root's, with the exclusion when the template reads it.
[ "$(stat -c %U "$script")" = root ]
if grep -qx '#ov_exclusions' "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/backup_script.rb"; then
    grep -qx "exclusions = \[ \[ \"$src/Videos\" \] \]" "$script"
fi
# The list it replaced is kept beside it by archive_table (under a dated
# name: no helper installed the one written above).
ls "$support"/BackupItems.kept-*.plist >/dev/null
exclude 0 "left out of the backups of $src already" --exclude --remove-from-backup "$src/Fotos" "$src/Videos/2024"
[ "$(exclusions | tr '\n' ' ')" = "$src/Videos $src/Fotos removed " ]

echo "== include, and what cannot be done"
exclude 0 "" --include "$src/Videos"
[ "$(exclusions)" = "$src/Fotos removed" ]
exclude 1 "is in no backup item's source folder" --exclude --keep-in-backup /etc/hostname
exclude 1 "the exclusion “$src/Fotos” of its item covers it" --include "$src/Fotos/2025"
# No answer about the earlier copies, and no dialog to ask it in.
exclude 2 "" --exclude "$src/Musik"
echo "Exclude from Backups and Include in Backups work"

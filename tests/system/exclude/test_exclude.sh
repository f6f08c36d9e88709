#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# Dolphin's "Exclude from Backups" and "Include in Backups", end to end in
# the sandbox with a real polkitd: the service menu is valid and runs
# orvane-exclude; as an administrator whom polkit grants the unlock, the
# installed item list and the scripts change (archive_table and
# install_scripts, started by the program as its children, check polkit
# themselves); refused, nothing changes; a path in no item is said so.
set -euo pipefail
[ -n "${OV_IN_SANDBOX:-}" ] || { echo "run me in tests/sandbox/ov-sandbox" >&2; exit 2; }
. "$(dirname "$(realpath "$0")")/../e2e/polkit.sh"
support="/Library/Application Support/Orvane"
archive="$support/BackupItems.plist"
src=/home/ovadmin/Documents
dest=/Volumes/Backup/Documents
mkdir -p "$src/Videos" "$src/Fotos" "$dest"
chown -R ovadmin: "$src"

echo "== the service menu"
menu=/usr/share/kio/servicemenus/orvane-exclude.desktop
desktop-file-validate "$menu"
grep -qx 'Name=Exclude from Backups' "$menu"
grep -qx 'Name=Include in Backups' "$menu"
grep -qx 'Exec=orvane-exclude --exclude %F' "$menu"
grep -qx 'Exec=orvane-exclude --include %F' "$menu"

# One daily item of the administrator's Documents, installed as the module
# installs it.
"$(dirname "$(realpath "$0")")/../items.py" "$archive" "0|$src|$dest|Backup: Documents"

# exclusions: the installed item's exclusions, one "entry [removed]" a line.
exclusions() { "$(dirname "$(realpath "$0")")/../items.py" "$archive" | cut -d'|' -f5- | tr '|' '\n'; }
# run_as_admin EXPECTED-STATUS ARGUMENTS...: orvane-exclude as the administrator.
run_as_admin() {
    local expected=$1 status=0
    shift
    as_admin env QT_QPA_PLATFORM=offscreen orvane-exclude --no-dialogs "$@" 2>/tmp/exclude-err || status=$?
    if [ "$status" != "$expected" ]; then
        echo "orvane-exclude $* exited $status, not $expected:" >&2
        cat /tmp/exclude-err >&2
        exit 1
    fi
}
script="$support/.daily/orvane_daily.rb"

echo "== refused: nothing changes"
polkit_rule deny
before=$(md5sum "$archive")
run_as_admin 2 --exclude --keep-in-backup "$src/Videos"
grep -q "Nothing was changed: no administrator's password was given" /tmp/exclude-err
[ "$(md5sum "$archive")" = "$before" ]
[ ! -e "$script" ]

echo "== granted: the list and the scripts change"
polkit_rule grant
run_as_admin 0 --exclude --keep-in-backup "$src/Videos"
grep -q "is left out of the backups of $src from the next backup on" /tmp/exclude-err
[ "$(exclusions)" = "$src/Videos" ]
# install_scripts ran: the daily script is there, root's, with the exclusion
# when the template reads it.
[ "$(stat -c %U "$script")" = root ]
if grep -qx '#ov_exclusions' "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/backup_script.rb"; then
    grep -qx "exclusions = \[ \[ \"$src/Videos\" \] \]" "$script"
fi
# The list it replaced is kept beside it by archive_table (under a dated
# name: no helper installed the one written above).
ls "$support"/BackupItems.kept-*.plist >/dev/null
run_as_admin 0 --exclude --remove-from-backup "$src/Fotos" "$src/Videos/2024"
[ "$(exclusions | tr '\n' ' ')" = "$src/Videos $src/Fotos removed " ]
grep -q "left out of the backups of $src already" /tmp/exclude-err

echo "== include, and what cannot be done"
run_as_admin 0 --include "$src/Videos"
[ "$(exclusions)" = "$src/Fotos removed" ]
run_as_admin 1 --exclude --keep-in-backup /etc/hostname
grep -q "is in no backup item's source folder" /tmp/exclude-err
run_as_admin 1 --include "$src/Fotos/2025"
grep -q "the exclusion “$src/Fotos” of its item covers it" /tmp/exclude-err
# No answer about the earlier copies, and no dialog to ask it in.
run_as_admin 2 --exclude "$src/Musik"
echo "Exclude from Backups and Include in Backups work"

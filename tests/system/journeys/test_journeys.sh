#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# A week of use from a fresh install, with scripts built from the stored
# settings as the module builds them and run as cron runs them. For every
# destination (a local disk, a real smbd through root's rclone mount), Safety
# Net choice, mirror option and kind of run: a first run, then a rerun after
# changes; the copy, the archives, the status files and `orvane-restore
# --list` must each tell the truth. Then a disk that fills. (An item moved to
# Weekly: test_restore.)
set -u
here=$(dirname "$(realpath "$0")")
. "$here/../remote/remote-env.sh"
SUPPORT="/Library/Application Support/Orvane" U=$TEST_USER HOMEDIR=/home/$TEST_USER SCRIPT=/root/journey.rb
SRC=$HOMEDIR/Documents NET="$HOMEDIR/Documents/Safety Net Archives"
TODAY=$(date +%m/%d/%y) T1="2026-11-20 10:00:00" T2="2026-11-21 11:00:00"

start_session
places="local remote"
start_smbd && store_password "$SMB_PASSWORD" && "$AUTOMOUNT" --user "$U" "$SERVER" "$SMB_ACCOUNT" "$VOLUME" >/dev/null ||
    { places=local; echo "NOTE: the remote volume could not be brought up; local destinations only"; }
install -d -o "$U" -g "$U" "$SRC" # the desktop makes Documents; nothing makes the Safety Net folder

settings() { # settings KEY=VALUE...: the user's stored settings, the defaults but these, as the module saves them
    install -d -o "$U" -g "$U" "$HOMEDIR/.config"
    python3 - "$HOMEDIR/.config/org.orvane.Orvane.plist" "$@" <<'PY'
import plistlib, sys
values = {}
for pair in sys.argv[2:]:
    key, value = pair.split("=", 1)
    values[key] = {"true": True, "false": False}.get(value, int(value) if value.isdigit() else value)
open(sys.argv[1], "wb").write(plistlib.dumps(values))
PY
    chown -R "$U:" "$HOMEDIR/.config"
}
item() { "$here/../items.py" "$SUPPORT/BackupItems.plist" "$1|$SRC|$2|Documents"; } # item FREQUENCY_COLUMN DEST
put() { # put NAME TIME CONTENT: the user's file
    install -d -o "$U" -g "$U" "$(dirname "$SRC/$1")"
    printf '%s' "$3" > "$SRC/$1" && chown "$U:" "$SRC/$1" && touch -d "$2" "$SRC/$1"
}
first_tree() { # enough files that two deletions are no mass deletion
    find "$SRC" -mindepth 1 -delete
    put keep.txt "$T1" "kept"; put change.txt "$T1" "first version"; put gone.txt "$T1" "deleted later"
    put old/x.txt "$T1" "in a folder deleted later"
    for i in $(seq 12); do put "filler/f$i" "$T1" "$i"; done
}
changes() { put change.txt "$T2" "second, longer version"; put new.txt "$T2" "new"; rm -r "$SRC/gone.txt" "$SRC/old"; }
run() { # run [--manual] DEST: the script the module builds, run as cron runs it
    env HOME="$HOMEDIR" "${OV_FILL_SCRIPT:?}" --stored --user "$U" "${@:1:$#-1}" "$SRC" "${@: -1}" > "$SCRIPT" && chmod 700 "$SCRIPT" && cron_run "$SCRIPT"
}
list() { # list PATH: orvane-restore --list as the user: exit status, then time, size, kind, state of each version
    local out status
    out=$(as_user env LANG=C.UTF-8 orvane-restore --list "$SRC/$1" 2>/dev/null); status=$?
    echo "$status"; [ -z "$out" ] || cut -f 1-4 <<<"$out"
}
version() { printf '%sT%s\t%s\t%s\t%s\n' "${1% *}" "${1#* }" "${#2}" "$3" "$4"; } # version TIME CONTENT KIND STATE
copy_diff() { diff -r -x "Safety Net Archives" -x .psync-attributes "$SRC" "$1" 2>&1 | sed "s|^Only in $1|Only in DEST|"; }
kept() { [ ! -d "$NET" ] || (cd "$NET" && find . -type f -printf '%P\n' | sed 's|^[^/]*/||' | sort | while read -r f; do echo "$f=$(cat ./*/"$f")"; done); } # PATH IN AN ARCHIVE=CONTENT
says_complete() { same "$1 $(status_files)" "0 $TODAY"$'\n'"$kind $TODAY complete"; } # says_complete STATUS
status_files() { echo "$(cat "$SUPPORT/.daily/.lastbackup" 2>&1)"; cat "$SUPPORT/.daily/.lastrun" 2>&1; ls /var/log/.orvane_*.err 2>/dev/null; }
reset() { # reset DEST: a fresh destination, no status, no archives
    rm -rf "$1" && mkdir -p "$1"
    rm -f "$SUPPORT"/.{daily,weekly}/.{lastbackup,lastrun,archives,disks} /var/log/.orvane_*.err
}

for place in $places; do
    if [ "$place" = local ]; then dest=/Volumes/Backup/Docs; remote=(); else dest=/Volumes/$VOLUME/Docs
        remote=(RemoteServerAddress="$SERVER" RemoteUserName="$SMB_ACCOUNT" RemoteVolumeName="$VOLUME" DailyRemoteBackup=true ManuallyRemoteBackup=true); fi
    # Everything is the default: its rows keep the defaults but for mirror and remote.
    for net in Everything off Changed Deleted; do
        case $net in Everything) options=() ;; off) options=(SafetyNet=false) ;; Changed) options=(ArchiveItems=1) ;; Deleted) options=(ArchiveItems=2) ;; esac
        for mirror in false true; do
            for kind in scheduled manual; do
                row="$place, Safety Net $net, mirror $mirror, $kind"
                # A manual run differs from a scheduled one in its status line alone: local rows check it.
                [ "$place/$kind" = remote/manual ] && continue
                run_kind=(); column=0; [ "$kind" = manual ] && run_kind=(--manual) && column=4
                settings "${options[@]}" "${remote[@]}" DailyMirrorFolders=$mirror ManuallyMirrorFolders=$mirror
                item "$column" "$dest"
                reset "$dest"; rm -rf "$NET"; first_tree
                run "${run_kind[@]}" "$dest"; check "$row: the first run backs up, and says so" says_complete $?
                check "$row: ... the copy is the source" same "$(copy_diff "$dest")" ""
                if [ "$net" = off ]; then check "$row: ... no Safety Net folder was made" test ! -e "$NET"
                else check "$row: ... the Safety Net folder was made, the user's alone, holding nothing" same "$(stat -c '%U %a' "$NET")$(kept)" "$U 700"; fi
                changes
                run "${run_kind[@]}" "$dest"; check "$row: the rerun backs up, and says so" says_complete $?
                deleted=""; [ "$mirror" = true ] || deleted=$'Only in DEST: gone.txt\nOnly in DEST: old'
                check "$row: ... the copy is the source${deleted:+, deleted files kept}" same "$(copy_diff "$dest")" "$deleted"
                keep_replaced=false keep_deleted=false
                case $net in Everything) keep_replaced=true keep_deleted=$mirror ;; Changed) keep_replaced=true ;; Deleted) keep_deleted=$mirror ;; esac
                expected=$( ($keep_replaced && echo "${dest#/}/change.txt=first version"
                             $keep_deleted && printf '%s\n' "${dest#/}/gone.txt=deleted later" "${dest#/}/old/x.txt=in a folder deleted later") | sort)
                check "$row: ... the archives hold exactly what was replaced or deleted, as it was" same "$(kept)" "$expected"
                expected="0"$'\n'"$(version "$T2" "second, longer version" backup present)"
                $keep_replaced && expected+=$'\n'"$(version "$T1" "first version" safety-net present)"
                check "$row: orvane-restore lists each version of a changed file" same "$(list change.txt)" "$expected"
                if [ "$mirror" = false ]; then expected="0"$'\n'"$(version "$T1" "deleted later" backup deleted)"
                elif $keep_deleted; then expected="0"$'\n'"$(version "$T1" "deleted later" safety-net deleted)"
                else expected=1; fi
                check "$row: ... and of a deleted one" same "$(list gone.txt)" "$expected"
                check "$row: ... and of a new one" same "$(list new.txt)" "0"$'\n'"$(version "$T2" new backup present)"
            done
        done
    done
done

echo "# a destination that fills during the copy"
mkdir -p /Volumes/Small && mount -t tmpfs -o size=3m ov-small /Volumes/Small && mkdir /Volumes/Small/Docs
settings
item 0 /Volumes/Small/Docs; reset /Volumes/Small/Docs; first_tree
head -c 5000000 /dev/urandom > "$SRC/big.bin" && chown "$U:" "$SRC/big.bin"
run /Volumes/Small/Docs; check "a full destination: the run fails, and says so" same "$? $(status_files | sed -n 2p)" "1 scheduled $TODAY errors"
check "... in the words the user is promised" \
    grep -q "$SRC -> /Volumes/Small/Docs: the destination became full; files not yet copied keep their earlier version" /var/log/.orvane_daily.err
umount /Volumes/Small

if [ "$places" != local ]; then
    "$AUTOMOUNT" --unmount "$VOLUME" >/dev/null
    check "the share holds the backup and psync's side store alone" \
        same "$(cd "$SHARE_DIR" && find . -mindepth 1 -maxdepth 1 | sort)" "./Docs"
    stop_smbd
fi
stop_session
finish

#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# test_remote.sh TEST_REMOTE_BINARY TEST_REMOTE_PANE_BINARY
#
# Remote volumes end to end, in the sandbox with the product installed: a
# real smbd, the test user's real gnome-keyring, the installed automount,
# rclone through FUSE (this machine's kernel has no CIFS) and psync -r.
[ -n "${OV_IN_NETNS:-}" ] || exec env OV_IN_NETNS=1 unshare --net "$0" "$@"
set -u
here=$(dirname "$(realpath "$0")")
test_binary=$1
pane_binary=$2
. "$here/remote-env.sh"
AUTOMOUNT=/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/automount
PSYNC=/usr/local/bin/psync
POINT=/Volumes/$VOLUME
# What psync -r must run onto such a volume: no sparse writes (they seek, and
# kill rclone's mount), no hard links, links, devices or specials (EIO, or a
# dead mount), owners and modes left to psync's side store.
R_SYNC=(rsync --archive --no-links --no-devices --no-specials --no-owner --no-group --no-perms
        --modify-window=2 --one-file-system --protect-args)

# The password, for the scans and for the user's test, in files only their
# owner reads and outside the folders that are scanned.
printf '%s' "$SMB_PASSWORD" > /root/pattern
chmod 600 /root/pattern

start_smbd || exit 1
start_session
check "the session's keyring answers" as_user secret-tool search --all xdg:schema none
password_file=/home/$TEST_USER/.ov-test-password
install -m 600 -o "$TEST_USER" /root/pattern "$password_file"

store_password() { printf '%s' "$1" | as_user secret-tool store --label="Orvane Auto-Connect" \
    xdg:schema org.gnome.keyring.NetworkPassword user "$SMB_ACCOUNT" server fileserver protocol smb object "$VOLUME"; }
# No trace of the password where others could see it.
no_leaks() {
    local hits="" f
    for f in /proc/[0-9]*/cmdline /proc/[0-9]*/environ; do
        grep -qaFf /root/pattern "$f" 2>/dev/null && hits="$hits $f"
    done
    # -xdev: the source tree and the build, kept into the sandbox (under
    # /tmp in a clone there), are mounts of their own and hold the test's
    # own password.
    hits="$hits $(find /tmp /dev/shm /run /var/log -xdev -type f -print0 2>/dev/null | xargs -0r grep -laFf /root/pattern 2>/dev/null)"
    hits="$hits $(grep -laFf /root/pattern /Volumes/*/.psync-attributes 2>/dev/null)"
    [ -z "${hits// /}" ] || { echo "   the password is in:$hits"; return 1; }
}
# rclone's config is an unlinked file only root reads.
private_config() {
    local pid target
    pid=$(pgrep -x rclone | head -1)
    [ -n "$pid" ] || return 1
    target=$(readlink "/proc/$pid/fd/3")
    [[ $target == *"(deleted)" ]] && [ "$(stat -L -c '%u %a' "/proc/$pid/fd/3")" = "0 600" ]
}
user_may() { runuser -u "$TEST_USER" -- "$@"; }
contains() { grep -qF -- "$2" <<<"$1" || { echo "   got: $1"; return 1; }; }

# --- the pane's side, as the user: store, read back, replace, Connect -------
echo "# the Secret Service and Connect, as $TEST_USER"
check "storing, reading back and Connect work as the user" \
    as_user env QT_QPA_PLATFORM=offscreen OV_AUTOMOUNT="$AUTOMOUNT" OV_REMOTE_SERVER="$SERVER" \
    OV_REMOTE_ACCOUNT="$SMB_ACCOUNT" OV_REMOTE_VOLUME="$VOLUME" OV_REMOTE_PASSWORD_FILE="$password_file" "$test_binary"
check "Connect left the volume mounted at $POINT" is_mounted "$POINT"
check "the folder made through it is on the server" test -d "$SHARE_DIR/Backups/Documents"
check "the user's mount gives no trace of the password" no_leaks

out=$("$AUTOMOUNT" --user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME" 2>&1)
check "a backup finds the user's mount and uses it" contains "$out" "already mounted"
mkdir -p /root/src/docs && echo "from root" > /root/src/docs/note.txt
check "root writes onto the user's mount" "$PSYNC" -r /root/src "$POINT/Backups"
out=$("$AUTOMOUNT" --unmount "$VOLUME" 2>&1)
check "the backup leaves the user's mount alone" contains "$out" "not mounted by a backup"
check "... which stays mounted" is_mounted "$POINT"
user_may fusermount3 -u "$POINT"
check "the user unmounts it" bash -c "! findmnt -n --mountpoint '$POINT' >/dev/null"

echo "# the options' OK and Connect in the pane, as $TEST_USER"
user_env=(QT_QPA_PLATFORM=offscreen OV_REMOTE_SERVER="$SERVER" OV_REMOTE_ACCOUNT="$SMB_ACCOUNT"
          OV_REMOTE_VOLUME="$VOLUME" OV_REMOTE_PASSWORD_FILE="$password_file")
check "the pane stores the password on OK and Connect mounts" as_user env "${user_env[@]}" "$pane_binary"
check "a save the keyring refuses keeps the options open" \
    as_user env "${user_env[@]}" DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere "$pane_binary" refusedStoreKeepsSheetOpen
rm -f "$password_file"
store_password "$SMB_PASSWORD"

# --- a scheduled backup: mount as root, psync -r, compare, unmount ------------
echo "# a scheduled backup"
rm -rf /root/src && mkdir -p "/root/src/Letters/2026" "/root/src/empty"
echo "dear sir" > "/root/src/Letters/2026/to bank.txt"
head -c 3000000 /dev/urandom > /root/src/Letters/photo.bin
(cd /root/src && find . -type f -exec sha256sum {} + | sort) > /root/src.sums

out=$("$AUTOMOUNT" --user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME" 2>&1)
check "automount as root mounts the volume" contains "$out" "mounted $VOLUME from fileserver at $POINT"
check "... at $POINT, a FUSE mount open to the user and root" bash -c "findmnt -n -o FSTYPE,OPTIONS --mountpoint '$POINT' | grep -q 'fuse.rclone.*allow_other'"
check "... owned by the user" test "$(stat -c %U "$POINT")" = "$TEST_USER"
check "rclone's config is an unlinked file only root reads" private_config
check "no trace of the password while mounted" no_leaks
mkdir -p "$POINT/Backup/.work"
"${R_SYNC[@]}" --temp-dir="$POINT/Backup/.work" --exclude=/.work /root/src/ "$POINT/Backup/"
check "the copy psync -r must make lands on the volume" test $? -eq 0
rmdir "$POINT/Backup/.work"
rm -rf /root/fetched
fetch_share Backup /root/fetched
check "the server holds exactly the source's files" \
    bash -c "cd /root/fetched && find . -type f -exec sha256sum {} + | sort | diff - /root/src.sums"
check "a second run changes nothing" \
    bash -c "out=\$(\"\$@\" --itemize-changes /root/src/ '$POINT/Backup/') && ! grep -v '^\.' <<<\"\$out\" | grep -q ." _ "${R_SYNC[@]}"
# Names SMB forbids are stored in rclone's encoding and read back intact.
mkdir -p /root/odd "$POINT/Odd" && printf 'x\n' > '/root/odd/odd "name" #{x}?.txt'
"${R_SYNC[@]}" /root/odd/ "$POINT/Odd/"
check "a name SMB forbids reads back as it was" cmp '/root/odd/odd "name" #{x}?.txt' "$POINT/Odd/odd \"name\" #{x}?.txt"
# psync -r as the scripts run it: small files land,
# with owner and mode in its side store.
mkdir -p /root/small "$POINT/Small" && echo "kept" > /root/small/note && chmod 640 /root/small/note
check "psync -r as it is copies small files" "$PSYNC" -r /root/small "$POINT/Small"
check "... keeping owner and mode beside them" \
    bash -c "tr '\0' '\n' < '$SHARE_DIR/Small/.psync-attributes' | grep -qx '640 0 0 note'"

# Two backups at once share the mount; the first to finish leaves it.
bash -c '"$0" --user "$1" "$2" "$3" "$4" >/dev/null 2>&1; exec sleep 300' "$AUTOMOUNT" "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME" &
other=$!
for _ in $(seq 100); do grep -qx "$other" "/run/orvane-automount/$VOLUME" 2>/dev/null && break; sleep 0.1; done
"$AUTOMOUNT" --unmount "$VOLUME" >/dev/null
check "a backup's unmount leaves the mount another backup uses" is_mounted "$POINT"
kill "$other"; wait "$other" 2>/dev/null
out=$("$AUTOMOUNT" --unmount "$VOLUME" 2>&1)
check "the last backup unmounts what automount mounted" contains "$out" "unmounted $POINT"
check "... and removes the mount point it made" test ! -e "$POINT"

# --- the pane's scheduled script, run as cron runs it ------------------------
echo "# a scheduled script with auto-connect"
SCRIPT=/root/daily-remote.rb
ERRORS=/var/log/.orvane_daily.err
LOG=/var/log/orvane_daily.log
rm -rf /root/rsrc && mkdir -p "/root/rsrc/Lettres été" && echo "chère madame" > "/root/rsrc/Lettres été/à la banque.txt"
head -c 2000000 /dev/urandom > /root/rsrc/photo.bin
chown -R "$TEST_USER:" /root/rsrc && chmod 640 /root/rsrc/photo.bin
mkdir -p "$SHARE_DIR/Scheduled" && chown "$SMB_ACCOUNT" "$SHARE_DIR/Scheduled"
"$OV_FILL_SCRIPT" --remote --autoconnect "$SERVER" "$SMB_ACCOUNT" "$VOLUME" --user "$TEST_USER" \
    /root/rsrc "$POINT/Scheduled" > "$SCRIPT" && chmod 700 "$SCRIPT"
check "the builder fills the auto-connect settings" grep -qx "autoConnect = true" "$SCRIPT"
run_script() { env -i LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin "$SCRIPT" >/dev/null 2>&1; }
shares_copy_equals_source() {
    rm -rf /root/fetched && fetch_share Scheduled /root/fetched
    diff <(cd /root/fetched && find . -type f ! -name .psync-attributes -exec sha256sum {} + | sort) \
         <(cd /root/rsrc && find . -type f -exec sha256sum {} + | sort)
}
run_script; status=$?
check "the script mounts, copies and ends without errors" test "$status" -eq 0 -a ! -e "$ERRORS"
check "... through automount as the user asked" grep -q "automount: mounted $VOLUME from fileserver" "$LOG"
check "... and the server holds exactly the source's files" shares_copy_equals_source
check "... their owners and modes in the side store" \
    bash -c "tr '\0' '\n' < '$SHARE_DIR/Scheduled/.psync-attributes' | grep -qx '640 $(id -u "$TEST_USER") $(id -g "$TEST_USER") photo.bin'"
check "... and unmounts what it mounted" bash -c "! findmnt -n --mountpoint '$POINT' >/dev/null && test ! -e /run/orvane-automount/$VOLUME"

# What the volume cannot hold: links, a FIFO, names that differ only in case.
ln -s photo.bin /root/rsrc/link-to-photo && mkfifo /root/rsrc/pipe
echo "upper" > /root/rsrc/Notes.txt && echo "lower" > /root/rsrc/notes.txt
run_script; status=$?
check "names that differ only in case end in an error" test "$status" -eq 1
check "... which names them" grep -q "/root/rsrc/notes.txt: its name differs only in case from \"Notes.txt\"" "$ERRORS"
first_kept_whole() {
    rm -rf /root/fetched && fetch_share Scheduled /root/fetched
    [ "$(cat /root/fetched/Notes.txt)" = upper ] && [ ! -e /root/fetched/link-to-photo ] && [ ! -e /root/fetched/pipe ]
}
check "... and the first is copied whole, not merged" first_kept_whole
check "the link and the FIFO are named as skipped" bash -c "grep -q 'skipped /root/rsrc/link-to-photo (a symbolic link)' '$LOG' && grep -q 'skipped /root/rsrc/pipe (a special file)' '$LOG'"
check "... and the mount is gone again" bash -c "! findmnt -n --mountpoint '$POINT' >/dev/null"
rm -f /root/rsrc/link-to-photo /root/rsrc/pipe /root/rsrc/notes.txt

# A refused password: one line, and nothing written where the volume was.
store_password "not-the-password"
run_script
check "a refused password is one line in the error file" \
    grep -q "auto-connect: could not mount the volume $VOLUME from $SERVER: .*refused the password" "$ERRORS"
check "... and the backup onto the missing volume is reported, nothing written" \
    grep -q "$POINT/Scheduled: the destination folder is missing" "$ERRORS"
store_password "$SMB_PASSWORD"

# --- failures: each a clear line, quick, nothing mounted, nothing lost -------
echo "# failures"
before=$(cd "$SHARE_DIR" && find . -type f -exec sha256sum {} + | sort)
fails_with() { # fails_with DESCRIPTION EXPECTED [automount arguments...]
    local start=$SECONDS out status
    out=$(timeout 120 "$AUTOMOUNT" "${@:3}" 2>&1); status=$?
    check "$1: a clear error" contains "$out" "$2"
    check "$1: exit status 1, within 25 s" test "$status" -eq 1 -a $((SECONDS - start)) -le 25
    check "$1: nothing mounted" bash -c "! findmnt -n --mountpoint '$POINT' >/dev/null"
}
mount_args=(--user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME")

store_password "not-the-password"
fails_with "wrong password" "the server fileserver refused the password of $SMB_ACCOUNT" "${mount_args[@]}"
store_password "$SMB_PASSWORD"
printf '%s' "$SMB_PASSWORD" | as_user secret-tool store --label=other \
    xdg:schema org.gnome.keyring.NetworkPassword user "$SMB_ACCOUNT" server fileserver protocol smb object nothere
fails_with "afp:// address" "this system has no AFP client" --user "$TEST_USER" afp://fileserver "$SMB_ACCOUNT" "$VOLUME"
fails_with "address without a scheme" "has no scheme" --user "$TEST_USER" fileserver "$SMB_ACCOUNT" "$VOLUME"
fails_with "no such volume" "has no volume nothere" --user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" nothere
fails_with "root without a user" "needs --user USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME"

stop_smbd
fails_with "server down" "the server fileserver cannot be reached" "${mount_args[@]}"

as_user secret-tool lock --collection=login >/dev/null 2>&1
fails_with "locked keyring" "the keyring of $TEST_USER is locked, so the password for $SMB_ACCOUNT@fileserver cannot be read" "${mount_args[@]}"

stop_session
fails_with "logged-out user" "the keyring of $TEST_USER is locked, so the password for $SMB_ACCOUNT@fileserver cannot be read" "${mount_args[@]}"

after=$(cd "$SHARE_DIR" && find . -type f -exec sha256sum {} + | sort)
check "the failures changed nothing on the server" test "$before" = "$after"
check "... and left no mount point behind" test -z "$(ls -A /Volumes)"
check "... nor in the source" bash -c "cd /root/src && find . -type f -exec sha256sum {} + | sort | diff -q - /root/src.sums >/dev/null"
check "no trace of the password anywhere others look" no_leaks

finish

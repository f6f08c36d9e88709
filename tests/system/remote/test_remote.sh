#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# test_remote.sh TEST_REMOTE_PANE_BINARY: remote volumes end to end, in the
# sandbox with the product installed: a real smbd, the administrator's real
# gnome-keyring and a real polkitd, the installed automount and
# connect_volume, rclone through FUSE (this machine's kernel has no CIFS), the
# pane's scripts run as cron runs them; and an ordinary user who tries to
# make root back up into a place of his.
set -u
here=$(dirname "$(realpath "$0")")
pane_binary=$1
. "$here/remote-env.sh"
. "$here/../e2e/polkit.sh"
RESOURCES=/Library/PreferencePanes/Orvane.prefPane/Contents/Resources
LOG=/var/log/orvane_daily.log ERRORS=/var/log/.orvane_daily.err SCRIPT=/root/daily.rb
# The password, for the scans and for the pane's test, in files only their
# owner reads and outside the folders that are scanned.
printf '%s' "$SMB_PASSWORD" > /root/pattern && chmod 600 /root/pattern
start_smbd || exit 1
start_session
password_file=/home/$TEST_USER/.ov-test-password docs=/home/$TEST_USER/Docs pics=/home/$TEST_USER/Pictures
install -m 600 -o "$TEST_USER" /root/pattern "$password_file"
# No trace of the password where others could see it, nor in the system log.
no_leaks() {
    local hits="" f
    for f in /proc/[0-9]*/cmdline /proc/[0-9]*/environ; do grep -qaFf /root/pattern "$f" 2>/dev/null && hits="$hits $f"; done
    # -xdev: the source tree and the build, kept into the sandbox, hold the test's own password.
    hits="$hits $(find /tmp /dev/shm /run /var/log -xdev -type f -print0 2>/dev/null | xargs -0r grep -laFf /root/pattern 2>/dev/null)"
    [ -z "${hits// /}" ] || { echo "   the password is in:$hits"; return 1; }
}
contains() { grep -qF -- "$2" <<<"$1" || { echo "   got: $1"; return 1; }; }
mounted_as() { findmnt -n -o FSTYPE,SOURCE,OPTIONS --mountpoint "$POINT" | grep -q "$1"; }
polkit_rule grant "$TEST_USER"
run_script() { cron_run "$SCRIPT"; }
fill() { "$OV_FILL_SCRIPT" --user "$TEST_USER" "$@" > "$SCRIPT" && chmod 700 "$SCRIPT"; }
sums() { (cd "$1" && find . -type f ! -name .psync-attributes -exec sha256sum {} + | sort); }
mount_args=(--user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" "$VOLUME")
unmount_all() { while is_mounted "$POINT"; do umount "$POINT" || umount -l "$POINT"; done; rmdir "$POINT"; }

echo "# the install"
check "/Volumes is root's and only root may change it (the sandbox made it 1777)" \
    test "$(stat -c '%U %G %a' /Volumes)" = "root root 755"
chmod 1777 /Volumes
printf '# the administrator'"'"'s own\nmount_max = 9\n# Orvane: a volume the user connects is seen by the backups run as root\nuser_allow_other\n' > /etc/fuse.conf
cmake -P "$OV_BUILD_DIR/tools/automount/cmake_install.cmake" >/dev/null
check "installing again takes /Volumes back, and the user_allow_other it once added" \
    test "$(stat -c %a /Volumes)" = 755 -a "$(cat /etc/fuse.conf)" = $'# the administrator\'s own\nmount_max = 9'
check "... and connect_volume is root's, set-user-ID" test "$(stat -c '%U %a' "$RESOURCES/connect_volume")" = "root 4755"
check "$OTHER_USER can make nothing in /Volumes" \
    bash -c "! runuser -u $OTHER_USER -- mkdir $POINT 2>/dev/null && ! runuser -u $OTHER_USER -- ln -s /etc $POINT 2>/dev/null"

echo "# the options' OK and Connect in the pane, as $TEST_USER"
user_env=(QT_QPA_PLATFORM=offscreen OV_REMOTE_SERVER="$SERVER" OV_REMOTE_ACCOUNT="$SMB_ACCOUNT"
          OV_REMOTE_VOLUME="$VOLUME" OV_REMOTE_PASSWORD_FILE="$password_file")
check "the pane stores the password, and Connect mounts" as_user env "${user_env[@]}" "$pane_binary"
check "a save the keyring refuses keeps the options open" \
    as_user env "${user_env[@]}" DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere "$pane_binary" refusedStoreKeepsSheetOpen
check "Connect's mount is root's (rclone's FUSE served by root) from //fileserver/$VOLUME" \
    mounted_as "^fuse.rclone *//fileserver/$VOLUME .*user_id=0,.*default_permissions,allow_other"
check "... its files are $TEST_USER's alone" test "$(stat -c '%U %a' "$POINT")" = "$TEST_USER 700"
check "... $OTHER_USER cannot even list it" bash -c "! runuser -u $OTHER_USER -- ls $POINT >/dev/null 2>&1"
check "... and the folder made through it is on the server" test -d "$SHARE_DIR/Backups/Documents"
check "Connect is in the system log" grep -q "connect_volume.*connecting the volume $VOLUME of $SERVER for $TEST_USER" "$SYSLOG"
check "no trace of the password while it is mounted" no_leaks
out=$(printf 'server 16\n%saccount 8\n%svolume 5\n%s' "$SERVER" "$SMB_ACCOUNT" "$VOLUME" |
      as_other bash -c '"$0" --Orvane; exit $?' "$RESOURCES/connect_volume" 2>&1)
check "$OTHER_USER's own Connect is refused" contains "$out" "does not hold Orvane's unlock"

rm -f "$password_file"
store_password "$SMB_PASSWORD"
echo "# backups onto the volume Connect mounted"
rm -rf "$docs" && mkdir -p "$docs/Lettres été" && echo "chère madame" > "$docs/Lettres été/à la banque.txt"
head -c 2000000 /dev/urandom > "$docs/photo.bin" && chown -R "$TEST_USER:" "$docs"
fill --remote --autoconnect "$SERVER" "$SMB_ACCOUNT" "$VOLUME" "$docs" "$POINT/Backups/Documents"
run_script; status=$?
check "auto-connect on: the run uses the mount, and leaves it mounted for the user" \
    bash -c "[ $status -eq 0 ] && grep -q 'stays mounted: it was connected from Orvane' $LOG && findmnt -n --mountpoint $POINT >/dev/null"
check "the disk is remembered with who serves it" \
    bash -c "tr '\0' '\n' < '/Library/Application Support/Orvane/.daily/.disks' | grep -qx 'fuse.rclone //fileserver/$VOLUME / user_id=0'"
unmount_all
check "Connect says why it failed, with nothing mounted" \
    as_user env "${user_env[@]}" OV_CONNECT_FAILS=1 OV_REMOTE_PASSWORD_FILE=/dev/null "$pane_binary" connectTellsWhyItFailed
store_password "$SMB_PASSWORD"
fill --remote --server "$SERVER" "$SMB_ACCOUNT" "$VOLUME" "$docs" "$POINT/Backups/Documents"
run_script
check "auto-connect off and nothing mounted: one clear error, nothing written" \
    grep -q "the remote volume $VOLUME of $SERVER cannot be used: the volume $VOLUME of $SERVER is not connected" "$ERRORS"

echo "# scheduled backups with auto-connect: onto the share's top and into a folder"
rm -rf "${SHARE_DIR:?}"/* "$SHARE_DIR"/.[!.]*
rm -rf "$pics" && mkdir -p "$pics/2026" && echo "sun" > "$pics/2026/beach.txt"
# Names SMB forbids or rclone encodes, "．" among them.
for name in 'odd "name" #{x}?.txt' ． 'ends with a period.'; do echo "$name" > "$docs/Lettres été/$name"; done
chown -R "$TEST_USER:" "$docs" "$pics"
mkdir -p "$SHARE_DIR/Pictures" && chown "$SMB_ACCOUNT" "$SHARE_DIR/Pictures"
# (No mirror: the first backup's destination holds the second's.)
fill --remote --autoconnect "$SERVER" "$SMB_ACCOUNT" "$VOLUME" \
    "$docs" "$POINT" "$pics" "$POINT/Pictures"
run_script; status=$?
check "the run mounts, copies and ends without errors" \
    bash -c "[ $status -eq 0 ] && [ ! -e $ERRORS ] && grep -q 'automount: mounted $VOLUME from fileserver at $POINT (rclone)' $LOG"
check "... mounted by root for $TEST_USER, as the system log says" grep -q "automount.*mounted //fileserver/$VOLUME at $POINT for $TEST_USER (a backup)" "$SYSLOG"
check "... and unmounts it, removing the mount point it made" bash -c "! findmnt -n --mountpoint $POINT >/dev/null && [ ! -e $POINT ]"
echo "new" > "$docs/new.txt" && chown "$TEST_USER:" "$docs/new.txt"
echo "changed" > "$pics/2026/beach.txt"
run_script; status=$?
check "a second run after a change and a new file ends without errors" test "$status" -eq 0 -a ! -e "$ERRORS"
same_through_mount() { # same_through_mount FOLDER_ON_VOLUME SOURCE: the same files, Pictures aside
    "$AUTOMOUNT" "${mount_args[@]}" >/dev/null || return 1
    diff <(cd "$POINT/$1" && find . -path ./Pictures -prune -o -type f ! -name .psync-attributes -exec sha256sum {} + | sort) <(sums "$2")
    local status=$?; "$AUTOMOUNT" --unmount "$VOLUME" >/dev/null; return $status
}
check "the share's top holds exactly the first source's files, odd names as they were" same_through_mount . "$docs"
check "... Pictures exactly the second's" same_through_mount Pictures "$pics"
expected_share() {
    (cd "$docs" && find . -mindepth 1 -maxdepth 1; echo ./.psync-attributes; echo ./Pictures; echo ./Pictures/.psync-attributes
     cd "$pics" && find . -mindepth 1 | sed 's|^\./|./Pictures/|') | sort
}
check "nothing else is on the share: no \"．\" folder, no work folder, only psync's side stores" \
    diff <(cd "$SHARE_DIR" && find . -mindepth 1 \( -path "./Lettres*/*" -prune -o -print \) | sort) <(expected_share)

# A run with Remote on but no server (a volume that keeps no owners): no
# automount, the disk check alone guards it. Its first run, on root's mount.
"$AUTOMOUNT" "${mount_args[@]}" >/dev/null && mkdir -p "$POINT/Plain"
fill --remote "$pics" "$POINT/Plain"
run_script; status=$?
check "a run without a server backs up onto what is mounted" test "$status" -eq 0 -a -e "$SHARE_DIR/Plain/2026/beach.txt"
"$AUTOMOUNT" --unmount "$VOLUME" >/dev/null
check "no trace of the password after root's mounts" no_leaks

echo "# attacks by $OTHER_USER"
mkdir -p "$SHARE_DIR/Pictures" && chown "$SMB_ACCOUNT" "$SHARE_DIR/Pictures"
mkdir -p "/home/$OTHER_USER/trap" && chown "$OTHER_USER:" "/home/$OTHER_USER/trap"
untouched() { # untouched FOLDER ENTRY...: FOLDER holds just these, the trap nothing
    [ -z "$(ls -A "/home/$OTHER_USER/trap")" ] && diff <(cd "$1" && find . | sort) <(printf '%s\n' "${@:2}" | sort)
}
autoconnect_pictures() { fill --remote --mirror --autoconnect "$SERVER" "$SMB_ACCOUNT" "$VOLUME" "$pics" "$POINT/Pictures"; }
verify_pictures() { fill --remote --mirror --server "$SERVER" "$SMB_ACCOUNT" "$VOLUME" "$pics" "$POINT/Pictures"; }

# His folder, left from the time any user could make one in /Volumes, holding
# the destination: root neither mounts over it nor writes into it.
mkdir -p "$POINT/Pictures" && echo mine > "$POINT/his.txt" && chown -R "$OTHER_USER:" "$POINT"
autoconnect_pictures && run_script
check "his folder at $POINT: the run refuses it, in words" \
    grep -q "auto-connect: could not mount the volume $VOLUME from $SERVER: $POINT is in the way: a folder of $OTHER_USER that is not empty" "$ERRORS"
check "... as the system log says" grep -q "automount.*refused: $POINT is in the way: a folder of $OTHER_USER" "$SYSLOG"
check "... and the pair on it is not backed up" \
    grep -q "/home/$TEST_USER/Pictures -> $POINT/Pictures: it lies on the remote volume $VOLUME, which could not be used" "$ERRORS"
verify_pictures && run_script
check "... nor with auto-connect off" \
    bash -c "grep -q 'cannot be used: the volume $VOLUME of $SERVER is not connected' $ERRORS && grep -q 'it lies on the remote volume $VOLUME' $ERRORS"
check "... nothing was written into it" untouched "$POINT" . ./his.txt ./Pictures

# ... where he swaps the destination between a folder and a link to a folder
# of root's, again and again through runs.
mkdir -p /root/victim
as_other bash -c 'for i in $(seq 2000); do
        rm -rf "$1/Pictures"; mkdir "$1/Pictures"; rm -rf "$1/Pictures"; ln -s "$0" "$1/Pictures"
    done' /root/victim "$POINT" >/dev/null 2>&1 &
swapper=$!
log_from=$(($(stat -c %s "$LOG") + 1))
runs=0
autoconnect_pictures
while kill -0 "$swapper" 2>/dev/null; do run_script; runs=$((runs + 1)); done
check "his link swapped in during $runs runs: refused in words, nothing written through it" \
    bash -c "tail -c +$log_from $LOG | grep -q 'Pictures -> $POINT/Pictures: it lies on the remote volume $VOLUME' &&
             ! tail -c +$log_from $LOG | grep -q 'Pictures -> $POINT/Pictures: done' && [ -z \"\$(ls -A /root/victim)\" ]"
rm -rf "${POINT:?}/Pictures" && mkdir "$POINT/Pictures" && chown "$OTHER_USER:" "$POINT/Pictures"

# The same folder empty: it goes, and root's own mount takes its place.
rm -rf "${POINT:?}"/* && autoconnect_pictures && run_script; status=$?
check "his empty folder gives way to root's mount point, and the backup runs" \
    bash -c "[ $status -eq 0 ] && grep -q 'removed the empty folder $POINT of $OTHER_USER' $SYSLOG"

# His look-alike mount: rclone through FUSE, open to root (an administrator
# turned user_allow_other on again), with the real volume's name.
echo user_allow_other >> /etc/fuse.conf
mkdir -p "$POINT" && chown "$OTHER_USER:" "$POINT"
mkdir -p "/home/$OTHER_USER/fake/Pictures" "/home/$OTHER_USER/fake/Plain" && chown -R "$OTHER_USER:" "/home/$OTHER_USER/fake"
as_other setsid rclone mount "/home/$OTHER_USER/fake" "$POINT" --devname "//fileserver/$VOLUME" --allow-other \
    --default-permissions --config /dev/null </dev/null >/dev/null 2>&1 &
wait_for 100 is_mounted "$POINT"
check "(his look-alike is mounted, of the same type and source)" \
    mounted_as "^fuse.rclone *//fileserver/$VOLUME .*user_id=$(id -u "$OTHER_USER"),"
autoconnect_pictures && run_script
check "his look-alike mount: the run refuses it, in words" \
    grep -q "$POINT is not the volume $VOLUME of $SERVER for $TEST_USER: it was mounted by $OTHER_USER, not by root or $TEST_USER; nothing was written there" "$ERRORS"
verify_pictures && run_script
check "... with auto-connect off too" grep -q "cannot be used: $POINT is not the volume $VOLUME of $SERVER for $TEST_USER: it was mounted by $OTHER_USER" "$ERRORS"
fill --remote "$pics" "$POINT/Plain" && run_script
check "... and a run without a server tells it from the disk it remembers" \
    grep -q "$POINT/Plain: the disk that held this backup is not there" "$ERRORS"
check "... nothing was written into it" untouched "/home/$OTHER_USER/fake" . ./Pictures ./Plain
as_other fusermount3 -u "$POINT"; rmdir "$POINT"
sed -i '/^user_allow_other$/d' /etc/fuse.conf

# Races: all through runs, he tries to put a link or a folder of his at
# /Volumes/share, to move root's away, and to reach into the backup.
autoconnect_pictures
as_other bash -c 'for i in $(seq 1000); do
        ln -s "$0" "$1" 2>/dev/null && echo "link at $1"
        mkdir "$1" 2>/dev/null && echo "folder at $1"
        mv "$1" "$1.gone" 2>/dev/null && echo "moved $1"
        ln -s "$0" "$1/Pictures/2026/x" 2>/dev/null && echo "link in the backup"
    done' "/home/$OTHER_USER/trap" "$POINT" > /root/race.out 2>&1 &
racer=$!
runs=0 failed_runs=0
while kill -0 "$racer" 2>/dev/null; do
    date +%N > "$pics/2026/now.txt"; run_script || failed_runs=$((failed_runs + 1)); runs=$((runs + 1))
done
check "1000 rounds of his links, folders and moves during $runs runs: not one landed" test ! -s /root/race.out
check "... every run backed up, and root wrote nothing into his trap" \
    bash -c "[ $failed_runs -eq 0 ] && [ -z \"\$(ls -A /home/$OTHER_USER/trap)\" ] && cmp /home/$TEST_USER/Pictures/2026/now.txt $SHARE_DIR/Pictures/2026/now.txt"

echo "# failures: each a clear line, quick, nothing mounted, nothing lost"
before=$(cd "$SHARE_DIR" && find . -type f -exec sha256sum {} + | sort)
fails_with() { # fails_with DESCRIPTION EXPECTED COMMAND...
    local start=$SECONDS out status
    out=$(timeout 120 "${@:3}" 2>&1); status=$?
    check "$1: a clear error" contains "$out" "$2"
    check "$1: status 1 within 25 s, nothing mounted" \
        bash -c "[ $status -eq 1 ] && [ $((SECONDS - start)) -le 25 ] && ! findmnt -n --mountpoint $POINT >/dev/null"
}
store_password "not-the-password"
fails_with "wrong password" "the server fileserver refused the password of $SMB_ACCOUNT" "$AUTOMOUNT" "${mount_args[@]}"
store_password "$SMB_PASSWORD"
printf '%s' "$SMB_PASSWORD" | as_user secret-tool store --label=other \
    xdg:schema org.gnome.keyring.NetworkPassword user "$SMB_ACCOUNT" server fileserver protocol smb object nothere
fails_with "afp:// address" "this system has no AFP client" "$AUTOMOUNT" --user "$TEST_USER" afp://fileserver "$SMB_ACCOUNT" "$VOLUME"
fails_with "address without a scheme" "has no scheme" "$AUTOMOUNT" --user "$TEST_USER" fileserver "$SMB_ACCOUNT" "$VOLUME"
fails_with "no such volume" "has no volume nothere" "$AUTOMOUNT" --user "$TEST_USER" "$SERVER" "$SMB_ACCOUNT" nothere
fails_with "an ordinary user" "only root mounts the remote volume" runuser -u "$OTHER_USER" -- "$AUTOMOUNT" "${mount_args[@]}"
chmod 1777 /Volumes
fails_with "/Volumes open to all" "/Volumes can be changed by users other than root (owner root, mode 1777)" "$AUTOMOUNT" "${mount_args[@]}"
chmod 755 /Volumes
stop_smbd
fails_with "server down" "the server fileserver cannot be reached" "$AUTOMOUNT" "${mount_args[@]}"
as_user secret-tool lock --collection=login >/dev/null 2>&1
fails_with "locked keyring" "the keyring of $TEST_USER is locked, so the password for $SMB_ACCOUNT@fileserver cannot be read" "$AUTOMOUNT" "${mount_args[@]}"
stop_session
fails_with "logged-out user" "the keyring of $TEST_USER is locked, so the password for $SMB_ACCOUNT@fileserver cannot be read" "$AUTOMOUNT" "${mount_args[@]}"
after=$(cd "$SHARE_DIR" && find . -type f -exec sha256sum {} + | sort)
check "the failures changed nothing on the server" test "$before" = "$after"
check "... and left no mount point behind" test -z "$(ls -A /Volumes)"
check "no trace of the password anywhere others look" no_leaks
finish

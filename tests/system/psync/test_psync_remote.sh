#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# psync -r with the Safety Net onto an SMB share through rclone's FUSE mount
# (a real smbd; this kernel has no CIFS): it keeps replaced and deleted files
# as on a local disk, and leaves on the share only the backup and its side store.
set -u
. "$(dirname "$(realpath "$0")")/../remote/remote-env.sh"
PSYNC=${OV_PSYNC:-/usr/local/bin/psync}
start_smbd || exit 1
id ovadmin >/dev/null 2>&1 || useradd -m ovadmin
config=$(mktemp)
printf '[orvane]\ntype = smb\nhost = fileserver\nuser = %s\npass = %s\n' "$SMB_ACCOUNT" "$(rclone obscure "$SMB_PASSWORD")" > "$config"
mkdir -p "$POINT"
rclone mount orvane:$VOLUME "$POINT" --config "$config" --vfs-cache-mode off --allow-other --default-permissions \
    --uid 0 --gid 0 --umask 077 --dir-cache-time 5s --log-level ERROR --daemon
check "rclone mounts the share" wait_for 100 is_mounted "$POINT"
src=/root/src net=/root/net target=${OV_TARGET:-$POINT/Backup}
mkdir -p "$src/docs" "$net" "$target" && chown ovadmin: "$net"
echo "first" > "$src/docs/letter.txt" && echo "to go" > "$src/docs/old.txt" && chmod 640 "$src/docs/letter.txt"
args=(-r -d --safety-net="$net" --safety-net-owner=ovadmin --keep=everything)
out=$("$PSYNC" "${args[@]}" --archive="2026-11-25 10.00.00 Daily" "$src" "$target" 2>&1)
check "a first copy onto the share" test $? -eq 0
echo "second!" > "$src/docs/letter.txt" && rm "$src/docs/old.txt"
out=$("$PSYNC" "${args[@]}" --archive="2026-11-25 11.00.00 Daily" "$src" "$target" 2>&1)
check "a rerun with the Safety Net on the share's copy" test $? -eq 0
echo "$out"
kept="$net/2026-11-25 11.00.00 Daily/${target#/}/docs"
check "the replaced version is kept" grep -qx first "$kept/letter.txt"
check "the deleted file is kept" grep -qx "to go" "$kept/old.txt"
# (640 in the side store, but ovadmin could not pass the mount, root's alone.)
check "with its owner from the side store, open to no one new" test "$(stat -c '%u %a' "$kept/letter.txt")" = "0 600"
check "the copy is the new version" grep -qx "second!" "$SHARE_DIR/Backup/docs/letter.txt"
check "the share holds the backup and its side store alone" same "$(cd "$SHARE_DIR" && find . -mindepth 1 | sort | tr '\n' ' ')" \
    "./Backup ./Backup/.psync-attributes ./Backup/docs ./Backup/docs/letter.txt "
# What the share cannot keep is named once, as a warning.
setfattr -n user.xdg.tags -v red "$src/docs/letter.txt"
ln -s letter.txt "$src/docs/link"
out=$("$PSYNC" -r "$src" "$target" 2>&1)
check "what the volume cannot keep makes a warning" test $? -eq 1
check "... named in one line" grep -qx "psync: not kept: 1 symbolic link, 1 entry's extended attributes or ACLs; the volume cannot hold them" <<<"$out"
check "... and the link by its path" grep -qx "psync: skipped $src/docs/link (a symbolic link): the volume cannot hold it" <<<"$out"
# A rewrite within the second of the last copy, at the same size: the share
# keeps whole seconds, so only the contents can tell.
rm "$src/docs/link"
second=$(date '+%Y-%m-%d %H:%M:%S')
echo "third!!" > "$src/docs/letter.txt" && touch -d "$second.100000000" "$src/docs/letter.txt"
"$PSYNC" -r "$src" "$target" >/dev/null 2>&1
echo "fourth!" > "$src/docs/letter.txt" && touch -d "$second.900000000" "$src/docs/letter.txt"
"$PSYNC" -r "$src" "$target" >/dev/null 2>&1
check "a same-size rewrite within the copy's second is copied" grep -qx "fourth!" "$SHARE_DIR/Backup/docs/letter.txt"
fusermount3 -u "$POINT"; rm -f "$config"; stop_smbd
finish

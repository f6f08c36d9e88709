# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced inside the sandbox, where it runs the test again in a network
# namespace of its own: a real Samba server on lo that answers to
# "fileserver", the administrator who configured the backups (TEST_USER) with
# a session bus and gnome-keyring, an ordinary user (OTHER_USER) and the
# system log in a file of ours.
[ -n "${OV_IN_NETNS:-}" ] || exec env OV_IN_NETNS=1 unshare --net "$0" "$@"
. "$(dirname "${BASH_SOURCE[0]}")/../checks.sh"
. "$(dirname "${BASH_SOURCE[0]}")/../syslog.sh"
SMB_DIR=/srv/orvane-smb # the server's state (private parts root's alone) and its share
SHARE_DIR=$SMB_DIR/share SMB_ACCOUNT=ovbackup SMB_PASSWORD='Orv4ne-Secr3t-7491' KEYRING_PASSWORD='keyring-pass-31'
TEST_USER=ovadmin OTHER_USER=ovother SYSLOG=/run/ov-syslog SERVER=smb://fileserver VOLUME=share
POINT=/Volumes/$VOLUME AUTOMOUNT=/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/automount
# What the last run said, under a failed check.
SHOW_ON_FAILURE='sed "s/^/   error file: /" /var/log/.orvane_*.err 2>/dev/null; tail -n 8 /var/log/orvane_daily.log 2>/dev/null | sed "s/^/   log: /"'

ip link set lo up
catch_syslog "$SYSLOG"
# Debian's udev makes /dev/fuse 0666 so that users mount through fusermount3;
# this container's is root's alone. A node of the same device that users may
# open stands in for it, in this namespace only.
if [ "$(stat -c %a /dev/fuse)" != 666 ]; then
    mknod -m 666 /run/.ov-fuse c 10 229 && mount --bind /run/.ov-fuse /dev/fuse
fi
echo "127.0.0.1 fileserver" >> /etc/hosts

smbd_up() { # an anonymous listing may be refused; a refusal still means it is up
    local out
    out=$(smbclient -s "$SMB_DIR/smb.conf" -N -L fileserver 2>&1) || grep -q 'NT_STATUS_\(ACCESS_DENIED\|LOGON_FAILURE\)' <<<"$out"
}
start_smbd() {
    id "$SMB_ACCOUNT" >/dev/null 2>&1 || useradd -M -s /usr/sbin/nologin "$SMB_ACCOUNT"
    install -d -m 755 "$SMB_DIR" && install -d -m 700 "$SMB_DIR"/{state,lock,private,cache,pid,log,ncalrpc}
    install -d -o "$SMB_ACCOUNT" "$SHARE_DIR"
    cat > "$SMB_DIR/smb.conf" <<EOF
[global]
    interfaces = lo
    bind interfaces only = yes
    server min protocol = SMB2
    state directory = $SMB_DIR/state
    lock directory = $SMB_DIR/lock
    private dir = $SMB_DIR/private
    cache directory = $SMB_DIR/cache
    pid directory = $SMB_DIR/pid
    ncalrpc dir = $SMB_DIR/ncalrpc
    log file = $SMB_DIR/log/smbd.log
    passdb backend = tdbsam:$SMB_DIR/private/passdb.tdb
    disable spoolss = yes
    load printers = no
    server role = standalone server
[$VOLUME]
    path = $SHARE_DIR
    read only = no
    valid users = $SMB_ACCOUNT
EOF
    printf '%s\n%s\n' "$SMB_PASSWORD" "$SMB_PASSWORD" | smbpasswd -c "$SMB_DIR/smb.conf" -s -a "$SMB_ACCOUNT" >/dev/null
    # In a session of its own: smbd signals its whole process group as it ends.
    setsid smbd -F --no-process-group -s "$SMB_DIR/smb.conf" </dev/null >"$SMB_DIR/log/stdout" 2>&1 &
    SMBD_PID=$!
    wait_for 100 smbd_up && return
    echo "smbd did not start:"; cat "$SMB_DIR/log/stdout" "$SMB_DIR/log/smbd.log" 2>/dev/null
    return 1
}
stop_smbd() { kill "$SMBD_PID" 2>/dev/null; wait "$SMBD_PID" 2>/dev/null; }

# The administrator with a session bus and an unlocked login keyring, as
# after a graphical log-in, and the ordinary user.
start_session() {
    id "$TEST_USER" >/dev/null 2>&1 || useradd -m -s /bin/bash -G sudo "$TEST_USER"
    id "$OTHER_USER" >/dev/null 2>&1 || useradd -m -s /bin/bash "$OTHER_USER"
    USER_RUNTIME=/run/user/$(id -u "$TEST_USER")
    install -d -o "$TEST_USER" -g "$(id -g "$TEST_USER")" -m 700 "$USER_RUNTIME"
    as_user dbus-daemon --session --address="unix:path=$USER_RUNTIME/bus" --nofork --nopidfile --syslog-only &
    BUS_PID=$!
    wait_for 50 test -S "$USER_RUNTIME/bus"
    printf '%s' "$KEYRING_PASSWORD" | as_user gnome-keyring-daemon --unlock --components=secrets --daemonize >/dev/null
    wait_for 50 as_user busctl --user status org.freedesktop.secrets >/dev/null 2>&1
}
stop_session() {
    pkill -u "$TEST_USER" gnome-keyring-d 2>/dev/null
    kill "$BUS_PID" 2>/dev/null; wait "$BUS_PID" 2>/dev/null
    rm -f "$USER_RUNTIME/bus"
}
as_user() { # as_user COMMAND...: as the administrator, in his session
    local run=/run/user/$(id -u "$TEST_USER")
    runuser -u "$TEST_USER" -- env -i HOME="/home/$TEST_USER" USER="$TEST_USER" PATH=/usr/bin:/bin \
        XDG_RUNTIME_DIR="$run" DBUS_SESSION_BUS_ADDRESS="unix:path=$run/bus" "$@"
}
as_other() { runuser -u "$OTHER_USER" -- env -i HOME="/home/$OTHER_USER" PATH=/usr/bin:/bin "$@"; }
store_password() { # store_password PASSWORD: in the administrator's keyring, for the share
    printf '%s' "$1" | as_user secret-tool store --label="Orvane Auto-Connect" \
        xdg:schema org.gnome.keyring.NetworkPassword user "$SMB_ACCOUNT" server fileserver protocol smb object "$VOLUME"
}
is_mounted() { findmnt -n --mountpoint "$1" >/dev/null; }

# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by the end-to-end tests: a desktop session inside the sandbox.
# Starts Xvfb and a session bus; defines helpers to drive windows.
. "$(dirname "${BASH_SOURCE[0]}")/../checks.sh"

export DISPLAY=:77 XDG_RUNTIME_DIR=/run/user/0 QT_QPA_PLATFORM=xcb
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
Xvfb "$DISPLAY" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
eval "$(dbus-launch --sh-syntax)"

screenshot() { # screenshot FILE
    import-im6.q16 -window root "$1"
}
# wait_for_title WINDOW TEXT SECONDS
wait_for_title() {
    local end=$((SECONDS + $3))
    while [ $SECONDS -lt $end ]; do
        xdotool getwindowname "$1" 2>/dev/null | grep -q -- "$2" && return 0
        sleep 0.25
    done
    return 1
}
# With polkit.sh: ovadmin's own session bus; "user COMMAND..." runs in it.
admin_session() {
    runtime=/tmp/ovadmin-runtime
    mkdir -p "$runtime" && chown ovadmin: "$runtime" && chmod 700 "$runtime"
    bus=$(as_admin env XDG_RUNTIME_DIR=$runtime dbus-daemon --session --fork --print-address=1 --address="unix:path=$runtime/bus")
}
user() { as_admin env DISPLAY="$DISPLAY" XDG_RUNTIME_DIR="$runtime" DBUS_SESSION_BUS_ADDRESS="$bus" QT_QPA_PLATFORM=xcb "$@"; }
left_orvane() { ! xdotool getwindowname "$window" | grep -q '^Orvane'; } # System Settings' $window shows another module

# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by the end-to-end tests: Xvfb and a session bus inside the sandbox,
# and helpers to drive System Settings.
. "$(dirname "${BASH_SOURCE[0]}")/../checks.sh"
export DISPLAY=:77 XDG_RUNTIME_DIR=/run/user/0 QT_QPA_PLATFORM=xcb
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
Xvfb "$DISPLAY" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
wait_for 50 xdpyinfo >/dev/null 2>&1
eval "$(dbus-launch --sh-syntax)"

screenshot() { import-im6.q16 -window root "$1"; } # screenshot FILE
titled() { xdotool getwindowname "$1" 2>/dev/null | grep -q -- "$2"; } # titled WINDOW TEXT
wait_for_title() { wait_for $(($3 * 10)) titled "$@"; } # wait_for_title WINDOW TEXT SECONDS
# windows SEARCH-ARGS...: xdotool's search, again when a window closed under
# it, since xdotool dies of that (BadWindow) as if nothing matched.
windows() {
    for _ in $(seq 20); do
        xdotool search "$@" 2>/tmp/xdotool.err && return 0
        grep -q 'X Error' /tmp/xdotool.err || return 1
        sleep 0.1
    done
    return 1
}
matched() { hit=$(windows "$@" | head -1); [ -n "$hit" ]; } # matched SEARCH-ARGS...: the first match in $hit
first_window() { local hit; wait_for $(($1 * 10)) matched "${@:2}" && echo "$hit"; } # first_window SECONDS SEARCH-ARGS...
shown() { first_window "${2:-10}" --onlyvisible --name "$1"; } # shown TITLE [SECONDS]: its window, once it shows
not_shown() { ! windows --onlyvisible --name "$1" >/dev/null; } # not_shown TITLE
# admin_desktop OUTPUT: with polkit.sh, ovadmin's own session bus, in which
# "user COMMAND..." runs; screenshots go to $out.
admin_desktop() {
    out=${1:?output folder} runtime=/tmp/ovadmin-runtime support="/Library/Application Support/Orvane"
    archive="$support/BackupItems.plist"
    mkdir -p "$out"
    . "$(dirname "${BASH_SOURCE[0]}")/polkit.sh"
    install -d -o ovadmin -g ovadmin -m 700 "$runtime"
    bus=$(as_admin env XDG_RUNTIME_DIR=$runtime dbus-daemon --session --fork --print-address=1 --address="unix:path=$runtime/bus")
}
user() { as_admin env DISPLAY="$DISPLAY" XDG_RUNTIME_DIR="$runtime" DBUS_SESSION_BUS_ADDRESS="$bus" QT_QPA_PLATFORM=xcb "$@"; }
drawn() { # drawn WINDOW: mostly light, as a drawn module is and a window still black is not
    import-im6.q16 -window "$1" /tmp/probe.png 2>/dev/null &&
        [ "$(convert-im6.q16 /tmp/probe.png -format '%[fx:mean>0.5]' info:)" = 1 ]
}
open_settings() { # open_settings TITLE [MODULE]: the administrator's System Settings, drawn, its window in $window
    user systemsettings "${@:2}" >>/tmp/systemsettings.log 2>&1 &
    window=$(first_window 30 --name "$1") && wait_for 600 drawn "$window"
}
click() { xdotool mousemove --window "$window" "$1" "$2" click 1; } # click X Y in $window
leave_orvane() { click 77 126; ask=$(shown 'Apply Settings'); [ -n "$ask" ]; } # another module from the sidebar: asked in $ask
back_to_orvane() { click 61 252; wait_for_title "$window" '^Orvane' 20; }
left_orvane() { ! titled "$window" '^Orvane'; } # $window shows another module
settings_gone() { ! pgrep -u ovadmin -x systemsettings >/dev/null; }

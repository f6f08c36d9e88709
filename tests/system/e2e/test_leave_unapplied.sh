#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Leaving the module with an edit once polkit has nothing kept for it, with
# a real polkitd and polkit's own text agent: for Cancel (to the product a
# wrong password is the same refusal) and no agent, the host goes on without
# waiting, nothing reaches root, and the edit is offered again; with the
# password it is applied. Screenshots go to $1.
set -u
out=${1:?output folder}
mkdir -p "$out"
. "$(dirname "$0")/desktop.sh"
. "$(dirname "$0")/polkit.sh"
agent_py="$(dirname "$0")/tty_agent.py"

password=Orvane-test-1
echo "ovadmin:$password" | chpasswd
# A second administrator: pkttyagent then asks who authenticates, and
# declining to choose is its Cancel.
id ovadmin2 >/dev/null 2>&1 || useradd -m -G sudo ovadmin2
admin_session

support="/Library/Application Support/Orvane"
archive="$support/BackupItems.plist"
unapplied=/home/ovadmin/.config/orvane/unapplied-items.plist
items_in() { "$(dirname "$0")/../items.py" "$1" | wc -l; } # items_in FILE: how many items the archive FILE holds
wait_for_file() { # wait_for_file PATH SECONDS
    for _ in $(seq $(($2 * 10))); do [ -e "$1" ] && return 0; sleep 0.1; done
    return 1
}
start_agent() { # start_agent ANSWER: the agent for System Settings, answering so
    state=$(mktemp -d /tmp/agent.XXXXXX)
    chmod 755 "$state"
    python3 "$agent_py" ovadmin "$settings_pid" "$1" "$state" &
    agent=$!
    sleep 1
}
stop_agent() {
    cp "$state/agent.log" "$out/agent-$scenario.log" 2>/dev/null
    kill "$agent" 2>/dev/null
    pkill -P "$agent" 2>/dev/null
    wait "$agent" 2>/dev/null
    agent=
}

agent=
for scenario in cancel no-agent; do
    echo "== $scenario"
    # Unlocked at start, as an administrator who left it open: polkit itself
    # has kept nothing, as once its keep time has run out.
    rm -f "$unapplied" "$archive"
    as_admin python3 -c 'import plistlib, os; os.makedirs(os.path.expanduser("~/.config"), exist_ok=True); plistlib.dump({"Locked": False}, open(os.path.expanduser("~/.config/org.orvane.Orvane.plist"), "wb"))'
    user systemsettings kcm_orvane >>/tmp/systemsettings.log 2>&1 &
    window=$(timeout 30 xdotool search --sync --name '^Orvane' | head -1)
    check "$scenario: System Settings shows Orvane" test -n "$window" || break
    settings_pid=$(xdotool getwindowpid "$window")
    sleep 3
    [ $scenario = cancel ] && start_agent cancel

    # An edit: a new item. Then another module from the sidebar.
    xdotool mousemove --window "$window" 305 426 click 1
    sleep 1
    xdotool mousemove --window "$window" 77 126 click 1
    ask=$(timeout 10 xdotool search --sync --onlyvisible --name 'Apply Settings' | head -1)
    check "$scenario: System Settings asks to apply" test -n "$ask"
    xdotool key --window "$ask" alt+a
    if [ -n "$agent" ]; then
        check "$scenario: the agent asks for the password" wait_for_file "$state/asked" 60
        sleep 1
        check "$scenario: System Settings went on to the other module while the agent asks" left_orvane
        screenshot "$out/unapplied-$scenario-asking.png"
        touch "$state/answer"
        check "$scenario: the agent reported its outcome" wait_for_file "$state/done" 60
    fi
    box=$(timeout 60 xdotool search --sync --onlyvisible --name 'not in place' | head -1)
    check "$scenario: System Settings says the changes are not in place" test -n "$box"
    screenshot "$out/unapplied-$scenario-told.png"
    check "$scenario: nothing reached root" test ! -e "$archive"
    check "$scenario: the edit is kept" test "$(items_in "$unapplied")" = 2
    xdotool key --window "$box" Return
    sleep 0.5
    [ -n "$agent" ] && stop_agent

    # Back in Orvane: the edit is there, offered again.
    xdotool mousemove --window "$window" 61 252 click 1
    check "$scenario: System Settings shows Orvane again" wait_for_title "$window" '^Orvane' 20
    sleep 2
    screenshot "$out/unapplied-$scenario-offered.png"
    if [ $scenario = no-agent ]; then
        # Applied from the offer, with the password this time.
        start_agent "password:$password"
        # The offer's Apply, at the top of the module.
        xdotool mousemove --window "$window" 806 120 click 1
        check "$scenario: applying again asks for the password" wait_for_file "$state/asked" 60
        touch "$state/answer"
        for _ in $(seq 300); do [ "$(items_in "$archive")" = 2 ] && break; sleep 0.2; done
        check "$scenario: applied, the edit is in place" test "$(items_in "$archive")" = 2
        # (The job forgets them once its last helper is done.)
        for _ in $(seq 300); do [ ! -e "$unapplied" ] && break; sleep 0.2; done
        check "$scenario: and no longer kept aside" test ! -e "$unapplied"
        screenshot "$out/unapplied-applied.png"
        stop_agent
    fi
    # Gone before the next one starts (a second System Settings hands its
    # arguments to a running one and ends).
    xdotool key --window "$window" ctrl+q
    sleep 2
    pkill -u ovadmin -x systemsettings 2>/dev/null
    for _ in $(seq 50); do pgrep -u ovadmin -x systemsettings >/dev/null || break; sleep 0.2; done
    pkill -9 -u ovadmin -x systemsettings 2>/dev/null
    sleep 0.5
done
finish

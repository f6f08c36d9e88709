#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Leaving the module with an edit once polkit has nothing kept for it, with
# a real polkitd and polkit's own text agent: for Cancel (to the product a
# wrong password is the same refusal) and no agent, the host goes on without
# waiting, nothing reaches root, and the edit is offered again; with the
# password it is applied. Screenshots go to $1.
set -u
. "$(dirname "$0")/desktop.sh"
admin_desktop "$@"
password=Orvane-test-1
echo "ovadmin:$password" | chpasswd
# A second administrator: pkttyagent then asks who authenticates, and
# declining to choose is its Cancel.
id ovadmin2 >/dev/null 2>&1 || useradd -m -G sudo ovadmin2
unapplied=/home/ovadmin/.config/orvane/unapplied-items.plist
items_in() { "$(dirname "$0")/../items.py" "$1" | wc -l; } # items_in FILE: how many items the archive FILE holds
start_agent() { # start_agent ANSWER: the agent for System Settings, answering so
    state=$(mktemp -d -p /tmp) && chmod 755 "$state"
    python3 "$(dirname "$0")/tty_agent.py" ovadmin "$settings_pid" "$1" "$state" &
    agent=$!
    sleep 1
}
stop_agent() {
    cp "$state/agent.log" "$out/agent-$scenario.log" 2>/dev/null
    kill "$agent" 2>/dev/null; pkill -P "$agent" 2>/dev/null; wait "$agent" 2>/dev/null
    agent=
}

agent=
for scenario in cancel no-agent; do
    echo "== $scenario"
    # Unlocked at start, as an administrator who left it open: polkit itself
    # has kept nothing, as once its keep time has run out.
    rm -f "$unapplied" "$archive"
    as_admin python3 -c 'import plistlib, os; os.makedirs(os.path.expanduser("~/.config"), exist_ok=True); plistlib.dump({"Locked": False}, open(os.path.expanduser("~/.config/org.orvane.Orvane.plist"), "wb"))'
    check "$scenario: System Settings shows Orvane" open_settings '^Orvane' kcm_orvane || break
    settings_pid=$(xdotool getwindowpid "$window")
    sleep 3
    [ $scenario = cancel ] && start_agent cancel
    click 305 426; sleep 1 # an edit: a new item
    check "$scenario: System Settings asks to apply" leave_orvane
    xdotool key --window "$ask" alt+a
    if [ -n "$agent" ]; then
        check "$scenario: the agent asks for the password" wait_for 600 test -e "$state/asked"
        check "$scenario: System Settings went on to the other module while the agent asks" wait_for 100 left_orvane
        screenshot "$out/unapplied-$scenario-asking.png"
        touch "$state/answer"
        check "$scenario: the agent reported its outcome" wait_for 600 test -e "$state/done"
    fi
    box=$(shown 'not in place' 60)
    check "$scenario: System Settings says the changes are not in place" test -n "$box"
    screenshot "$out/unapplied-$scenario-told.png"
    check "$scenario: nothing reached root" test ! -e "$archive"
    check "$scenario: the edit is kept" test "$(items_in "$unapplied")" = 2
    xdotool key --window "$box" Return; sleep 0.5
    [ -n "$agent" ] && stop_agent

    check "$scenario: System Settings shows Orvane again" back_to_orvane
    sleep 2
    screenshot "$out/unapplied-$scenario-offered.png"
    if [ $scenario = no-agent ]; then
        # Applied from the offer's Apply, at the top of the module, with the password this time.
        start_agent "password:$password"
        click 806 120
        check "$scenario: applying again asks for the password" wait_for 600 test -e "$state/asked"
        touch "$state/answer"
        check "$scenario: applied, the edit is in place" wait_for 600 eval '[ "$(items_in "$archive")" = 2 ]'
        # (The job forgets them once its last helper is done.)
        check "$scenario: and no longer kept aside" wait_for 600 test ! -e "$unapplied"
        screenshot "$out/unapplied-applied.png"
        stop_agent
    fi
    # Gone before the next one starts (a second System Settings hands its
    # arguments to a running one and ends).
    xdotool key --window "$window" ctrl+q; sleep 2
    pkill -u ovadmin -x systemsettings 2>/dev/null
    wait_for 100 settings_gone || pkill -9 -u ovadmin -x systemsettings 2>/dev/null
    sleep 0.5
done
finish

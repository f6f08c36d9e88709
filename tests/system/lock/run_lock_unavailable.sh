#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The lock with nobody to ask for the password, as an administrator who is
# not root: first a system bus where polkit cannot even be started, then a
# real polkitd (the action's default: an administrator's password) with no
# agent in the session.
set -u
test_binary=${1:?test binary}
id ovadmin >/dev/null 2>&1 || useradd -m -G sudo ovadmin
install -d -o ovadmin -g ovadmin -m 700 /tmp/ovadmin-runtime
run() {
    setpriv --reuid=ovadmin --regid=ovadmin --init-groups --reset-env -- \
        env HOME=/home/ovadmin OV_IN_SANDBOX=1 QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=/tmp/ovadmin-runtime "$test_binary" "$@"
}
status=0
run answersThatAreNoRefusal || status=1
# No polkit: the bus may not start it either (the sandbox's overlay forgets this).
rm -f /usr/share/dbus-1/system-services/org.freedesktop.PolicyKit1.service
mkdir -p /run/dbus && dbus-daemon --system --fork --nopidfile
for _ in $(seq 50); do [ -S /run/dbus/system_bus_socket ] && break; sleep 0.1; done
run noAuthority || status=1
# polkitd, and no agent: the action's default asks for a password nobody can ask.
/usr/lib/polkit-1/polkitd --no-debug >/tmp/polkitd.log 2>&1 &
for _ in $(seq 100); do busctl --system status org.freedesktop.PolicyKit1 >/dev/null 2>&1 && break; sleep 0.1; done
run noAgent || status=1
exit $status

# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by tests that need the lock: a system D-Bus and a real polkitd in the
# sandbox (started once, however many shells source this), a rule of ours that
# grants or denies the unlock, and an administrator who is not root (polkitd
# authorizes root for anything).
id ovadmin >/dev/null 2>&1 || useradd -m -G sudo ovadmin
if [ ! -S /run/dbus/system_bus_socket ]; then
    mkdir -p /run/dbus && dbus-daemon --system --fork --nopidfile
    for _ in $(seq 50); do [ -S /run/dbus/system_bus_socket ] && break; sleep 0.1; done
    /usr/lib/polkit-1/polkitd --no-debug >/tmp/polkitd.log 2>&1 &
fi
as_admin() { setpriv --reuid=ovadmin --regid=ovadmin --init-groups --reset-env -- env HOME=/home/ovadmin "$@"; } # with ovadmin's groups
# polkit_rule grant|deny [USER]: the unlock decided without a password dialog,
# for everyone or for USER alone (others refused); polkit_rule default: polkit's
# own (an administrator's password, which nobody gives here).
polkit_rule() {
    # A new file each time: polkitd reloads when a rules file comes or goes.
    rm -f /etc/polkit-1/rules.d/50-orvane-test-*.rules
    local result=NO others= status
    [ "$1" = grant ] && result=YES
    [ -z "${2:-}" ] || others="subject.user != \"$2\" ? polkit.Result.NO : "
    [ "$1" = default ] || cat > "/etc/polkit-1/rules.d/50-orvane-test-$1.rules" <<RULE
polkit.addRule(function(action, subject) {
    if (action.id == "org.orvane.Orvane.unlock") return ${others}polkit.Result.$result;
});
RULE
    for _ in $(seq 100); do
        status=0 # (also under "set -e": a refusal is an answer here)
        as_admin sh -c 'exec pkcheck --action-id org.orvane.Orvane.unlock --process $$' >/dev/null 2>&1 || status=$?
        case "$status:$1" in 0:grant | [123]:deny | [123]:default) return 0 ;; esac
        sleep 0.1
    done
    echo "polkitd did not take the $1 rule" >&2; return 1
}

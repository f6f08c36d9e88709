# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by the shell tests: named checks counted, a failure's context shown
# (SHOW_ON_FAILURE, evaluated), the tally at the end, and waits they share.
passed=0 failed=0
check() { # check DESCRIPTION COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); echo "ok: $1"; return; fi
    failed=$((failed + 1)); echo "FAILED: $1"
    [ -z "${SHOW_ON_FAILURE:-}" ] || eval "$SHOW_ON_FAILURE"
    return 1
}
same() { [ "$1" = "$2" ] || { printf '   got:\n%s\n   expected:\n%s\n' "$1" "$2"; return 1; }; } # same GOT EXPECTED
finish() { echo "$passed passed, $failed failed"; [ "$failed" -eq 0 ]; }
wait_for() { local _wait_left=$1; shift; until "$@"; do ((_wait_left-- > 0)) || return 1; sleep 0.1; done; } # wait_for TENTHS COMMAND...
cron_run() { env -i LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@" >/dev/null 2>&1; } # cron_run SCRIPT: as cron runs it

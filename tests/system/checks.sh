# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by the shell tests: named checks counted, a failure's context shown
# (SHOW_ON_FAILURE, evaluated), and the tally at the end.
passed=0
failed=0
check() { # check DESCRIPTION COMMAND...
    if "${@:2}"; then
        passed=$((passed + 1)); echo "ok: $1"
    else
        failed=$((failed + 1)); echo "FAILED: $1"
        [ -z "${SHOW_ON_FAILURE:-}" ] || eval "$SHOW_ON_FAILURE"
        return 1
    fi
}
same() { [ "$1" = "$2" ] || { printf '   got:\n%s\n   expected:\n%s\n' "$1" "$2"; return 1; }; } # same GOT EXPECTED
finish() {
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}

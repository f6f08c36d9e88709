#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The lock test as an administrator who is not root, against a real polkitd
# whose rules first grant the unlock, then deny it.
set -u
test_binary=${1:?test binary}
. "$(dirname "$0")/../e2e/polkit.sh"
run() { as_admin env OV_IN_SANDBOX=1 QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=/tmp/ovadmin-runtime "$test_binary" "$@"; }
install -d -o ovadmin -g ovadmin -m 700 /tmp/ovadmin-runtime
# Each frequency has run once: the markers the scripts leave, as root.
for folder in daily weekly monthly; do echo 12/31/05 > "/Library/Application Support/Orvane/.$folder/.lastbackup"; done
status=0
polkit_rule grant || exit 1
run grantedUnlockThenLock startsUnlockedOnlyForAdminWhoLeftItOpen enablingFollowsLockAndMaster foldersStayRootsAlone || status=1
polkit_rule deny || exit 1
run deniedUnlockStaysLocked refusedSaveKeepsTheEdit || status=1
exit $status

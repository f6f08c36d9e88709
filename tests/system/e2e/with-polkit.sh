#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# A test binary as root with a system D-Bus and polkitd, so the pane's lock can really open.
set -u
. "$(dirname "$0")/polkit.sh"
QT_QPA_PLATFORM=offscreen "$@"

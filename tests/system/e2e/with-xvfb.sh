#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# with-xvfb.sh COMMAND...: runs COMMAND on a fresh Xvfb display with a
# session bus, as a desktop program would run.
set -u
. "$(dirname "$0")/desktop.sh"
export QT_QPA_PLATFORM=xcb
"$@"

#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# with-xvfb.sh COMMAND...: COMMAND on a fresh Xvfb display with a session bus, as a desktop program runs.
set -u
. "$(dirname "$0")/desktop.sh"
"$@"

#!/bin/sh
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Times archiving and reading back 20,000 backup items (the module reads the
# archive at every start; the goal is under a second). Any user:
#   bench/items-archive.sh [BUILD_DIR]
set -eu
build=${1:-build}
cmake --build "$build" --target test_hostile_plists -j2 >/dev/null
for run in 1 2 3; do
    "$build/bin/test_hostile_plists" twentyThousandItems 2>&1 | sed -n 's/.*QINFO *: *[^ ]* *//p'
done

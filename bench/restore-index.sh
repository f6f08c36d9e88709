#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# bench/restore-index.sh [BUILD_DIR]: the restore window's speed on a large
# backup: a source of 100,000 files (one folder of 10,000), its backup copy,
# and 30 Safety Net archives of daily runs, each holding the 1,000 files of
# the big folder and the 2,000 others that its run replaced (every one of
# them holding the probed file). Prints the time to list one file's
# versions and to show the big folder as of a date and now.
set -euo pipefail
build=$(realpath "${1:-build}")
cmake --build "$build" --target restore-index -j2 >/dev/null
root=$(mktemp -d /var/tmp/ov-restore-bench.XXXXXX)
trap 'rm -rf "$root"' EXIT

python3 - "$root" <<'PY'
import os, sys
root = sys.argv[1]
src, dest = f"{root}/source", f"{root}/disk/backup"
sn = f"{root}/Safety Net Archives"
def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    os.utime(path, (1764547200, 1764547200))  # 2025-12-01, before every run
os.makedirs(f"{dest}/big")
for i in range(10000):
    write(f"{dest}/big/file{i:05d}.txt", f"big {i}\n")
for d in range(90):
    os.makedirs(f"{dest}/folder{d:02d}")
    for i in range(1000):
        write(f"{dest}/folder{d:02d}/file{i:04d}.txt", f"{d} {i}\n")
os.makedirs(f"{root}/support/.daily")
write(f"{root}/support/.daily/.lastbackup", "01/31/26\n")
for run in range(30):
    arch = f"{sn}/2026-01-{run + 1:02d} 20.00.00 Daily{dest}"
    os.makedirs(f"{arch}/big")
    for i in range(run * 300, run * 300 + 1000):
        os.link(f"{dest}/big/file{i % 10000:05d}.txt", f"{arch}/big/file{i % 10000:05d}.txt")
    if not os.path.exists(f"{arch}/big/file05000.txt"):
        os.link(f"{dest}/big/file05000.txt", f"{arch}/big/file05000.txt")
    for k in range(2000):
        d, i = (run + k) % 90, (run * 37 + k) % 1000
        os.makedirs(f"{arch}/folder{d:02d}", exist_ok=True)
        target = f"{arch}/folder{d:02d}/file{i:04d}.txt"
        if not os.path.exists(target):
            os.link(f"{dest}/folder{d:02d}/file{i:04d}.txt", target)
# The source holds the same files now.
os.system(f"cp -al '{dest}' '{src}'")
PY
echo "files in the source: $(find "$root/source" -type f | wc -l); archives: $(ls "$root/Safety Net Archives" | wc -l)"
"$build/bin/restore-index" "$root"

#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The change journal against bare "rsync -a --delete" on FILES small files
# (default 100,000: 100 folders of 1,000, or of OV_BENCH_PER_FOLDER) on a
# real disk: an ext4 image, loop-mounted, in a folder beside the source tree
# (so on the machine's disk, not in the sandbox's memory). In turns with
# rsync, median of 7: a rerun with nothing changed; then (median of 5, other files each time)
# 1% appended, 1% deleted, 1% new and one folder of files renamed,
# with the Safety Net on; the copies with the journal are psync's, from the
# install. Then what the daemon costs: CPU seconds per 10,000 changes, and
# its memory with 1,000,000 files in the source.
# A measurement, not a test. Needs the installed daemon: run it as root in
# the test sandbox,
#   tests/sandbox/ov-sandbox --install build -- bench/journal-vs-rsync.sh [FILES]
# backup-vs-rsync.sh runs it too, after its own cases.
set -eu
files=${1:-100000}
export OV_BENCH_PER_FOLDER=${OV_BENCH_PER_FOLDER:-1000} # files per folder
root=$(cd "$(dirname "$0")/.." && pwd)
journal=/usr/libexec/orvane-journal
[ -x "$journal" ] || { echo "journal-vs-rsync: no $journal: run it in the sandbox with --install" >&2; exit 2; }

work=$(mktemp -d "$root/.journal-bench.XXXXXX")
disk=$work/disk
mkdir "$disk"
truncate -s 12G "$work/image"
mkfs.ext4 -q -N 1400000 "$work/image"
device=$(losetup -f --show "$work/image")
mount "$device" "$disk"
daemon=
cleanup() {
    [ -z "$daemon" ] || { kill -CONT "$daemon"; kill "$daemon"; wait "$daemon" || true; }
    umount "$disk" || umount -l "$disk"
    losetup -d "$device"
    rm -rf "$work"
}
trap cleanup EXIT
case $(stat -f -c %T "$work") in
    tmpfs | overlayfs) echo "journal-vs-rsync: $work is in memory, not on a disk: figures are not the disk's" >&2 ;;
esac

src=$disk/source
echo "making $files files on ext4 (loop device on $(stat -f -c %T "$work"))..."
python3 - "$src" "$files" <<'PY'
import os, sys
per = int(os.environ['OV_BENCH_PER_FOLDER'])
root, count = sys.argv[1], int(sys.argv[2])
for i in range(count):
    folder = os.path.join(root, "folder %03d" % (i // per))
    if i % per == 0:
        os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "file %06d.txt" % i), "w") as f:
        f.write("small file %d\n" % i * (2 + i % 12))
PY
"$journal" 2>"$work/journal.log" &
daemon=$!
for _ in $(seq 50); do "$journal" --status >/dev/null 2>&1 && break; sleep 0.1; done

seconds() { local start end; start=$(date +%s.%N); "$@" >/dev/null; end=$(date +%s.%N); echo "$end - $start" | bc; }
median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ratio() { echo "scale=3; $1 / $2" | bc; }
bare() { rsync -a --delete "$src/" "$disk/by-rsync/"; }

# A run with the journal: psync as the scripts run it, which takes the cut,
# hands rsync its lists (or walks everything) and commits the cut.
psync=/usr/local/bin/psync
with_journal() {
    local net=()
    [ -z "${safety_net:-}" ] || net=("--safety-net=$disk/net" --safety-net-owner=root "--archive=$safety_net")
    "$psync" -d "${net[@]}" "$src" "$disk/by-journal"
}

# case NAME ROUNDS PREPARE: ROUNDS turns of PREPARE, then the journal's run
# and rsync's, which goes first in every other turn.
run_case() {
    local name=$1 rounds=$2 prepare=$3 i
    : > "$work/$name.journal"; : > "$work/$name.rsync"
    for ((i = 0; i < rounds; i++)); do
        $prepare "$i"
        if ((i % 2)); then
            seconds bare >> "$work/$name.rsync"
            seconds with_journal >> "$work/$name.journal"
        else
            seconds with_journal >> "$work/$name.journal"
            seconds bare >> "$work/$name.rsync"
        fi
    done
}
nothing() { :; }
# Round N: 1% appended, 1% deleted, 1% new (none touched before), and the
# N-th folder from the end renamed; the Safety Net is emptied first.
change() {
    rm -rf "$disk/net/"*
    safety_net=round-$1
    python3 - "$src" "$files" "$1" <<'PY'
import os, sys
per = int(os.environ['OV_BENCH_PER_FOLDER'])
root, count, round_ = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
def path(i):
    folder = os.path.join(root, "folder %03d" % (i // per))
    if not os.path.exists(folder):
        folder += " renamed"
    return os.path.join(folder, "file %06d.txt" % i)
for i in range(round_, count, 100):
    with open(path(i), "a") as f:
        f.write("changed\n")
for i in range(50 + round_, count, 100):
    os.remove(path(i))
for i in range(25 + round_, count, 100):
    with open(path(i) + ".new", "w") as f:
        f.write("new file %d\n" % i)
folder = os.path.join(root, "folder %03d" % (count // per - 1 - round_))
os.rename(folder, folder + " renamed")
PY
}

mkdir "$disk/by-rsync" "$disk/by-journal" "$disk/net"
bare
with_journal >/dev/null # the first run to a destination walks fully
sync
run_case rerun 7 nothing
said=$(with_journal | grep '^psync: ')
run_case change 5 change
kept=$(find "$disk/net" -type f | wc -l)
same=$(diff -r "$src" "$disk/by-journal" >/dev/null && echo yes || echo NO)

# The daemon's own cost: CPU for 10,000 appends, read and settled by a cut
# (not copied: the copy's own writes on this disk would count too), and its
# memory once 1,000,000 files are in the source (made in new folders), then
# once every first file changed.
cpu() { awk '{print ($14 + $15) / '"$(getconf CLK_TCK)"'}' "/proc/$daemon/stat"; }
before=$(cpu)
touch_all() { # COUNT: appends to COUNT files of the source
    python3 - "$src" "$1" <<'PY'
import os, sys
root, count, done = sys.argv[1], int(sys.argv[2]), 0
for folder, _, names in os.walk(root):
    for name in names:
        if done == count:
            sys.exit(0)
        with open(os.path.join(folder, name), "a") as f:
            f.write("+")
        done += 1
PY
}
memory() { "$journal" --cut "$src" "$disk/by-journal" /dev/null /dev/null >/dev/null; awk '/VmRSS/ {print int($2 / 1024)}' "/proc/$daemon/status"; }
touch_all 10000
memory >/dev/null
per10k=$(echo "$(cpu) - $before" | bc)
python3 - "$src" "${OV_BENCH_WATCHED:-1000000}" <<'PY'
import os, sys
for folder in range(int(sys.argv[2]) // 1000):
    path = os.path.join(sys.argv[1], "million", "%03d" % folder)
    os.makedirs(path)
    for i in range(1000):
        open(os.path.join(path, "%d" % i), "w").close()
PY
million=$(memory)
touch_all "$files"
changed=$(memory)
peak=$(awk '/VmHWM/ {print int($2 / 1024)}' "/proc/$daemon/status")

printf '| %s small files in folders of %s on ext4, Safety Net on in the change case | with the journal (s) | bare rsync (s) | ratio |\n| --- | --- | --- | --- |\n' "$(printf "%'d" "$files")" "$(printf "%'d" "$OV_BENCH_PER_FOLDER")"
row() {
    local j r
    j=$(median < "$work/$2.journal"); r=$(median < "$work/$2.rsync")
    printf '| %s | %.3f | %.2f | %s |\n' "$1" "$j" "$r" "$(ratio "$j" "$r")"
}
row "rerun, nothing changed (median of 7)" rerun
row "1% appended, 1% deleted, 1% new, a $(printf "%'d" "$OV_BENCH_PER_FOLDER")-file folder renamed (median of 5)" change
echo "psync on a rerun with nothing changed said: $said"
echo "the copy with the journal equals the source: $same; the last Safety Net archive holds $kept files"
echo "the daemon: $per10k s of CPU per 10,000 changes; $million MiB resident with $(find "$src" -type f | wc -l) files in the source; $changed MiB once $files of them changed (peak $peak MiB)"

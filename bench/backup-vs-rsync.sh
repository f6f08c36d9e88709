#!/bin/bash
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Times a filled daily backup script against bare "rsync -a --delete" on the
# same tree of small files, each case run in turns with rsync: the first copy (median of 3), a rerun
# with nothing changed (median of 7), the same with the Safety Net on
# (median of 7), and a rerun after 1% of the files changed and 1% were
# deleted, Safety Net on (median of 5, other files each time), in which
# turns "rsync -a --delete --backup --backup-dir" alone also runs, into a
# folder inside the destination given as a relative path, as the script
# gives it: the floor of that case. Then psync alone: a first copy into an
# empty target, a rerun with extended attributes and ACLs kept, and a rerun
# with 500 folders left out by a pattern. It is a measurement, not a test.
# Run it as root inside the test sandbox so the script's status files stay
# there, with the product installed:
#   tests/sandbox/ov-sandbox --install build -- bench/backup-vs-rsync.sh [FILES]
# It works in a folder on a real disk (the sandbox's /tmp and /var/tmp are in
# memory): OV_BENCH_DIR, by default beside the source tree. The files are in
# folders of OV_BENCH_PER_FOLDER (1,000; 10 makes a tree heavy with folders).
set -eu
files=${1:-100000}
export OV_BENCH_PER_FOLDER=${OV_BENCH_PER_FOLDER:-1000} # files per folder
root=$(cd "$(dirname "$0")/.." && pwd)
psync=/usr/local/bin/psync
bench_dir=${OV_BENCH_DIR:-$root/.bench}
mkdir -p "$bench_dir"
work=$(mktemp -d "$bench_dir/ov-bench.XXXXXX")
trap 'rm -rf "$work"; rmdir "$bench_dir" 2>/dev/null || true' EXIT
src=$work/source
mkdir -p "$src" "$work/Safety Net Archives"

echo "making $files files..."
python3 - "$src" "$files" <<'PY'
import os, sys
per = int(os.environ['OV_BENCH_PER_FOLDER'])
root, count = sys.argv[1], int(sys.argv[2])
for i in range(count):
    folder = os.path.join(root, "folder %03d" % (i // per))
    if i % per == 0:
        os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "file %06d.txt" % i), "w") as f:
        f.write("small file %d\n" % i * 4)
PY

# The template filled as the pane fills it: each placeholder line once.
esc() { printf '%s' "$1" | sed 's/[\\"#]/\\&/g'; }
fill() {
    sed -e "s|^#ov_backupCommand\$|backupCommand = \"$psync -d\"|" \
        -e "s|^#ov_sourceFolders\$|sourceFolders = [ \"$(esc "$src")\" ]|" \
        -e "s|^#ov_destFolders\$|destFolders = [ \"$(esc "$work/by-script")\" ]|" \
        -e "s|^#ov_logfile\$|logfile = \"$(esc "$work/daily.log")\"|" \
        -e "s|^#ov_lastBackup\$|lastBackup = \"$(esc "$work/lastbackup")\"|" \
        "$@" "$root/resources/backup_script.rb"
}
script=$work/orvane_daily.rb
fill > "$script"
fill -e 's|^shouldArchive = shouldArchive$|shouldArchive = true|' -e 's|^maxArchives = 0$|maxArchives = 3|' \
    -e "s|^safetyNetFolder = safetyNetFolder\$|safetyNetFolder = \"$(esc "$work/Safety Net Archives")\"|" > "$script.net"
chmod 700 "$script" "$script.net"

seconds() { local start end; start=$(date +%s.%N); "$@" >/dev/null; end=$(date +%s.%N); echo "$end - $start" | bc; }
median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ratio() { echo "scale=2; $1 / $2" | bc; }
bare() { rsync -a --delete "$src/" "$work/by-rsync/"; }
# case NAME ROUNDS PREPARE SCRIPT: ROUNDS turns of PREPARE, then the script
# and rsync, which goes first in every other turn (the second meets caches
# the first has warmed).
# With FLOOR, that command runs too, between the two.
run_case() {
    local name=$1 rounds=$2 prepare=$3 command=$4 floor=${5:-} i
    : > "$work/$name.script"; : > "$work/$name.rsync"; : > "$work/$name.floor"
    for ((i = 0; i < rounds; i++)); do
        $prepare "$i"
        if ((i % 2)); then
            seconds bare >> "$work/$name.rsync"
            [ -z "$floor" ] || seconds $floor >> "$work/$name.floor"
            seconds "$command" >> "$work/$name.script"
        else
            seconds "$command" >> "$work/$name.script"
            [ -z "$floor" ] || seconds $floor >> "$work/$name.floor"
            seconds bare >> "$work/$name.rsync"
        fi
    done
}
# rsync with the Safety Net's options alone, into a staging folder at the
# destination's top reached by a relative path, as the script does.
floor() {
    rsync -a --delete --backup --backup-dir=.floor-kept/kept --exclude=/.floor-kept "$src/" "$work/by-floor/"
}
floor_done() { rm -rf "$work/by-floor/.floor-kept"; }
nothing() { :; }
# Earlier copies are moved aside, not deleted: creating right after a mass
# delete is slow on this disk, and would slow whichever copy came first.
fresh() {
    mkdir -p "$work/old"
    moved=$((${moved:-0} + 1))
    for copy in by-script by-rsync; do [ ! -e "$work/$copy" ] || mv "$work/$copy" "$work/old/$copy.$moved"; done
    mkdir "$work/by-script" "$work/by-rsync"
    sync
}
# Round N appends to 1% of the files and deletes another 1%, none touched
# before.
change() {
    python3 - "$src" "$files" "$1" <<'PY'
import os, sys
per = int(os.environ['OV_BENCH_PER_FOLDER'])
root, count, round_ = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
for i in range(round_, count, 100):
    with open(os.path.join(root, "folder %03d" % (i // per), "file %06d.txt" % i), "a") as f:
        f.write("changed\n")
for i in range(50 + round_, count, 100):
    os.remove(os.path.join(root, "folder %03d" % (i // per), "file %06d.txt" % i))
PY
}

sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true
run_case first 3 fresh "$script"
run_case rerun 7 nothing "$script"
run_case rerun-net 7 nothing "$script.net"
rm -rf "$work/by-floor"; cp -a "$work/by-script" "$work/by-floor"
change_and_clean() { floor_done; change "$@"; }
run_case change-net 5 change_and_clean "$script.net" floor
floor_done
kept=$(find "$work/Safety Net Archives" -type f | wc -l)
diff -r "$src" "$work/by-script" >/dev/null && same=yes || same=NO

in_folders="in $(printf "%'d" $(((files + OV_BENCH_PER_FOLDER - 1) / OV_BENCH_PER_FOLDER))) folders"
printf '| %s small files %s | script (s) | bare rsync (s) | ratio |\n| --- | --- | --- | --- |\n' "$(printf "%'d" "$files")" "$in_folders"
row() {
    local s r
    s=$(median < "$work/$2.script"); r=$(median < "$work/$2.rsync")
    printf '| %s | %.2f | %.2f | %s |\n' "$1" "$s" "$r" "$(ratio "$s" "$r")"
}
row "first copy (median of 3)" first
row "rerun, nothing changed (median of 7)" rerun
row "rerun, nothing changed, Safety Net on (median of 7)" rerun-net
row "rerun, 1% changed and 1% deleted, Safety Net on (median of 5)" change-net
s=$(median < "$work/change-net.floor"); r=$(median < "$work/change-net.rsync")
printf '| the same, rsync --backup --backup-dir alone (the floor) | %.2f | %.2f | %s |\n' "$s" "$r" "$(ratio "$s" "$r")"
echo "Safety Net archives hold $kept files; the script's copy equals the source: $same"

# --- psync alone ------------------------------------------------------------
# Extended attributes on 1% of the files (Dolphin's tags) and an ACL on 1% of
# the folders: psync keeps them; its ratios are to bare "rsync -a --delete",
# which keeps neither.
python3 - "$src" "$files" <<'PY'
import os, sys
per = int(os.environ['OV_BENCH_PER_FOLDER'])
root, count = sys.argv[1], int(sys.argv[2])
for i in range(0, count, 100):
    os.setxattr(os.path.join(root, "folder %03d" % (i // per), "file %06d.txt" % i), "user.xdg.tags", b"bench")
PY
for folder in "$src"/folder\ 0?0; do setfacl -m u:nobody:rx "$folder"; done
# A first copy into a new folder each turn (creating right after a mass
# delete is slow on this disk; the old copies go at the end).
fresh_target() { local t; t=$(mktemp -d "$work/t.XXXXXX"); chmod 755 "$t"; echo "$t"; }
first_psync() { "$psync" -d "$src" "$(fresh_target)"; }
first_rsync() { rsync -a --delete "$src/" "$(fresh_target)/"; }
pair() { # NAME ROUNDS A B: turns of A and B, B first every other turn
    local name=$1 rounds=$2 a=$3 b=$4 i
    : > "$work/$name.a"; : > "$work/$name.b"
    for ((i = 0; i < rounds; i++)); do
        if ((i % 2)); then seconds $b >> "$work/$name.b"; seconds $a >> "$work/$name.a"
        else seconds $a >> "$work/$name.a"; seconds $b >> "$work/$name.b"; fi
    done
}
pair psync-first 3 first_psync first_rsync
mkdir "$work/kept-psync" "$work/kept-rsync" "$work/kept-ax"
"$psync" -d "$src" "$work/kept-psync" >/dev/null
rsync -a --delete "$src/" "$work/kept-rsync/"
rsync -aAX --delete "$src/" "$work/kept-ax/"
rerun_psync() { "$psync" -d "$src" "$work/kept-psync"; }
rerun_rsync() { rsync -a --delete "$src/" "$work/kept-rsync/"; }
rerun_ax() { rsync -aAX --delete "$src/" "$work/kept-ax/"; }
pair psync-rerun 7 rerun_psync rerun_rsync
pair ax-rerun 7 rerun_ax rerun_rsync
meta_same=$(rsync -ainAX --delete "$src/" "$work/kept-psync/" | wc -l)
# 500 folders named like a build tool's output, at depth, left out by one
# pattern, against the same rerun that copies them.
python3 - "$src" <<'PY'
import os, sys
for i in range(500):
    folder = os.path.join(sys.argv[1], "folder %03d" % (i % 100), "project %d" % i, "node_modules")
    os.makedirs(folder)
    for j in range(10):
        open(os.path.join(folder, "module %d.js" % j), "w").write("module\n")
PY
mkdir "$work/excl-with" "$work/excl-without"
"$psync" -d --exclude=node_modules/ "$src" "$work/excl-with" >/dev/null
"$psync" -d "$src" "$work/excl-without" >/dev/null
rerun_excluded() { "$psync" -d --exclude=node_modules/ "$src" "$work/excl-with"; }
rerun_all() { "$psync" -d "$src" "$work/excl-without"; }
pair psync-exclude 7 rerun_excluded rerun_all
rm -rf "$work"/t.*

printf '\n| psync, %s small files %s, metadata kept | psync (s) | other (s) | ratio | target |\n| --- | --- | --- | --- | --- |\n' "$(printf "%'d" "$files")" "$in_folders"
prow() {
    local a b
    a=$(median < "$work/$2.a"); b=$(median < "$work/$2.b")
    printf '| %s | %.2f | %.2f | %s | %s |\n' "$1" "$a" "$b" "$(ratio "$a" "$b")" "$3"
}
prow "first copy into an empty target, vs bare rsync (median of 3)" psync-first "<= 0.70"
prow "rerun, nothing changed, vs bare rsync (median of 7)" psync-rerun "<= 1.30"
prow "for reference: rsync -aAX rerun, vs bare rsync (median of 7)" ax-rerun "-"
prow "rerun, 500 folders left out by a pattern, vs the same rerun without (median of 7)" psync-exclude "<= 1.05"
echo "rsync -ainAX between the source and psync's copy lists $meta_same differences (0: exact, metadata included)"

# The change journal's cases, on a disk of their own (bench/journal-vs-rsync.sh),
# where the daemon is installed (the sandbox with --install).
[ ! -x /usr/libexec/orvane-journal ] || "$root/bench/journal-vs-rsync.sh" "$files"

#!/bin/bash
# Times a filled daily backup script against bare "rsync -a --delete" on the
# same tree of small files: the first copy, a rerun with nothing changed
# (median of 7), and a rerun after 1% of the files changed and 1% were
# deleted, with the script's Safety Net on. Run it as root inside the test
# sandbox so the script's status files stay there:
#   tests/sandbox/ov-sandbox -- bench/backup-vs-rsync.sh [FILES]
set -eu
files=${1:-100000}
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /var/tmp/ov-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
src=$work/source
mkdir -p "$src" "$work/by-script" "$work/by-rsync" "$work/Safety Net Archives"

echo "making $files files..."
python3 - "$src" "$files" <<'PY'
import os, sys
root, count = sys.argv[1], int(sys.argv[2])
for i in range(count):
    folder = os.path.join(root, "folder %03d" % (i // 1000))
    if i % 1000 == 0:
        os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "file %06d.txt" % i), "w") as f:
        f.write("small file %d\n" % i * 4)
PY

script=$work/orvane_daily.rb
esc() { printf '%s' "$1" | sed 's/[\\"#]/\\&/g'; }
sed -e "s|#ov_backupCommand|backupCommand = \"$root/tools/psync/psync -d\"|" \
    -e "s|#ov_sourceFolders|sourceFolders = [ \"$(esc "$src")\" ]|" \
    -e "s|#ov_destFolders|destFolders = [ \"$(esc "$work/by-script")\" ]|" \
    -e "s|#ov_logfile|logfile = \"$(esc "$work/daily.log")\"|" \
    -e "s|#ov_lastBackup|lastBackup = \"$(esc "$work/lastbackup")\"|" \
    "$root/resources/backup_script.rb" > "$script"
chmod 700 "$script"
sed -e 's|^shouldArchive = shouldArchive$|shouldArchive = true|' -e 's|^maxArchives = 0$|maxArchives = 3|' \
    -e "s|^safetyNetFolder = safetyNetFolder\$|safetyNetFolder = \"$(esc "$work/Safety Net Archives")\"|" "$script" > "$script.net"
chmod 700 "$script.net"

seconds() { local start end; start=$(date +%s.%N); "$@" >/dev/null; end=$(date +%s.%N); echo "$end - $start" | bc; }
median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ratio() { echo "scale=3; $1 / $2" | bc; }
sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true

first_script=$(seconds "$script")
first_rsync=$(seconds rsync -a --delete "$src/" "$work/by-rsync/")
# Interleaved, so that both meet the same state of the caches.
for _ in 1 2 3 4 5 6 7; do
    seconds "$script" >> "$work/rerun-script"
    seconds rsync -a --delete "$src/" "$work/by-rsync/" >> "$work/rerun-rsync"
done
rerun_script=$(median < "$work/rerun-script")
rerun_rsync=$(median < "$work/rerun-rsync")

python3 - "$src" "$files" <<'PY'
import os, sys
root, count = sys.argv[1], int(sys.argv[2])
for i in range(0, count, 100):
    with open(os.path.join(root, "folder %03d" % (i // 1000), "file %06d.txt" % i), "a") as f:
        f.write("changed\n")
for i in range(50, count, 100):
    os.remove(os.path.join(root, "folder %03d" % (i // 1000), "file %06d.txt" % i))
PY
change_script=$(seconds "$script.net")
change_rsync=$(seconds rsync -a --delete "$src/" "$work/by-rsync/")
kept=$(find "$work/Safety Net Archives" -type f | wc -l)
diff -r "$src" "$work/by-script" >/dev/null && same=yes || same=NO

printf '%-44s %9s %9s %7s\n' "$files small files" script rsync ratio
printf '%-44s %9.2f %9.2f %7s\n' "first copy" "$first_script" "$first_rsync" "$(ratio "$first_script" "$first_rsync")"
printf '%-44s %9.2f %9.2f %7s\n' "rerun, nothing changed (median of 7)" "$rerun_script" "$rerun_rsync" "$(ratio "$rerun_script" "$rerun_rsync")"
printf '%-44s %9.2f %9.2f %7s\n' "rerun, 1% changed, 1% deleted, Safety Net" "$change_script" "$change_rsync" "$(ratio "$change_script" "$change_rsync")"
echo "Safety Net kept $kept files; the script's copy equals the source: $same"

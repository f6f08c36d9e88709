#!/bin/bash
# The notice program on a real display: the end-of-backup notice follows the
# user's settings and closes by itself when asked to; the prompt answers by
# its exit status. Screenshots go to $1.
set -u
out=${1:?output folder}
mkdir -p "$out" /root/.config
. "$(dirname "$0")/desktop.sh"
notice=/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/orvane-notice
domain=/root/.config/org.orvane.Orvane.plist

settings() { # settings AUTO_DISMISS DISPLAY_ALERT
    cat > "$domain" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>AutoDismissAlert</key><$1/><key>DisplayAlert</key><$2/><key>PlaySound</key><false/>
<key>TimeUnit</key><integer>0</integer><key>TimeValue</key><integer>2</integer>
</dict></plist>
PLIST
}

settings true true
start=$SECONDS
"$notice" --finished Weekly errors &
pid=$!
check "the notice appears" sh -c "timeout 10 xdotool search --sync --onlyvisible --name '^Orvane$' >/dev/null"
screenshot "$out/notice-errors.png"
wait $pid
check "the notice closed by itself after its two seconds" test $((SECONDS - start)) -ge 2 -a $((SECONDS - start)) -lt 10

settings false false
check "with the alert off nothing waits for the user" timeout 5 "$notice" --finished Daily complete

"$notice" --prompt Daily &
pid=$!
timeout 10 xdotool search --sync --onlyvisible --name '^Orvane$' >/dev/null
sleep 0.5
screenshot "$out/notice-prompt.png"
xdotool key Escape
wait $pid
check "declining the prompt skips the backup" test $? -eq 1
"$notice" --prompt Daily &
pid=$!
timeout 10 xdotool search --sync --onlyvisible --name '^Orvane$' >/dev/null
sleep 0.5
xdotool key Return
wait $pid
check "accepting the prompt lets the backup go" test $? -eq 0
check "a wrong call is refused" sh -c "! '$notice' --nonsense 2>/dev/null"

# A backup script, run as root, finds the user's display through one of
# their processes and asks them there.
id ovnotice >/dev/null 2>&1 || useradd -m ovnotice
setpriv --reuid=ovnotice --regid=ovnotice --init-groups env -i DISPLAY="$DISPLAY" sleep 600 &
work=$(mktemp -d)
mkdir -p "$work/source" "$work/dest"
echo data > "$work/source/file"
run_script() {
    timeout 60 ruby -e 'load ARGV[0]; exit OrvaneBackup.new(eval(ARGV[1])).run' "$(dirname "$0")/../../../resources/backup_script.rb" \
        "{frequency: 'Daily', backupCommand: '$(dirname "$0")/../../../tools/psync/psync', sourceFolders: ['$work/source'],
          destFolders: ['$work/dest'], logfile: '$work/log', lastBackup: '$work/lastbackup', toastApplicationName: '',
          username: 'ovnotice', remoteBackup: false, showProgress: false, repairPermissions: false, promptBeforeBackup: true,
          shouldWaitUntilAway: false, autoConnect: false, remoteServerName: '', remoteAccountName: '', remoteVolumeName: '',
          shouldArchive: false, maxArchives: 0, safetyNetFolder: '', archiveContents: ''}"
}
answer() { # answer KEY: wait for the user's prompt, then press KEY in it
    local prompt
    prompt=$(timeout 20 xdotool search --sync --onlyvisible --name '^Orvane$' | head -1)
    sleep 0.5
    screenshot "$out/script-prompt.png"
    xdotool windowfocus --sync "$prompt" key --window "$prompt" "$1"
}
answer Return & answering=$!
run_script; status=$?
wait $answering
check "the user agreed on their display: the backup ran" test $status -eq 0 -a -e "$work/dest/file"
check "the end notice does not hold the run: no run flag is left" test ! -e /tmp/ov_Daily.run
shown_as_user() {
    for _ in $(seq 50); do
        pgrep -u ovnotice -x orvane-notice >/dev/null && ! pgrep -u root -x orvane-notice >/dev/null && return 0
        sleep 0.2
    done
    return 1
}
check "the end notice is up, shown as the user, not as root" shown_as_user
sleep 1
screenshot "$out/script-finished-notice.png"
# The user closes the notice.
answer Return
finish

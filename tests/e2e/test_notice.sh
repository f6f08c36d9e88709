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
finish

# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# Sourced by the tests that read the system log. catch_syslog FILE: a /dev of
# this sandbox alone (the machine's own is bound in), whose /dev/log is a
# socket whose messages go to FILE, one a line.
catch_syslog() {
    mkdir -p /run/ov-dev && mount --rbind /dev /run/ov-dev && mount -t tmpfs -o mode=755 ov-dev /dev
    local real mine
    for real in /run/ov-dev/*; do
        mine=/dev/${real##*/}
        if [ -L "$real" ]; then ln -s "$(readlink "$real")" "$mine"
        elif [ -d "$real" ]; then mkdir "$mine" && mount --rbind "$real" "$mine"
        else : > "$mine" && mount --bind "$real" "$mine"; fi
    done
    python3 -c '
import os, socket, sys
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
os.chmod("/dev/log", 0o666)
with open(sys.argv[1], "ab", buffering=0) as out:
    while True:
        out.write(log.recv(65536) + b"\n")
' "$1" &
    for _ in $(seq 50); do [ -S /dev/log ] && break; sleep 0.1; done
}

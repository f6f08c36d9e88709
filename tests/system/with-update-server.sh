#!/bin/sh
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# with-update-server.sh COMMAND...: inside tests/sandbox/ov-sandbox, COMMAND in
# a network namespace of its own (only lo) where the vendor's host, as the
# installed MacPAD.url names it, is 127.0.0.1 and answers on 443 with a
# certificate from a throwaway CA the sandbox trusts; 8443 answers for the
# same name with one nobody trusts. COMMAND finds the server's files in
# $OV_UPDATE_SERVER_ROOT and its request log in $OV_UPDATE_SERVER_LOG.
set -eu
[ -n "${OV_IN_SANDBOX:-}" ] || { echo "runs only inside tests/sandbox/ov-sandbox" >&2; exit 2; }
if [ -z "${OV_UPDATE_NETNS:-}" ]; then
    url_file="/Library/PreferencePanes/Orvane.prefPane/Contents/Resources/MacPAD.url"
    host=$(sed -n 's|^URL=https://\([^/:]*\).*|\1|p' "$url_file")
    [ -n "$host" ] || { echo "no https host in $url_file" >&2; exit 2; }
    work=$(mktemp -d /tmp/update-server.XXXXXX)
    (cd "$work"
     openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Orvane Test CA" -keyout ca.key -out ca.pem
     openssl req -newkey rsa:2048 -nodes -subj "/CN=$host" -keyout server.key -out server.csr
     printf 'subjectAltName=DNS:%s\n' "$host" > server.ext
     openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile server.ext -out server.pem
     # Same name, but signed by no one the system knows.
     openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=$host" -addext "subjectAltName=DNS:$host" -keyout rogue.key -out rogue.pem
     mkdir www) 2>/dev/null
    cp "$work/ca.pem" /usr/local/share/ca-certificates/orvane-test-ca.crt
    update-ca-certificates >/dev/null 2>&1
    printf '127.0.0.1 localhost\n127.0.0.1 %s\n' "$host" > /etc/hosts
    exec env OV_UPDATE_NETNS=1 OV_UPDATE_WORK="$work" unshare --net "$0" "$@"
fi
ip link set lo up
work=$OV_UPDATE_WORK
: > "$work/requests.log"
/usr/bin/python3 "$(dirname "$0")/update_server.py" "$work/www" "$work/requests.log" \
    443 "$work/server.pem" "$work/server.key" 8443 "$work/rogue.pem" "$work/rogue.key" > "$work/server.out" 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
i=0
until grep -q ready "$work/server.out"; do
    i=$((i + 1)); [ $i -lt 100 ] || { cat "$work/server.out" >&2; exit 2; }
    sleep 0.1
done
env -u http_proxy -u https_proxy -u HTTP_PROXY -u HTTPS_PROXY -u all_proxy -u ALL_PROXY -u no_proxy -u NO_PROXY \
    QT_QPA_PLATFORM=offscreen OV_UPDATE_SERVER_ROOT="$work/www" OV_UPDATE_SERVER_LOG="$work/requests.log" "$@"

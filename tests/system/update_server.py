#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
"""The vendor's web server for the update test: update_server.py ROOT LOG PORT CERT KEY [PORT CERT KEY]...
serves ROOT over HTTPS on 127.0.0.1, a listener per PORT/CERT/KEY, and appends "PORT PATH" to LOG for each
request. /no-answer reads the request and never answers; /cut-short promises more bytes than it sends."""
import http.server
import os
import ssl
import sys
import threading
import time

root, log = sys.argv[1], sys.argv[2]

class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def reply(self, kind, length, body):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(length))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        with open(log, "a") as out:
            out.write(f"{self.server.server_port} {self.path}\n")
        path = os.path.join(root, self.path.lstrip("/"))
        if self.path == "/no-answer":
            time.sleep(3600)
        elif self.path == "/cut-short":
            self.reply("application/xml", 4000, b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<dict>\n')
            self.wfile.flush()
            self.close_connection = True
        elif "/../" in self.path or not os.path.isfile(path):
            self.send_error(404)
        else:
            with open(path, "rb") as f:
                body = f.read()
            self.reply("text/html" if path.endswith(".html") else "application/xml", len(body), body)

    def log_message(self, *args):
        pass

class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a client that refuses the certificate ends the handshake: a case under test

for i in range(3, len(sys.argv), 3):
    port, cert, key = sys.argv[i:i + 3]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    server = Server(("127.0.0.1", int(port)), Handler)
    # The handshake runs in the request's thread, so one stalled client cannot hold the listener.
    server.socket = context.wrap_socket(server.socket, server_side=True, do_handshake_on_connect=False)
    threading.Thread(target=server.serve_forever, daemon=True).start()
print("ready", flush=True)
threading.Event().wait()

#!/usr/bin/env python3
"""A web server that is not OPC UA, for plant hosts: answers every request with
"HTTP/1.1 200 OK" and a short page. Usage: plant_http.py LISTEN_ADDR PORT.
Prints "ready <port>" once listening."""

import http.server
import signal
import sys


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "plant-web/1.0"

    def do_GET(self):
        body = b"<html><body>Plant web server (not OPC UA)</body></html>\n"
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    do_HEAD = do_GET
    do_POST = do_GET

    def log_message(self, fmt, *args):
        pass


def main():
    if len(sys.argv) != 3:
        sys.stderr.write("usage: plant_http.py LISTEN_ADDR PORT\n")
        return 2
    server = http.server.ThreadingHTTPServer((sys.argv[1], int(sys.argv[2])), Handler)
    server.daemon_threads = True
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    print("ready %d" % server.server_address[1], flush=True)
    try:
        server.serve_forever()
    except (KeyboardInterrupt, SystemExit):
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""An https server that delays its clients, for tests. Each way to do so is a folder of its address; it serves what it does
not spoil, and anything requested more than ten times, unchanged.

usage: hostile_server.py FOLDER CERTIFICATE KEY PORT
"""

import http.server
import os
import ssl
import sys
import time

ROOT, CERTIFICATE, KEY, PORT = sys.argv[1:]
CUT = 1100 * 1024
asked = {}


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def answer(self, status, body, *headers):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def trickle(self, data, size, pause):
        end = time.monotonic() + 10
        while time.monotonic() < end:
            self.wfile.write(data[:size])
            data = data[size:] or data
            time.sleep(pause)
        self.wfile.write(data)

    def do_GET(self):
        try:
            self.serve(*self.path[1:].split("/", 1))
        except OSError:
            self.close_connection = True  # the client had enough

    def serve(self, way, name):
        path = os.path.join(ROOT, name)
        if not os.path.exists(path):
            return self.answer(404, b"")
        with open(path, "rb") as file:
            body = file.read()
        first, last = self.headers.get("Range", "bytes=0-")[6:].split("-")
        first, last = int(first), int(last or len(body) - 1)
        count = asked[way, name] = asked.get((way, name), 0) + 1
        if way == "metadata" and name.startswith("metadata"):
            time.sleep(1)
        elif name.startswith("targets") and count <= 10:
            self.close_connection = way in ("refuse", "trickle", "headers")
            if way == "refuse" and first:
                return self.answer(416, b"")
            if way == "redirect":
                return self.answer(302, b"", ("Location", self.path))
            if way in ("refuse", "trickle", "headers"):
                self.send_response(200)
                if way == "headers":
                    self.flush_headers()
                    return self.trickle(b"X-Much: 1\r\n", 11, 0.01)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                return self.trickle(body, 400, 0.1) if way == "trickle" else self.wfile.write(body[:CUT])
        part = [("Content-Range", "bytes %d-%d/%d" % (first, last, len(body)))]
        if way == "cut" and last - first > 700:
            self.send_response(206)
            self.send_header(*part[0])
            self.end_headers()  # without a length: the end of the connection is that of the answer
            self.close_connection = True
            return self.wfile.write(body[first:(first + last) // 2])
        return self.answer(206 if first else 200, body[first:last + 1], *(part if first else []))


server = http.server.ThreadingHTTPServer(("127.0.0.1", int(PORT)), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(CERTIFICATE, KEY)
server.socket = context.wrap_socket(server.socket, server_side=True, do_handshake_on_connect=False)
server.handle_error = lambda *_: None  # connections that were no requests
server.serve_forever()

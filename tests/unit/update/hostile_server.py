"""An https server that holds its clients up, for tests. Each way to do so is a folder of its address; what it does not spoil,
and what it is asked for after it has held up long enough, it serves as it is.

usage: hostile_server.py FOLDER CERTIFICATE KEY PORT
"""

import os
import socket
import ssl
import sys
import threading
import time

ROOT, CERTIFICATE, KEY, PORT = sys.argv[1:]
CUT = 1100 * 1024
LONG_ENOUGH = 10  # seconds, and requests
asked = {}


def answer(connection, head, body, cut=None):
    connection.sendall(("HTTP/1.1 %s\r\nContent-Length: %d\r\n\r\n" % (head, len(body))).encode() + body[:cut])


def until_long_enough(connection, data, pause=0.0):
    end = time.monotonic() + LONG_ENOUGH
    while time.monotonic() < end:
        connection.sendall(data)
        time.sleep(pause)


def serve(connection, way, name, first):
    with open(os.path.join(ROOT, name), "rb") as file:
        body = file.read()
    part = "206 x\r\nContent-Range: bytes %d-%d/%d" % (first, len(body) - 1, len(body))
    count = asked[way, name] = asked.get((way, name), 0) + 1
    if way == "metadata-trickle" and name.startswith("metadata"):
        time.sleep(1)
    elif name.startswith("targets") and count <= LONG_ENOUGH:
        if way.startswith("cut-") and first == 0:
            return answer(connection, "200 x", body, CUT)
        if way == "cut-and-refuse":
            return answer(connection, "416 x", b"")
        if way == "cut-and-another-part":
            return answer(connection, "206 x\r\nContent-Range: bytes 0-9/10", body)
        if way == "cut-and-the-whole":
            return answer(connection, "200 x", body, CUT + first)
        if way == "trickle":
            end = time.monotonic() + LONG_ENOUGH
            connection.sendall(("HTTP/1.1 200 x\r\nContent-Length: %d\r\n\r\n" % len(body)).encode())
            while time.monotonic() < end:
                connection.sendall(body[:400])
                body = body[400:]
                time.sleep(0.1)
            return connection.sendall(body)
        if way == "redirect-loop":
            return answer(connection, "302 x\r\nLocation: /%s/%s" % (way, name), b"")
        if way == "redirect-with-endless-page":
            connection.sendall(b"HTTP/1.1 302 x\r\nLocation: /sound/%s\r\n" % name.encode())
            connection.sendall(b"Transfer-Encoding: chunked\r\n\r\n")
            until_long_enough(connection, b"4\r\npage\r\n" * 100, 0.001)
            return connection.sendall(b"0\r\n\r\n")
        if way == "endless-100":
            until_long_enough(connection, b"HTTP/1.1 100 x\r\nX-Much: %s\r\n\r\n" % (b"1" * 1000), 0.001)
        if way == "endless-headers":
            connection.sendall(b"HTTP/1.1 200 x\r\n")
            until_long_enough(connection, b"X-Much: 1\r\n", 0.01)
            return connection.sendall(b"Content-Length: %d\r\n\r\n" % len(body) + body)
        if way == "large-headers":
            connection.sendall(b"HTTP/1.1 200 x\r\n" + (b"X-Much: %s\r\n" % (b"1" * 1000)) * 2000)
            return connection.sendall(b"Content-Length: %d\r\n\r\n" % len(body) + body)
    return answer(connection, part if first else "200 x", body[first:])


def handle(context, plain):
    try:
        with context.wrap_socket(plain, server_side=True) as connection:
            request = b""
            while True:
                while b"\r\n\r\n" not in request:
                    more = connection.recv(4096)
                    if not more:
                        return
                    request += more
                head, request = request.split(b"\r\n\r\n", 1)
                lines = head.decode().split("\r\n")
                _, way, name = lines[0].split(" ")[1].split("/", 2)
                ranges = [line for line in lines if line.lower().startswith("range:")]
                first = int(ranges[0].split("=")[1].rstrip("-")) if ranges else 0
                if os.path.exists(os.path.join(ROOT, name)):
                    serve(connection, way, name, first)
                else:
                    answer(connection, "404 x", b"")
                if way.startswith("cut-") and name.startswith("targets"):
                    return
    except OSError:
        pass  # the client had enough


def main():
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(CERTIFICATE, KEY)
    with socket.create_server(("127.0.0.1", int(PORT)), backlog=64) as server:
        while True:
            threading.Thread(target=handle, args=(context, server.accept()[0]), daemon=True).start()


main()

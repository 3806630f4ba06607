"""A stand-in for Podman that is as quick as its clients: lists of any length, and logs as fast as they are read.

    python3 -m bench.podman_double SOCKET CONTAINERS

Logs by container name: "endless" lines without end, "idle" one line and then nothing, "chatty" ten lines a
second. "/double/…" changes and tells what only a double knows.
"""

import json
import re
import select
import socket
import sys
import threading

LINE = b"2026-01-01T00:00:00 the quick brown fox jumps over the lazy dog, and the log goes on and on for a while.\n"
FRAME = b"\x01\0\0\0" + len(LINE).to_bytes(4, "big") + LINE
CHUNK = b"%x\r\n" % len(FRAME) + FRAME + b"\r\n"  # Podman too sends each line as a chunk of its own
BLOCK = memoryview(CHUNK * 8192)


def container(number):
    identity = f"{number:064x}"
    return {
        "Id": identity, "Names": [f"/container-{number}"], "Image": "localhost/kx-bench:1", "ImageID": "sha256:" + "ab" * 32,
        "Command": "sh -c sleep 1000", "Created": 1700000000 + number, "Ports": [], "SizeRw": 0, "SizeRootFs": 0,
        "Labels": {"com.example.unit": f"unit-{number}", "com.example.role": "worker"}, "State": "running",
        "Status": "Up 3 hours", "HostConfig": {"NetworkMode": "bridge"},
        "NetworkSettings": {"Networks": {"podman": {
            "IPAMConfig": None, "Links": None, "Aliases": [identity[:12]], "NetworkID": "podman", "EndpointID": "",
            "Gateway": "10.88.0.1", "IPAddress": "10.88.0.7", "IPPrefixLen": 16, "MacAddress": "5e:3a:00:00:00:01"}}},
        "Mounts": [], "Name": "", "Config": None, "NetworkingConfig": None, "Platform": None, "AdjustCPUShares": False,
    }


def answer(body, content_type="application/json"):
    return (f"HTTP/1.1 200 OK\r\nContent-Type: {content_type}\r\nContent-Length: {len(body)}\r\n\r\n").encode() + body


def container_list(count):
    return answer(json.dumps([container(number) for number in range(count)], separators=(",", ":")).encode())


INSPECTION = answer(json.dumps({"Id": "0" * 64, "Name": "/double", "State": {"Status": "running"},
                                "Config": {"Tty": False}}).encode())
STREAM_HEAD = (b"HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
               b"Transfer-Encoding: chunked\r\n\r\n")
EMPTY = b"HTTP/1.1 204 No Content\r\n\r\n"


class Double:
    def __init__(self, containers):
        self.containers = container_list(containers)
        self.lock = threading.Lock()
        self.streams = 0

    def serve(self, connection):
        """Answers the requests of one connection, none of which has a body."""
        received = b""
        with connection:
            while True:
                while b"\r\n\r\n" not in received:
                    piece = connection.recv(65536)
                    if not piece:
                        return
                    received += piece
                request, _, received = received.partition(b"\r\n\r\n")
                method, target = request.split(b" ", 2)[:2]
                path = re.sub(r"^/v[0-9.]+(/libpod)?", "", target.decode()).partition("?")[0]
                if path == "/events":
                    return wait_for_events(connection)
                if path.startswith("/containers/") and path.endswith("/logs"):
                    return self.stream_log(connection, path.split("/")[2])
                connection.sendall(self.reply(method.decode(), path))

    def reply(self, method, path):
        if path == "/containers/json":
            return self.containers
        if path == "/images/json":
            return answer(b"[]")
        if path == "/_ping":
            return answer(b"OK", "text/plain")
        if path.endswith("/json"):
            return INSPECTION
        if path.startswith("/double/containers/"):
            self.containers = container_list(int(path.split("/")[3]))
            return EMPTY
        if path == "/double/streams":
            return answer(str(self.streams).encode(), "text/plain")
        return EMPTY if method in ("POST", "DELETE") else answer(b"{}")

    def stream_log(self, connection, name):
        with self.lock:
            self.streams += 1
        try:
            connection.sendall(STREAM_HEAD)
            if name == "endless":
                send_without_end(connection)
            else:
                send_lines(connection, 0.1 if name == "chatty" else None)
        except OSError:
            pass  # the client cut the stream
        finally:
            with self.lock:
                self.streams -= 1


def wait_for_events(connection):
    """Nothing happens here; its end is the client's."""
    connection.sendall(STREAM_HEAD)
    connection.recv(1)


def send_without_end(connection):
    while True:
        connection.sendall(BLOCK)


def send_lines(connection, seconds):
    """One line, and one more every `seconds`, until the client goes."""
    hung_up = select.poll()
    hung_up.register(connection, select.POLLIN)
    while True:
        connection.sendall(CHUNK)
        if hung_up.poll(seconds and 1000 * seconds):
            return


def main():
    double = Double(int(sys.argv[2]))
    threading.stack_size(256 * 1024)
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(sys.argv[1])
    listener.listen(4096)
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=double.serve, args=(connection,), daemon=True).start()


if __name__ == "__main__":
    main()

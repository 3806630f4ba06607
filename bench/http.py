"""HTTP clients over plain TCP, TLS or a Unix socket: single requests, uploads, WebSocket openings; and wrk. Where a client
must cost less than the server that it loads, bench/client.cpp is used.
"""

import contextlib
import dataclasses
import os
import re
import socket
import ssl
import struct
import subprocess

CLIENT_TLS = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
CLIENT_TLS.check_hostname = False
CLIENT_TLS.verify_mode = ssl.CERT_NONE


@dataclasses.dataclass(frozen=True)
class Address:
    """A port of this machine."""

    port: int
    tls: bool = False

    def scheme(self):
        return "https" if self.tls else "http"

    def url(self, target):
        return f"{self.scheme()}://127.0.0.1:{self.port}{target}"


def connect(address):
    """`address` is an Address, or the path of a Unix socket."""
    connection = socket.socket(socket.AF_INET if isinstance(address, Address) else socket.AF_UNIX, socket.SOCK_STREAM)
    connection.settimeout(60)
    try:
        if not isinstance(address, Address):
            connection.connect(address)
            return connection
        connection.connect(("127.0.0.1", address.port))
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return CLIENT_TLS.wrap_socket(connection) if address.tls else connection
    except OSError:
        connection.close()
        raise


def cut(connection):
    """Ends a TCP connection with a reset, as a client that vanishes does."""
    if connection.family == socket.AF_INET:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def head(method, target, headers=None):
    lines = [f"{method} {target} HTTP/1.1", "Host: 127.0.0.1"]
    lines += [f"{name}: {value}" for name, value in (headers or {}).items()]
    return ("\r\n".join(lines) + "\r\n\r\n").encode()


class Connection:
    """One kept-alive connection, one request at a time."""

    def __init__(self, address):
        self.socket = connect(address)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()

    def request(self, method, target, headers=None):
        return self.exchange(head(method, target, headers))

    def exchange(self, request):
        """Sends a complete request; returns (status, headers with lower-case names, body)."""
        self.socket.sendall(request)
        received = bytearray()
        while (end := received.find(b"\r\n\r\n")) < 0:
            self._receive(received)
        lines = received[:end].decode("latin-1").split("\r\n")
        headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines[1:])}
        body = received[end + 4:]
        status = int(lines[0].split()[1])
        if headers.get("transfer-encoding", "").lower() == "chunked":
            while not body.endswith(b"0\r\n\r\n"):
                self._receive(body)
            return status, headers, join_chunks(body)
        while len(body) < int(headers.get("content-length", 0)):
            self._receive(body)
        return status, headers, bytes(body)

    def _receive(self, into):
        piece = self.socket.recv(1 << 18)
        if not piece:
            raise ConnectionError("the server closed the connection")
        into += piece


def join_chunks(encoded):
    pieces, position = [], 0
    while True:
        end = encoded.index(b"\r\n", position)
        size = int(encoded[position:end], 16)
        if size == 0:
            return b"".join(pieces)
        pieces.append(bytes(encoded[end + 2:end + 2 + size]))
        position = end + 2 + size + 2


def upload(address, method, target, headers, path):
    """Sends the file as the raw body."""
    with open(path, "rb") as file, Connection(address) as connection:
        connection.socket.sendall(upload_head(method, target, headers, path))
        connection.socket.sendfile(file)
        status, _, body = connection.exchange(b"")
    if not 200 <= status < 300:
        raise RuntimeError(f"upload to {target} was answered {status}: {body!r}")


def upload_head(method, target, headers, path):
    return head(method, target, {**headers, "Content-Length": os.path.getsize(path),
                                 "Content-Type": "application/octet-stream"})


def websocket_head(target, headers):
    return head("GET", target, {**headers, "Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
                                "Sec-WebSocket-Key": "a3gtYmVuY2gta2V5LTAwMQ=="})


def open_websocket(address, target, headers):
    """Returns the socket after the upgrade, and what came with the answer."""
    connection = connect(address)
    connection.sendall(websocket_head(target, headers))
    received = b""
    while b"\r\n\r\n" not in received:
        piece = connection.recv(1 << 16)
        if not piece:
            raise ConnectionError(f"no upgrade: {received!r}")
        received += piece
    answer, _, rest = received.partition(b"\r\n\r\n")
    if b" 101 " not in answer.split(b"\r\n")[0]:
        raise RuntimeError(f"no upgrade: {received!r}")
    return connection, rest


@contextlib.contextmanager
def wrong_tokens(url, connections, cpu):
    """Asks with a wrong token, as fast as it is answered, while the scope lasts."""
    command = ["taskset", "-c", cpu, "wrk", "-t1", f"-c{connections}", "-d600s", "-H", "Authorization: Bearer wrong", url]
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    try:
        yield
    finally:
        child.terminate()
        child.wait()


def wrk(url, headers=None, connections=64, seconds=4, cpu=None):
    """Loads `url`; returns (requests answered, requests per second)."""
    command = ["taskset", "-c", cpu] if cpu else []
    command += ["wrk", "-t1", f"-c{connections}", f"-d{seconds}s"]
    for name, value in (headers or {}).items():
        command += ["-H", f"{name}: {value}"]
    output = subprocess.run(command + [url], check=True, capture_output=True, text=True).stdout
    if "Non-2xx" in output or "Socket errors" in output:
        raise RuntimeError(f"wrk on {url}: {output}")
    return int(re.search(r"(\d+) requests in", output)[1]), float(re.search(r"Requests/sec:\s+([\d.]+)", output)[1])

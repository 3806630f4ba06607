"""A client of a container's log: what came, how it ended, and when."""

import socket
import struct
import threading
import time

import service as kx

CLOSING = "Container id: {} log stream finished."
TEXT, CLOSE = 1, 8  # opcodes


class Refused(Exception):
    """The answer was not the switch to a WebSocket but this status."""


def handshake(service, target, headers=None, receive_buffer=None):
    """A connection that has switched to the WebSocket, and the head of the answer."""
    connection = socket.socket()
    if receive_buffer:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    connection.settimeout(60)
    connection.connect(("127.0.0.1", service.port))
    headers = {"Authorization": f"Bearer {service.token()}"} if headers is None else headers
    connection.sendall((f"GET {kx.BASE}{target} HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                        "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                        + "".join(f"{name}: {value}\r\n" for name, value in headers.items()) + "\r\n").encode())
    answer = b""
    while not answer.endswith(b"\r\n\r\n"):
        byte = connection.recv(1)
        if not byte:
            raise ConnectionError(f"no upgrade: {answer!r}")
        answer += byte
    status = int(answer.split()[1])
    if status != 101:
        connection.close()
        raise Refused(status)
    return connection, answer.decode()


def frames(connection):
    """The server's frames: opcode and payload. Ends where the connection does."""
    file = connection.makefile("rb", 1 << 16)
    while head := file.read(2):
        size = head[1] & 0x7F
        if size >= 126:
            size = int.from_bytes(file.read(2 if size == 126 else 8), "big")
        payload = file.read(size)
        if len(payload) < size:
            return
        yield head[0] & 0x0F, payload


class Follower(threading.Thread):
    """Follows a log to its end. Begins to read after `delay` seconds once it is allowed to, and takes `rate` bytes a second."""

    def __init__(self, service, name, query="", delay=0, rate=None, allowed=True):
        super().__init__(daemon=True)
        self.target = f"/containers/{name}/logs/ws{query}"
        self.closing = CLOSING.format(name)
        self.service, self.delay, self.rate = service, delay, rate
        self.opened, self.allowed = threading.Event(), threading.Event()
        if allowed:
            self.allowed.set()
        self.messages, self.code, self.ended_at, self.error = [], None, None, None
        self.start()

    def run(self):
        try:
            connection, _ = handshake(self.service, self.target, receive_buffer=1 << 16 if self.delay or self.rate else None)
            with connection:
                self.opened.set()
                self.allowed.wait()
                time.sleep(self.delay)
                self.read(connection)
        except Exception as error:
            self.error = error
        finally:
            self.opened.set()

    def read(self, connection):
        begin, taken = time.monotonic(), 0
        for opcode, payload in frames(connection):
            if opcode == TEXT:
                self.messages.append(payload.decode())  # strictly: no character is split across messages
                taken += len(payload)
            elif opcode == CLOSE:
                self.code = struct.unpack(">H", payload[:2])[0]
                self.ended_at = time.time()
                return
            if self.rate:
                time.sleep(max(0, begin + taken / self.rate - time.monotonic()))

    def wait_open(self):
        self.opened.wait(60)
        if self.error:
            raise self.error
        return self

    def result(self, seconds=60):
        """The joined log. An error when the stream did not end as it should within that time."""
        self.allowed.set()
        self.join(seconds)
        got = "".join(self.messages)
        assert not self.is_alive(), f"the stream did not end within {seconds} s; so far {len(got)} characters, ...{got[-80:]!r}"
        if self.error:
            raise self.error
        assert self.code == 1000, f"close code {self.code}"
        assert self.messages and self.messages[-1] == self.closing, f"the last message is {self.messages[-1:]!r}"
        return "".join(self.messages[:-1])

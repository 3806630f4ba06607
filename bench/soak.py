"""A bounded soak of rude clients, then the budgets, plain and over TLS: scripts/soak is the command.

Every kind of client comes in rounds. The first rounds warm up (pools fill, the allocator settles); what the program holds
after them must be what it holds at the end. No speed is judged but the start's, and that with much room.
"""

import argparse
import dataclasses
import pathlib
import resource
import socket
import sys
import time

from bench import footprint, http, programs, streams, uploads
from bench.measurement import Effort
from bench.programs import API, kx

EXECUTABLE_MIB, IDLE_MIB, START_MS = 3, 8, 250
IDLE_WAKE_UPS = 10  # a second, beside real-time tasks
GROWTH_KIB = 512


@dataclasses.dataclass(frozen=True)
class Way:
    """How the clients come, how often, and the memory (MiB) that they may make the service take."""

    tls: bool
    warm_up_rounds: int
    rounds: int
    upload: int
    streams: int
    peak: int


WAYS = [Way(tls=False, warm_up_rounds=3, rounds=9, upload=9, streams=11, peak=20),
        Way(tls=True, warm_up_rounds=2, rounds=3, upload=12, streams=17, peak=28)]

# Each thread keeps freed memory for itself, at most a few hundred KiB, and fills up slowly. Such a gain says nothing, and
# one as large could hide a leak: while growth is judged, threads keep none (glibc's manual, Memory Allocation Tunables).
WITHOUT_THREAD_CACHES = ("env", "GLIBC_TUNABLES=glibc.malloc.tcache_count=0:glibc.pthread.stack_cache_size=0")


def connect_and_go(service):
    for number in range(200):
        connection = http.connect(service.address)
        if number % 2:
            connection.sendall(b"GET /api/cre/v1.0/settings HTTP/1.1\r\nHost: 127")
        http.cut(connection) if number % 4 < 2 else connection.close()


def break_off_handshakes(service):
    """The beginning of a TLS handshake, and a plain request, whatever is spoken there."""
    for number in range(100):
        connection = http.connect(http.Address(service.address.port))
        connection.sendall(b"GET / HTTP/1.1\r\nHost: a\r\n\r\n" if number % 2 else b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc")
        http.cut(connection) if number % 4 < 2 else connection.close()


def abort_requests(service):
    request = http.head("GET", API + "/containers?all=true", service.headers())
    for _ in range(200):
        connection = http.connect(service.address)
        connection.sendall(request)
        http.cut(connection)


def ask_without_token(service):
    with http.Connection(service.address) as connection:
        if connection.request("GET", API + "/settings")[0] != 401:
            raise RuntimeError("a request without a token was not refused")


def cut_streams(service):
    for number in range(150):
        connection, _ = http.open_websocket(service.address, streams.log_target("chatty"), service.headers())
        http.cut(connection) if number % 2 else connection.close()


def read_slowly(service):
    """Streams from an endless source, read at a trickle: what is not read must not pile up in the service."""
    connections = []
    for _ in range(20):
        connection, _ = http.open_websocket(service.address, streams.log_target("endless"), service.headers())
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        connections.append(connection)
    for _ in range(10):
        for connection in connections:
            socket.socket.recv(connection, 1024)  # below TLS, whose records such a buffer holds up for seconds
        time.sleep(0.1)
    for connection in connections:
        http.cut(connection)


def abandon_uploads(service):
    head = http.head("POST", API + "/compose-files", {
        **service.headers(), "Content-Length": 1 << 20, "Content-Type": "application/octet-stream",
        "Content-Disposition": 'attachment; filename="soak.yml"'})
    for number in range(60):
        connection = http.connect(service.address)
        connection.sendall(head + bytes(number * 1000))
        http.cut(connection) if number % 2 else connection.close()


CLIENTS = [connect_and_go, break_off_handshakes, abort_requests, ask_without_token, cut_streams, read_slowly, abandon_uploads]


def held(service, double):
    """What the service holds once the clients are gone: KiB of memory, threads, descriptors."""
    kx.wait_until(lambda: double.open_streams() == 0, 30, "the end of the streams in the double")
    time.sleep(15)  # threads that pressure added end after ten idle seconds; for twelve memory is given back
    return service.usage.resident_kib(), service.usage.threads(), service.usage.descriptors()


class Budgets:
    """Judges figures; `title` names what they belong to."""

    def __init__(self):
        self.title = ""
        self.broken = 0

    def check(self, what, value, limit, unit=""):
        kept = value <= limit
        self.broken += not kept
        print(f"{'ok  ' if kept else 'OVER'} {self.title}{what}: {value:.6g} {unit}, at most {limit}", flush=True)


def soak(directory, budgets, way):
    with programs.PodmanDouble(directory) as double, \
            programs.Service(directory, tls=way.tls, prefix=WITHOUT_THREAD_CACHES) as service:
        peaks, before = [], None
        for number in range(way.warm_up_rounds + way.rounds):
            if number == way.warm_up_rounds:
                before = held(service, double)
            for client in CLIENTS:
                service.usage.reset_peak()
                client(service)
                peaks.append((service.usage.peak_kib() / 1024, client.__name__))
        after = held(service, double)
        if service.get("/containers?all=true")[0] != 200:
            raise RuntimeError("the service does not answer after the soak")
    budgets.check("growth of memory", after[0] - before[0], GROWTH_KIB, "KiB")
    budgets.check("growth of threads", after[1] - before[1], 0)
    budgets.check("growth of descriptors", after[2] - before[2], 0)
    budgets.check(f"memory at its peak ({max(peaks)[1]})", max(peaks)[0], way.peak, "MiB")


def check_program(directory, budgets):
    rows = {row.name: row.value() for row in footprint.start(Effort(quick=True), directory)}
    budgets.check("memory, idle", rows["memory-idle"], IDLE_MIB, "MiB")
    budgets.check("start to first answer", rows["start"], START_MS, "ms")
    budgets.check("executable, stripped", footprint.executable(None, directory)[0].value(), EXECUTABLE_MIB, "MiB")


def check_rest(directory, budgets):
    with programs.PodmanDouble(directory), programs.Service(directory) as service:
        service.get("/settings")
        time.sleep(5)
        before = service.usage.wake_ups()
        time.sleep(10)
        budgets.check("wake-ups when idle", (service.usage.wake_ups() - before) / 10, IDLE_WAKE_UPS, "a second")


def check_memory(directory, budgets, way):
    source = uploads.make_source(directory, 256 * uploads.MIB)
    with programs.PodmanDouble(directory) as double:
        with programs.Service(directory, tls=way.tls) as service:
            service.usage.reset_peak()
            method, target, headers, stored = uploads.to_service(service)
            http.upload(service.address, method, target, headers, source)
            stored.unlink()
            budgets.check("memory during an upload", service.usage.peak_kib() / 1024, way.upload, "MiB")
        with programs.Service(directory, tls=way.tls) as service:
            followed = streams.OpenStreams(service, "chatty", 100)
            followed.read_for(3)
            budgets.check("memory with 100 streams", service.usage.resident_kib() / 1024, way.streams, "MiB")
            followed.cut()
            kx.wait_until(lambda: double.open_streams() == 0, 30, "the end of the streams in the double")
    source.unlink()


def main():
    parser = argparse.ArgumentParser(prog="scripts/soak")
    parser.add_argument("--output", type=pathlib.Path, required=True)
    work = parser.parse_args().output / "work"
    work.mkdir(parents=True, exist_ok=True)
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    budgets = Budgets()
    check_program(work, budgets)
    check_rest(work, budgets)
    for way in WAYS:
        budgets.title = "over TLS: " if way.tls else ""
        started = time.monotonic()
        check_memory(work, budgets, way)
        soak(work, budgets, way)
        print(f"     {time.monotonic() - started:.0f} s", flush=True)
    sys.exit(1 if budgets.broken else 0)


if __name__ == "__main__":
    main()

"""Log streams whose clients take nothing: they hold their threads for so long and no longer."""

import base64
import contextlib
import pathlib
import signal
import socket
import struct
import time

from clients import head
from device import kx, measure_recovery

LOUD = "yes aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa | head -c 32000000; sleep 1000"  # more than sockets hold
TEXT, CLOSE, PING = 0x81, 0x88, 0x89
PROGRESS_SECONDS, CLOSE_SECONDS, STOP_SECONDS = 60, 10, 3


def frame(first, payload):
    return bytes([first, 0x80 | len(payload)]) + bytes(4) + payload


def open_stream(running):
    """A stream whose client has read the answer to its upgrade, and reads nothing more."""
    client = socket.socket()
    client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    client.settimeout(20)
    client.connect(("127.0.0.1", running.port))
    client.sendall(head(running, "GET", "/containers/loud/logs/ws", "Connection: Upgrade", "Upgrade: websocket",
                        "Sec-WebSocket-Version: 13", "Sec-WebSocket-Key: " + base64.b64encode(bytes(16)).decode()))
    assert client.recv(12) == b"HTTP/1.1 101"
    return client


def stream_threads(running):
    names = []
    for task in pathlib.Path(f"/proc/{running.pid}/task").glob("*/comm"):
        with contextlib.suppress(OSError):
            names.append(task.read_text().strip())
    return names.count("kx-web-stream")


def connections(running):
    """What waits to be taken on each connection that the service holds with a client, as the kernel knows it."""
    lines = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]]
    return [int(fields[4].split(":")[0], 16) for fields in lines
            if int(fields[1].rsplit(":", 1)[1], 16) == running.port and fields[3] != kx.LISTENING and fields[9] != "0"]


def wait_until_stuck(running, number):
    """Until no connection takes anything any more."""
    seen = [[]]

    def is_stuck():
        time.sleep(1)
        seen.append(connections(running))
        return seen[-1] == seen[-2] and sum(waiting > 0 for waiting in seen[-1]) == number

    kx.wait_until(is_stuck, 60, "all wait for their clients")


def stop_reading(fault, running, say, seconds, number):
    """Clients that take nothing and say something now and then, or once; gives how long they held their threads."""
    clients = [open_stream(running) for _ in range(number)]
    wait_until_stuck(running, number)
    fault.expect(stream_threads(running) == number, "each stream has its thread")
    begin = time.monotonic()
    while stream_threads(running) and time.monotonic() < begin + seconds + 5:
        for client in clients:
            with contextlib.suppress(OSError):
                client.sendall(say)
        say = say if say[0] != CLOSE else b""
        time.sleep(0.5)
    took = time.monotonic() - begin
    fault.expect(stream_threads(running) == 0, f"{stream_threads(running)} still have a thread after {took:.0f} s")
    kx.wait_until(lambda: not connections(running), begin + seconds + 5 - time.monotonic(), "all are sent away")
    fault.notes.append(f"threads free after {took:.1f} s, connections after {time.monotonic() - begin:.1f} s")
    for client in clients:
        client.close()
    measure_recovery(fault, running, time.monotonic())


def stop_while_nobody_reads(fault, running):
    clients = [open_stream(running) for _ in range(10)]
    wait_until_stuck(running, 10)
    begin = time.monotonic()
    status = running.stop(signal.SIGTERM, 30)
    took = time.monotonic() - begin
    fault.recovered(took)
    fault.expect(status == 0 and took < STOP_SECONDS, f"ended with {status} after {took:.1f} s")
    for client in clients:
        client.close()


def run(device, report, plan):
    rows = [("then close", frame(CLOSE, struct.pack("!H", 1000)), CLOSE_SECONDS), ("but send pings", frame(PING, b"x"), PROGRESS_SECONDS),
            ("but send texts", frame(TEXT, b"x" * 100), PROGRESS_SECONDS)]
    with device.service() as running:
        kx.podman("run", "-d", "--name", "loud", "--network", "none", kx.IMAGE, "/bin/sh", "-c", LOUD)
        log = pathlib.Path(kx.podman("inspect", "-f", "{{.HostConfig.LogConfig.Path}}", "loud"))
        kx.wait_until(lambda: log.stat().st_size > 32_000_000, 60, "the container has written its log")
        try:
            for what, say, seconds in rows[:1] if plan.quick else rows:
                with report.fault(f"log streams whose clients read nothing {what}") as fault, fault.guarded(10):
                    stop_reading(fault, running, say, seconds, 10)
            with report.fault("SIGTERM while clients of log streams read nothing") as fault, fault.guarded(10):
                stop_while_nobody_reads(fault, running)
        finally:
            kx.podman("rm", "--force", "--time", "0", "loud")

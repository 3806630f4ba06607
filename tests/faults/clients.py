"""Clients that dawdle, stop half-way, say too much, or come in thousands."""

import contextlib
import selectors
import socket
import time

from device import COMPOSE_FILES, is_up, kx, measure_recovery

HEADER_SECONDS, BODY_SECONDS, RATE_SECONDS = 10, 30, 60
MANY, SERVED_AT_ONCE = 5000, 1024


def head(running, method, target, *lines):
    return "\r\n".join([f"{method} {kx.BASE}{target} HTTP/1.1", "Host: localhost", f"Authorization: Bearer {running.token()}",
                        *lines, "", ""]).encode()


def half_header(running):
    return head(running, "GET", "/settings")[:-10]


def half_json(running):
    return head(running, "PATCH", "/settings", "Content-Type: application/json", "Content-Length: 1000") + b'{"tcp_port": '


def half_upload(running):
    return head(running, "POST", "/compose-files", "Content-Type: application/x", "Content-Length: 100000",
                "Content-Disposition: attachment; filename=half.yml") + b"x" * 5000


def has_ended(connection):
    """Whether the server closed it; what it sent before is skipped."""
    connection.setblocking(False)
    try:
        while connection.recv(65536):
            pass
    except BlockingIOError:
        return False
    except OSError:
        pass  # reset
    return True


def dawdle(fault, running, number, opening, seconds, drip=None):
    """Watches dawdlers until the last one was sent away. Everybody else is served well meanwhile."""
    threads = running.threads()
    clients = open_clients = [running.raw(opening(running)) for _ in range(number)]
    fault.expect(running.threads() <= threads + 20, f"{running.threads()} threads")
    begin = last_drip = time.monotonic()
    slowest = 0
    while open_clients and time.monotonic() < begin + seconds + 5:
        asked = time.monotonic()
        fault.expect(running.request("GET", "/settings", timeout=10).status == 200, "others are not served")
        slowest = max(slowest, time.monotonic() - asked)
        open_clients = [client for client in open_clients if not has_ended(client)]
        if drip and time.monotonic() - last_drip >= 1:
            last_drip = time.monotonic()
            for client in open_clients:
                with contextlib.suppress(OSError):
                    client.send(drip)
        time.sleep(0.1)
    for client in clients:
        client.close()
    fault.expect(not open_clients, f"{len(open_clients)} are still connected after {seconds + 5} s")
    fault.expect(slowest < 2, f"others waited {slowest:.2f} s")
    fault.notes.append(f"sent away after {time.monotonic() - begin:.1f} s, others waited {slowest * 1000:.0f} ms at most")
    measure_recovery(fault, running, time.monotonic())


def say_too_much(fault, running):
    """A million header lines: refused long before they are all there."""
    before = running.resident_kib()
    line = b"X-Line: y\r\n"
    sent = 0
    with running.raw(head(running, "GET", "/settings")[:-2]) as client:
        try:
            for _ in range(1000):
                client.sendall(line * 1000)
                sent += 1000
        except OSError:
            pass  # it had enough
        client.settimeout(10)
        with contextlib.suppress(OSError):
            answer = client.recv(4096)
            fault.expect(answer.startswith(b"HTTP/1.1 431 "), f"answered {answer[:60]!r}")
    fault.expect(sent < 1_000_000, "took a million header lines in")
    fault.expect(running.resident_kib() - before < 4096, f"grew by {running.resident_kib() - before} KiB")
    fault.expect(is_up(running), "does not answer")


def come_in_thousands(fault, running):
    """More connections than are let in: the rest wait and have their turn."""
    request = head(running, "GET", "/settings")
    selector = selectors.DefaultSelector()
    begin = time.monotonic()
    served = most = 0
    for _ in range(MANY):
        client = socket.create_connection(("127.0.0.1", running.port), 30)
        client.sendall(request)
        client.setblocking(False)
        selector.register(client, selectors.EVENT_READ)
    connected = time.monotonic()
    kept = []
    while served < MANY and time.monotonic() < connected + 60:
        events = selector.select(0.5)
        for key, _ in events:
            data = key.fileobj.recv(4096)
            fault.expect(data.startswith(b"HTTP/1.1 200 "), f"answered {data[:60]!r}")
            selector.unregister(key.fileobj)
            kept.append(key.fileobj)
            served += 1
        if not events:  # as many are in as may be
            most = max(most, len(kept))
            fault.expect(running.descriptors() < SERVED_AT_ONCE + 100, f"{running.descriptors()} descriptors")
            for client in kept:
                client.close()
            kept = []
    for client in [*kept, *(key.fileobj for key in list(selector.get_map().values()))]:
        client.close()
    fault.expect(served == MANY, f"only {served} were served")
    fault.expect(most <= SERVED_AT_ONCE, f"{most} were served at once")
    fault.notes.append(f"{most} at once, all served after {time.monotonic() - begin:.1f} s")
    measure_recovery(fault, running, time.monotonic())


def run(device, report, plan):
    number = 50 if plan.quick else 300
    dawdlers = [("a header byte a second", half_header, HEADER_SECONDS, b"x"),
                ("half a header", half_header, HEADER_SECONDS, None),
                ("half a JSON body", half_json, BODY_SECONDS, None),
                ("half an upload", half_upload, BODY_SECONDS, None),
                ("a byte of an upload a second", half_upload, RATE_SECONDS, b"x")]
    with device.service() as running:
        for what, opening, seconds, drip in dawdlers[:1] if plan.quick else dawdlers:
            with report.fault(f"clients that send {what}") as fault, fault.guarded(number):
                dawdle(fault, running, number, opening, seconds, drip)
        for what, act, times in (("clients that send a million header lines", say_too_much, 5 if plan.quick else 100),
                                 ("5000 connections at once", come_in_thousands, 1 if plan.quick else 5)):
            with report.fault(what) as fault:
                for _ in range(times):
                    with fault.guarded():
                        act(fault, running)
        with report.fault("the same process after all these clients") as fault, fault.guarded():
            kx.wait_until(lambda: running.descriptors() < 100, 20, "descriptors come back")
            fault.expect(not list(COMPOSE_FILES.glob("*.tmp")), "temporary files")
            fault.notes.append(f"{running.resident_kib()} KiB, {running.threads()} threads, {running.descriptors()} descriptors")
            fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])

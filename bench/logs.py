"""Logs of real containers: how fast one is read, how soon a line arrives, what a client that does not read costs."""

import datetime
import re
import selectors
import statistics
import subprocess
import time

from bench import http, programs
from bench.measurement import Row
from bench.podman_double import FRAME, LINE
from bench.programs import kx
from bench.streams import MIB, log_target, read_through_service

LOG_BYTES = 100 * MIB
CLOSING = len("Container id: ended log stream finished.")
STREAMS = 100


def run_container(name, command):
    kx.make_image()
    kx.podman("run", "-d", "--replace", "--network=none", "--name", name, kx.IMAGE, "/bin/sh", "-c", command)


def write_log(size):
    """Leaves a container with a log of that size that has ended; gives the bytes of its text."""
    lines = size // len(LINE)
    run_container("ended", f"yes '{LINE.decode().strip()}' | head -n {lines}")
    kx.podman("wait", "ended", timeout=600)
    return lines * len(LINE)


def ended_log(effort, directory):
    """A container's whole log, after its end: each side reads it to its last byte."""
    rates, cpu_rates = ({tls: [] for tls in (False, True)} for _ in range(2))
    direct = []
    with programs.Podman(directory):
        written = write_log(LOG_BYTES)
        for _ in range(effort.rounds(5)):
            direct.append(read_from_podman("ended"))
            for tls in (False, True):
                with programs.Service(directory, tls=tls) as service:
                    size, seconds, cpu_seconds, _ = read_through_service(service, "ended", 120, ended=True)
                if size - CLOSING != written:
                    raise RuntimeError(f"of a log of {written} bytes {size - CLOSING:.0f} arrived")
                rates[tls].append(size / MIB / seconds)
                cpu_rates[tls].append(size / MIB / cpu_seconds)
        kx.podman("rm", "ended")
    return [
        Row("log", "log of 100 MiB of a container that has ended", "MiB/s", rates[False],
            "curl reading it from Podman, without following", direct, 20, "ratio"),
        Row("log-tls", "the same over TLS", "MiB/s", rates[True], "plain", rates[False]),
        Row("log-tls-cpu", "the same over TLS, by second of CPU time", "MiB/s", cpu_rates[True], "plain", cpu_rates[False], 0.6,
            "ratio"),
    ]


def read_from_podman(name):
    """MiB per second of the log's text, without Podman's framing."""
    output = subprocess.run(
        ["curl", "-sf", "--unix-socket", kx.PODMAN_SOCKET, "-o", "/dev/null", "-w", "%{size_download} %{time_total}",
         f"http://podman/v1.41/containers/{name}/logs?stdout=true&stderr=true"],
        capture_output=True, text=True, check=True).stdout.split()
    return int(output[0]) * len(LINE) / len(FRAME) / MIB / float(output[1])


def tail_of_large_log(effort, directory):
    """From the request's first byte to the last of the ten lines."""
    size = (100 if effort.quick else 1024) * MIB
    with programs.Podman(directory), programs.Service(directory) as service:
        write_log(size)
        times = []
        for _ in range(effort.rounds(20)):
            begin = time.monotonic()
            connection, received = http.open_websocket(service.address, log_target("ended", "?tail=10"), service.headers())
            with connection:
                while received.count(b"\n") < 10:
                    received += connection.recv(65536)
                times.append(1000 * (time.monotonic() - begin))
        kx.podman("rm", "ended")
    return [Row("log-tail", f"the last 10 lines of a log of {size // MIB} MiB", "ms", times, target=20, at_most=True)]


def latency(effort, directory):
    """From the driver's time of a line to its arrival, on every one of the streams."""
    late = []
    with programs.Podman(directory), programs.Service(directory) as service, selectors.DefaultSelector() as selector:
        run_container("ticking", "while usleep 100000; do echo tick; done")
        for _ in range(STREAMS):
            connection, _ = http.open_websocket(service.address, log_target("ticking", "?tail=0&timestamps=true"), service.headers())
            selector.register(connection, selectors.EVENT_READ)
        end = time.monotonic() + effort.seconds(15)
        while time.monotonic() < end:
            for key, _ in selector.select(1):
                text = key.fileobj.recv(65536)
                now = time.time()
                late += [1000 * (now - moment(time_text)) for time_text in re.findall(rb"([-0-9]+T\S+) tick", text)]
        for key in list(selector.get_map().values()):
            http.cut(key.fileobj)
        kx.podman("rm", "--force", "--time=0", "ticking")
    if len(late) < STREAMS:
        raise RuntimeError(f"only {len(late)} lines arrived")
    return [Row("log-latency", f"from a line's being written to its arrival, {STREAMS} streams open", "ms", late, target=20,
                at_most=True, note=f"99 %: {statistics.quantiles(late, n=100)[98]:.1f} ms")]


def moment(text):
    seconds, fraction, zone = re.fullmatch(r"([^.]+)\.(\d+)(Z|[+-].*)", text.decode()).groups()
    return datetime.datetime.fromisoformat(seconds + zone.replace("Z", "+00:00")).timestamp() + float(f"0.{fraction}")


def unread_streams(effort, directory):
    """Clients that open a long log and take nothing of it."""
    with programs.Podman(directory), programs.Service(directory) as service:
        write_log(LOG_BYTES)
        streams, before = [], None
        for count in (1, STREAMS):
            while len(streams) < count:
                streams.append(http.open_websocket(service.address, log_target("ended"), service.headers())[0])
            time.sleep(3)  # until each has all that fits on its way
            before = before or service.usage.resident_kib()
        each = (service.usage.resident_kib() - before) / (STREAMS - 1)
        for connection in streams:
            http.cut(connection)
        kx.podman("rm", "ended")
    return [Row("log-unread", "memory of a log stream whose client does not read", "KiB", [each], target=64, at_most=True)]

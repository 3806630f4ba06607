"""Log streams: how fast one is, what many cost, and what is left of ten thousand that came and went."""

import ssl
import time

from bench import http, programs
from bench.measurement import Growth, Row
from bench.programs import kx

MIB = 1 << 20


def log_target(name, query=""):
    return f"{programs.API}/containers/{name}/logs/ws{query}"


def read_through_service(service, name, seconds, ended=False):
    """Reads the log through the service for some time, or to its end where the container has ended. Returns its bytes, the
    seconds of the clock, those of the service's CPU time, and the number of messages."""
    before = service.usage.cpu_seconds()
    size, clock, messages, closed = programs.client("log", service.address,
                                                    http.websocket_head(log_target(name), service.headers()), seconds)
    if closed != ended:
        raise RuntimeError(f"the log {'ended' if closed else 'did not end'} after {size:.0f} bytes")
    return size, clock, service.usage.cpu_seconds() - before, messages


def double_stream(effort, directory):
    """From a double that sends at memory speed."""
    rates, cpu_rates, messages = ({tls: [] for tls in (False, True)} for _ in range(3))
    with programs.PodmanDouble(directory):
        for _ in range(effort.rounds(5)):
            for tls in (False, True):
                with programs.Service(directory, tls=tls) as service:
                    size, seconds, cpu_seconds, count = read_through_service(service, "endless", effort.seconds(4))
                rates[tls].append(size / MIB / seconds)
                cpu_rates[tls].append(size / MIB / cpu_seconds)
                messages[tls] = f"{size / count:.0f} bytes a message"
    return [
        Row("stream", "log stream from a double that sends at memory speed", "MiB/s", rates[False], note=messages[False]),
        Row("stream-tls", "the same over TLS", "MiB/s", rates[True], "plain", rates[False], note=messages[True]),
        Row("stream-tls-cpu", "the same over TLS, by second of CPU time", "MiB/s", cpu_rates[True], "plain",
            cpu_rates[False], 0.6, "ratio"),
    ]


class OpenStreams:
    """Streams of one container, each held open by a client that reads."""

    def __init__(self, service, name, count):
        self.sockets = [http.open_websocket(service.address, log_target(name), service.headers())[0] for _ in range(count)]
        for connection in self.sockets:
            connection.setblocking(False)

    def read(self):
        for connection in self.sockets:
            try:
                while connection.recv(65536):
                    pass
            except (BlockingIOError, ssl.SSLWantReadError):
                pass

    def read_for(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.read()
            time.sleep(0.02)

    def cut(self):
        for connection in self.sockets:
            http.cut(connection)


def stream_growth(effort, directory, tls):
    counts = [1, 10, 100, 1000]
    memory, threads, gained = [], [], []
    with programs.PodmanDouble(directory) as double:
        for count in counts:
            with programs.Service(directory, tls=tls, MaxConnections=2000) as service:
                before = service.usage.resident_kib()
                streams = OpenStreams(service, "chatty", count)
                streams.read_for(effort.seconds(3))
                kx.wait_until(lambda n=count: double.open_streams() == n, 30, f"{count} streams in the double")
                memory.append(service.usage.resident_kib() / 1024)
                gained.append(service.usage.resident_kib() - before)
                threads.append(service.usage.threads())
                streams.cut()
                kx.wait_until(lambda: double.open_streams() == 0, 30, "the end of the streams in the double")
    hundred = counts.index(100)
    return [
        Row("memory-streams", "resident memory, 100 streams of ten lines a second", "MiB", [memory[hundred]],
            target=13 if tls else 11, at_most=True),
        Row("memory-stream", "1000 streams, memory of each", "KiB", [gained[-1] / counts[-1]], target=None if tls else 24,
            at_most=True),
        Growth("growth-streams", "log streams, resident memory", "streams", "MiB", counts, {"the service": memory}),
        Growth("growth-streams-threads", "log streams, threads", "streams", "threads", counts, {"the service": threads}),
    ]


def streams_in_turn(effort, directory, tls):
    """Opens streams and cuts them without a goodbye, one after the other, and looks at what is left."""
    count, warm_up = effort.count(10000), effort.count(1000)
    with programs.PodmanDouble(directory) as double, programs.Service(directory, tls=tls) as service:
        def footprint():
            kx.wait_until(lambda: double.open_streams() == 0, 30, "the end of the streams in the double")
            time.sleep(1)
            return service.usage.resident_kib(), service.usage.threads(), service.usage.descriptors()

        target, headers = log_target("idle"), service.headers()

        def open_and_cut(times):
            for _ in range(times):
                connection, rest = http.open_websocket(service.address, target, headers)
                if not rest:
                    connection.recv(65536)
                http.cut(connection)

        open_and_cut(warm_up)
        before = footprint()
        open_and_cut(count)
        after = footprint()
    memory, threads, descriptors = (late - early for early, late in zip(before, after))
    note = f"{count} streams after {warm_up} to warm up; resident {before[0]} KiB before, {after[0]} KiB after"
    return [
        Row("churn-memory", f"{count} streams opened and cut in turn, growth of memory", "KiB", [memory], target=256,
            at_most=True, note=note),
        Row("churn-threads", "the same, growth of threads", "", [threads], target=0, at_most=True),
        Row("churn-descriptors", "the same, growth of descriptors", "", [descriptors], target=0, at_most=True),
    ]

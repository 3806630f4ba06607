"""Log streams: how fast one is, what many cost, and what is left of ten thousand that came and went."""

import os
import subprocess
import time

from bench import http, programs
from bench.measurement import Growth, Row
from bench.podman_double import FRAME, LINE
from bench.programs import kx

LOG_BYTES = 128 << 20


def log_target(name, query=""):
    return f"{programs.API}/containers/{name}/logs/ws{query}"


def read_with_curl(name, seconds):
    """Reads the log straight from Podman for some time. Returns its bytes per second, without Podman's framing."""
    output = subprocess.run(
        ["curl", "-s", "--max-time", str(seconds), "--unix-socket", kx.PODMAN_SOCKET, "-o", "/dev/null",
         "-w", "%{http_code} %{size_download} %{time_total}",
         f"http://podman/v1.41/containers/{name}/logs?follow=true&stdout=true&stderr=true"],
        capture_output=True, text=True).stdout.split()
    if output[0] != "200":
        raise RuntimeError(f"Podman answered {output[0]}")
    return int(output[1]) / float(output[2]) * len(LINE) / len(FRAME)


def read_through_service(service, name, seconds):
    """Reads the log through the service for some time. Returns its bytes per second, and those of a message."""
    output = subprocess.run(
        [programs.WEBSOCKET_READER, str(service.port), log_target(name), service.headers()["Authorization"], str(seconds)],
        check=True, capture_output=True, text=True).stdout.split()
    return int(output[0]) / float(output[1]), int(output[0]) / int(output[2])


def compare_stream(service, name, effort):
    """Alternates both sides; returns the MiB per second of ours and of curl."""
    own, direct = [], []
    for _ in range(effort.rounds(7)):
        direct.append(read_with_curl(name, effort.seconds(4)) / (1 << 20))
        rate, message = read_through_service(service, name, effort.seconds(4))
        own.append(rate / (1 << 20))
    return own, direct, f"{message:.0f} bytes a message"


def stream(effort, directory):
    with programs.Podman(directory), programs.Service(directory) as service:
        kx.make_image()
        lines = f"yes '{LINE.decode().strip()}' | head -c {LOG_BYTES}"
        kx.podman("run", "-d", "--replace", "--network=none", "--name", "fast", kx.IMAGE, "/bin/sh", "-c", f"{lines}; sleep 1000")
        kx.wait_until(lambda: log_size("fast") > LOG_BYTES, 30, "the container's log")
        own, direct, note = compare_stream(service, "fast", effort)
        kx.podman("rm", "-f", "-t", "0", "fast")
    with programs.PodmanDouble(directory), programs.Service(directory) as service:
        own_double, direct_double, note_double = compare_stream(service, "endless", effort)
    return [
        Row("stream", "log stream, from Podman", "MiB/s", own, "the same read with curl", direct, 0.9, "ratio", note=note),
        Row("stream-double", "log stream, from a double that sends at memory speed", "MiB/s", own_double,
            "the same read with curl", direct_double, 0.9, "ratio", note=note_double),
    ]


def log_size(container):
    return os.path.getsize(kx.podman("inspect", "--format", "{{.HostConfig.LogConfig.Path}}", container))


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
            except BlockingIOError:
                pass

    def read_for(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.read()
            time.sleep(0.02)

    def cut(self):
        for connection in self.sockets:
            http.cut(connection)


def stream_growth(effort, directory):
    counts = [1, 10, 100, 1000]
    memory, threads = {"the service": []}, {"the service": []}
    hundred = None
    with programs.PodmanDouble(directory) as double:
        for count in counts:
            with programs.Service(directory, MaxConnections=2000) as service:
                streams = OpenStreams(service, "chatty", count)
                streams.read_for(effort.seconds(3))
                kx.wait_until(lambda n=count: double.open_streams() == n, 30, f"{count} streams in the double")
                memory["the service"].append(service.usage.resident_kib() / 1024)
                threads["the service"].append(service.usage.threads())
                if count == 100:
                    hundred = memory["the service"][-1]
                streams.cut()
                kx.wait_until(lambda: double.open_streams() == 0, 30, "the end of the streams in the double")
    return [
        Row("memory-streams", "resident memory, 100 streams of ten lines a second", "MiB", [hundred], target=40, at_most=True),
        Growth("growth-streams", "log streams, resident memory", "streams", "MiB", counts, memory),
        Growth("growth-streams-threads", "log streams, threads", "streams", "threads", counts, threads),
    ]


def streams_in_turn(effort, directory):
    """Opens streams and cuts them without a goodbye, one after the other, and looks at what is left."""
    count, warm_up = effort.count(10000), effort.count(1000)
    with programs.PodmanDouble(directory) as double, programs.Service(directory) as service:
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

"""What the program takes when it does little: size, start, idle memory, idle connections."""

import subprocess
import time

from bench import http, programs
from bench.measurement import Growth, Row


def executable(_, directory):
    stripped = directory / "stripped"
    subprocess.run(["strip", "-o", stripped, programs.EXECUTABLE], check=True)
    return [Row("executable", "executable, stripped", "MiB", [stripped.stat().st_size / (1 << 20)], target=3, at_most=True)]


def start(effort, directory):
    """From the start of the process to the first answer; the token file is there, as after any first start."""
    times, idle = [], []
    with programs.PodmanDouble(directory):
        with programs.Service(directory) as service:
            headers = service.headers()
        for _ in range(effort.rounds(21)):
            started = time.perf_counter()
            service = programs.Service(directory)
            try:
                times.append(1000 * (first_answer(service, headers) - started))
                service.wait_ready()
                time.sleep(0.5)
                idle.append(service.usage.resident_kib() / 1024)
            finally:
                service.__exit__()
    return [
        Row("start", "start to first answer", "ms", times, target=50, at_most=True),
        Row("memory-idle", "resident memory, idle", "MiB", idle, target=10, at_most=True),
    ]


def first_answer(service, headers):
    request = http.head("GET", programs.API + "/settings", headers)
    deadline = time.perf_counter() + 10
    while time.perf_counter() < deadline:
        try:
            with http.Connection(service.address) as connection:
                if connection.exchange(request)[0] == 200:
                    return time.perf_counter()
        except OSError:
            time.sleep(0.0005)
    raise TimeoutError("the service never answered")


def connections(effort, directory):
    """Idle connections, each of which has had one request answered."""
    counts = [10, 100, 1000, 10000]
    each, threads, total = [], [], []
    with programs.PodmanDouble(directory):
        for count in counts:
            with programs.Service(directory, MaxConnections=12000) as service:
                request = http.head("GET", programs.API + "/settings", service.headers())
                before, threads_before = service.usage.resident_kib(), service.usage.threads()
                held = []
                for _ in range(count):
                    held.append(http.Connection(service.address))
                    held[-1].exchange(request)
                time.sleep(0.5)
                total.append(service.usage.resident_kib() / 1024)
                each.append((service.usage.resident_kib() - before) / count)
                threads.append(service.usage.threads() - threads_before)
                for connection in held:
                    http.cut(connection.socket)
    return [
        Row("connections-memory", "10 000 idle connections, memory of each", "KiB", [each[-1]], target=8, at_most=True),
        Row("connections-threads", "10 000 idle connections, threads more", "", [threads[-1]], target=48, at_most=True),
        Growth("growth-connections", "idle connections, resident memory", "connections", "MiB", counts,
               {"the service": total}),
    ]

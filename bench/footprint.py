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
        Row("start", "start to first answer", "ms", times, target=15, at_most=True),
        Row("memory-idle", "resident memory, idle", "MiB", idle, target=8, at_most=True),
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


def connections(effort, directory, tls):
    """Idle connections, each of which has had one request answered."""
    counts = [10, 100, 1000] + ([] if effort.quick else [4000])
    lines = {"the service": [], "nginx": []}
    with programs.PodmanDouble(directory):
        for count in counts:
            with programs.Service(directory, tls=tls, MaxConnections=5000) as service:
                request = http.head("GET", programs.API + "/settings", service.headers())
                lines["the service"].append(growth_by_connections(service, request, count))
                threads = service.usage.threads()
            with programs.Nginx(directory, tls=tls) as nginx:
                lines["nginx"].append(growth_by_connections(nginx, http.head("GET", "/fixed"), count))
    own, of_nginx = ([line[-1] / counts[-1]] for line in lines.values())
    bound = {"target": 1.0, "judged": "ratio"} if tls else {"target": 2}
    return [
        Row("connections-memory", f"{counts[-1]} idle connections, memory of each", "KiB", own, "nginx", of_nginx,
            at_most=True, **bound),
        Row("connections-threads", f"{counts[-1]} idle connections, threads", "", [threads]),
        Growth("growth-connections", "idle connections, growth of resident memory", "connections", "KiB", counts, lines),
    ]


def growth_by_connections(program, request, count):
    """KiB that the program gained by so many connections."""
    with http.Connection(program.address) as first:
        first.exchange(request)
    before = program.usage.resident_kib()
    held = []
    for _ in range(count):
        held.append(http.Connection(program.address))
        held[-1].exchange(request)
    time.sleep(0.5)
    gained = program.usage.resident_kib() - before
    for connection in held:
        http.cut(connection.socket)
    return gained

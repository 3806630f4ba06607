"""A real-time task beside the service: how late it wakes while its CPU also serves uploads, streams, lists and compose commands."""

import contextlib
import json
import pathlib
import subprocess
import threading
import time

from bench import http, programs, streams, uploads
from bench.measurement import Row
from bench.programs import kx

STREAMS = 100
UPLOAD_BYTES = 32 * uploads.MIB
PODMAN_LOGS = "/podman/v1.41/containers/chatty/logs?follow=true&stdout=true&stderr=true&tail=0"
COMPOSE = "version: '3'\nservices: {a: {image: 'localhost/hello:1', command: sleep 1000, stop_grace_period: 0s, network_mode: none}}\n"


class Load(threading.Thread):
    """Does the same thing again and again, with pauses, until it is ended; an error of it is the measurement's."""

    def __init__(self, pause, act):
        super().__init__(daemon=True)
        self.pause, self.act = pause, act
        self.ending = threading.Event()
        self.failure = None
        self.times = 0

    def run(self):
        while not self.ending.wait(self.pause):
            try:
                self.act()
                self.times += 1
            except Exception as failure:
                self.failure = failure
                return

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *exception):
        self.ending.set()
        self.join()
        if self.failure and exception == (None, None, None):
            raise self.failure


def drain(sockets):
    for connection in sockets:
        with contextlib.suppress(BlockingIOError):
            while connection.recv(65536):
                pass


def open_plain_stream(nginx):
    connection = http.connect(nginx.address)
    connection.sendall(http.head("GET", PODMAN_LOGS))
    return connection


def compose(*command):
    subprocess.run(["docker-compose", "-f", "/run/kx-realtime.yml", "-p", "realtime", *command], check=True, capture_output=True,
                   env={"PATH": "/usr/bin:/bin", "DOCKER_HOST": "unix://" + kx.PODMAN_SOCKET, "HOME": "/root"})


def latencies(seconds):
    """Microseconds, of a task that wakes each millisecond with real-time priority on the server's CPU: (99.9 %, worst)."""
    report = pathlib.Path("/run/kx-cyclictest.json")
    subprocess.run(["cyclictest", "--quiet", "--mlockall", "--policy=fifo", "--priority=80", "--interval=1000", "--threads=1",
                    f"--affinity={programs.SERVER_CPU}", f"--mainaffinity={programs.CLIENT_CPU}", f"--duration={seconds}",
                    "--histogram=20000", f"--json={report}"], check=True, capture_output=True)
    thread = json.loads(report.read_text())["thread"]["0"]
    histogram = sorted((int(microseconds), count) for microseconds, count in thread["histogram"].items())
    allowed = thread["cycles"] * 0.001
    late = 0
    for microseconds, count in reversed(histogram):
        late += count
        if late > allowed:
            return microseconds, thread["max"]
    return 0, thread["max"]


def under_load(seconds, sockets, upload, ask_list, compose_up, compose_down):
    with Load(0.05, lambda: drain(sockets)), Load(0.2, upload), Load(0.02, ask_list), \
            Load(0.5, lambda: (compose_up(), compose_down())) as last:
        figures = latencies(seconds)
    if last.times == 0:
        raise RuntimeError("no compose command ended meanwhile")
    return figures


def beside_service(service, source, seconds):
    opened = streams.OpenStreams(service, "chatty", STREAMS)
    target = uploads.to_service(service)

    def ask(method, path):
        with http.Connection(service.address) as connection:
            status = connection.request(method, programs.API + path, {**service.headers(), "Content-Length": "0"})[0]
        if status >= 300:
            raise RuntimeError(f"{method} {path}: {status}")

    service.request("POST", "/compose-files", COMPOSE.encode(), {"Content-Type": "application/octet-stream",
                                                                 "Content-Disposition": "attachment; filename=realtime.yml"})
    figures = under_load(seconds, opened.sockets, lambda: uploads.upload(service, *target, source), lambda: ask("GET", "/containers"),
                         lambda: (ask("POST", "/compose-files/realtime.yml/containers/create"), ask("POST", "/compose-files/realtime.yml/containers/start")),
                         lambda: ask("DELETE", "/compose-files/realtime.yml/containers"))
    opened.cut()
    return figures


def beside_nginx(nginx, source, seconds):
    pathlib.Path("/run/kx-realtime.yml").write_text(COMPOSE)
    opened = [open_plain_stream(nginx) for _ in range(STREAMS)]
    for connection in opened:
        connection.setblocking(False)

    def ask_list():
        with http.Connection(nginx.address) as connection:
            connection.request("GET", "/podman/v1.41/containers/json")

    figures = under_load(seconds, opened, lambda: uploads.upload(nginx, *uploads.to_nginx(nginx), source), ask_list,
                         lambda: (compose("up", "--no-start"), compose("start")), lambda: compose("down"))
    for connection in opened:
        http.cut(connection)
    return figures


def realtime(effort, directory):
    own, reference = [], []
    source = uploads.make_source(directory, UPLOAD_BYTES)
    with programs.Podman(directory, programs.SERVER_CPU):
        kx.make_image()
        kx.podman("run", "-d", "--replace", "--network=none", "--name", "chatty", kx.IMAGE, "/bin/sh", "-c",
                  "while :; do echo the quick brown fox jumps over the lazy dog; sleep 0.1; done")
        for _ in range(effort.rounds(6)):
            with programs.Nginx(directory, programs.SERVER_CPU) as nginx:
                reference.append(beside_nginx(nginx, source, effort.seconds(60)))
            with programs.Service(directory, programs.SERVER_CPU) as service:
                own.append(beside_service(service, source, effort.seconds(60)))
        kx.podman("rm", "-f", "-t", "0", "chatty")
    return [Row(name, f"a task with real-time priority on the busy CPU wakes late, {what}", "µs", [round[index] for round in own],
                "the same load served by nginx and Podman", [round[index] for round in reference], 1.0, "ratio", at_most=True)
            for index, (name, what) in enumerate((("realtime-99.9", "99.9 % of the time at most"), ("realtime-worst", "at worst")))]

"""Podman missing, dying, hanging and answering rubbish: the service says so, lives on and recovers."""

import concurrent.futures
import contextlib
import multiprocessing
import os
import signal
import socketserver
import time

from conftest import PREFIX, check_log, kx


def recovered(service):
    return service.request("GET", "/containers").status == 200


def test_missing_podman_fails_the_start_but_not_the_process(device, start_service):
    running = start_service(environment={"PATH": "/nonexistent"})
    assert running.request("GET", "/settings").json()["service_state"] == "failed"
    assert running.request("GET", "/containers").detail() == "Container service is not started"
    check_log(running, running.stop(), 1)
    for line in ("Failed to start the service", "Something went wrong!"):
        assert PREFIX + line in running.log()


def test_killed_podman_ends_its_requests_and_is_started_again(service):
    kx.podman("run", "-d", "--name", "slow", kx.IMAGE, "/bin/sh", "-c", "trap '' TERM; while :; do sleep 0.1; done")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        pending = pool.submit(service.request, "POST", "/containers/slow/stop?timeout=30")
        kx.wait_until(lambda: "Stopping container 'slow'" in service.log(), 10, "the stop reached the service")
        time.sleep(0.5)
        os.kill(kx.podman_service_pid(), signal.SIGKILL)
        answer = pending.result(10)
    assert answer.status == 500
    assert answer.detail().startswith("Error occurred while stopping container 'slow': ")
    assert len(answer.detail()) > len("Error occurred while stopping container 'slow': "), "no reason given"
    kx.wait_until(lambda: recovered(service), 20, "Podman answers again")


def test_hanging_podman_delays_only_those_who_ask_it(service):
    before = service.log().count("Listing containers")
    with concurrent.futures.ThreadPoolExecutor(20) as pool:
        with kx.frozen_podman():
            hanging = [pool.submit(service.request, "GET", "/containers") for _ in range(20)]
            kx.wait_until(lambda: service.log().count("Listing containers") >= before + 20, 10, "all requests reached Podman")
            for _ in range(20):
                assert service.request("GET", "/settings").status == 200
            assert not any(future.done() for future in hanging)
        assert {future.result(30).status for future in hanging} == {200}


RUBBISH = {
    "nothing": b"",
    "noise": b"\x00\x01\x02 not HTTP \xff\r\n\r\n",
    "half": b"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n[",
    "text": b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
    "numbers": b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n[1,2]",
    "refusal": b"HTTP/1.1 500 Oops\r\nContent-Length: 4\r\n\r\noops",
    "headers": b"HTTP/1.1 200 OK\r\n" + b"X: y\r\n" * 100000,
}


def serve_rubbish(answer_file, listens):
    """Stands for a Podman that answers pings as it should, and everything else with what the file holds."""

    class Handler(socketserver.StreamRequestHandler):
        def handle(self):
            request = b""
            while b"\r\n\r\n" not in request:
                data = self.request.recv(4096)
                if not data:
                    return
                request += data
            ping = b"_ping" in request.split(b"\r\n")[0]
            with contextlib.suppress(OSError):  # the service may have had enough
                self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nOK" if ping
                                 else answer_file.read_bytes())

    server = socketserver.ThreadingUnixStreamServer(kx.PODMAN_SOCKET, Handler)
    listens.set()
    server.serve_forever()


def test_rubbish_is_answered_500_and_a_dead_podman_is_replaced(device, start_service, tmp_path):
    answer_file = tmp_path / "answer"
    fork = multiprocessing.get_context("fork")
    listens = fork.Event()
    fake = fork.Process(target=serve_rubbish, args=(answer_file, listens), daemon=True)
    fake.start()
    assert listens.wait(20)
    running = start_service()
    for name, rubbish in RUBBISH.items():
        answer_file.write_bytes(rubbish)
        for path, what in (("/containers", "containers"), ("/images", "images")):
            answer = running.request("GET", path)
            assert (answer.status, answer.json()["title"]) == (500, "InternalServerError"), name
            assert answer.detail().startswith(f"Error occurred while listing {what}: "), name
    fake.kill()
    fake.join()
    kx.wait_until(lambda: recovered(running), 30, "a Podman of its own takes over")
    check_log(running, running.stop(), 0)

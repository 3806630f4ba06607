"""SIGTERM in the middle of everything."""

import asyncio
import http.client
import signal
import socket
import subprocess
import threading
import time

import websockets
from clients import half_header, half_json, half_upload
from device import COMPOSE, COUNTER, MARKER, SETTINGS, kx, upload_image, upload_text
from podman_faults import follow, read_until

# The compose tool may take 2 s to end and Podman 5 s before they are killed; then running requests have 5 s; the rest is
# for a busy machine.
BOUND = 2 + 5 + 5 + 3
STREAMS = 20


def in_background(work):
    def run():
        try:
            work()
        except (OSError, http.client.HTTPException, websockets.WebSocketException):
            pass  # the service ended meanwhile

    thread = threading.Thread(target=run, daemon=True)
    thread.start()
    return thread


def follow_log(running):
    async def read():
        async with follow(running, "counter") as stream:
            await read_until(stream, 60)

    asyncio.run(read())


def keep_busy(running):
    """One of everything that takes long, and many of what is cheap."""
    upload_text(running, "compose-files", "busy.yml", COMPOSE)
    before = running.descriptors()
    threads = [in_background(lambda: follow_log(running)) for _ in range(STREAMS)]
    kx.wait_until(lambda: running.descriptors() >= before + 2 * STREAMS - 2, 30,  # the upload's may still have counted
                  "each stream has its client and its Podman")
    threads += [in_background(work) for work in (
        lambda: running.request("POST", "/containers/stubborn/stop?timeout=30"),
        lambda: running.request("POST", "/compose-files/busy.yml/containers/start"),
        lambda: upload_image(running),
        *[lambda: running.request("GET", "/containers")] * 10)]
    sockets = [running.raw(opening(running)) for opening in (half_header, half_json, half_upload) for _ in range(20)]
    sockets += [running.raw() for _ in range(300)]
    return threads, sockets


def end_in_the_middle(fault, device, is_frozen, delay):
    with device.service() as running:
        kx.podman("run", "-d", "--name", "counter", "--network", "none", kx.IMAGE, "/bin/sh", "-c", COUNTER)
        kx.podman("run", "-d", "--name", "stubborn", "--network", "none", kx.IMAGE, "/bin/sh", "-c", "trap '' TERM; while :; do sleep 0.1; done")
        container = int(kx.podman("inspect", "-f", "{{.State.Pid}}", "counter"))
        threads, sockets = keep_busy(running)
        time.sleep(delay)
        if is_frozen:
            frozen = kx.frozen_podman()
            frozen.__enter__()
        begin = time.monotonic()
        try:
            status = running.stop(signal.SIGTERM, BOUND + 30)
        except subprocess.TimeoutExpired:
            fault.lose(f"still there {BOUND + 30} s after SIGTERM")
            return
        took = time.monotonic() - begin
        fault.recovered(took)
        fault.expect(took <= BOUND, f"took {took:.1f} s to end")
        fault.expect(status == 0, f"exit status {status}\n{running.log()[-2000:]}")
        fault.expect(not MARKER.exists(), "the enable marker stays")
        fault.expect(kx.podman_service_pid() is None, "its Podman stays")
        with open(f"/proc/{container}/cmdline", "rb") as command:
            fault.expect(command.read(), "a container ended with the service")
        for thread in threads:
            thread.join(10)
        fault.expect(not any(thread.is_alive() for thread in threads), "a client still waits")
        for connection in sockets:
            connection.close()
    with device.service(fresh=False) as again:
        fault.expect(again.request("GET", "/containers").status == 200, "does not start again")


def end_after_failed_start(fault, device, wait):
    """A call to a Podman that says nothing lasts as long as any other, but no longer than the process."""
    kx.clear_device()
    SETTINGS.parent.mkdir(parents=True, exist_ok=True)
    SETTINGS.write_text('{"tcp_port": 0}')  # where no Podman can be: the start fails
    with socket.socket(socket.AF_UNIX) as podman:
        podman.bind(kx.PODMAN_SOCKET)
        podman.listen()
        with device.service({"ContainerRuntime.PodmanTransport": "tcp"}, fresh=False) as running:
            state = running.request("GET", "/settings").json()["service_state"]
            fault.expect(state == "failed", f"the start did not fail: {state}")
            thread = in_background(lambda: follow_log(running))
            time.sleep(wait)
            fault.expect(thread.is_alive(), f"a call to Podman ended within {wait} s")
            begin = time.monotonic()
            status = running.stop(signal.SIGTERM, BOUND + 30)
            took = time.monotonic() - begin
            fault.recovered(took)
            fault.expect(took <= BOUND, f"took {took:.1f} s to end")
            fault.expect(status == 1, f"exit status {status}\n{running.log()[-2000:]}")


def run(device, report, plan):
    rounds = 1 if plan.quick else 10
    for is_frozen in (False, True):
        what = "SIGTERM in the middle of everything" + (", with Podman frozen" if is_frozen else "")
        with report.fault(what) as fault:
            for number in range(rounds):
                with fault.guarded():
                    end_in_the_middle(fault, device, is_frozen, number % 5 * 0.3)
            fault.notes.append(f"recovery is the time to its end, {BOUND} s at most")
    with report.fault("SIGTERM after a failed start, a call to a silent Podman under way") as fault, fault.guarded():
        end_after_failed_start(fault, device, 1 if plan.quick else 12)

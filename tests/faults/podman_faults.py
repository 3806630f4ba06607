"""Podman killed and frozen during each kind of request."""

import asyncio
import concurrent.futures
import contextlib
import os
import random
import signal
import time

import websockets
from device import COMPOSE, IMAGES, TRAVELLER, kx, measure_recovery, upload_image, upload_text

FROZEN_SECONDS = 1


def make_subject(*how):
    kx.podman("rm", "--force", "--time", "0", "--ignore", "subject")
    kx.podman(*how, "--name", "subject", "--network", "none", kx.IMAGE, "sleep", "1000")


def make_compose_file(running):
    kx.podman("rm", "--force", "--time", "0", "--all")
    upload_text(running, "compose-files", "subject.yml", COMPOSE)


# kind: how it is set up, the request, its statuses when all is well, the statuses of asking again afterwards
REQUESTS = {
    "list of containers": (lambda _: None, lambda s: s.request("GET", "/containers?all=true"), {200}, {200}),
    "start": (lambda _: make_subject("create"), lambda s: s.request("POST", "/containers/subject/start"), {204}, {204, 304}),
    "stop": (lambda _: make_subject("run", "-d"), lambda s: s.request("POST", "/containers/subject/stop?timeout=0"), {204}, {204, 304}),
    "delete": (lambda _: make_subject("create"), lambda s: s.request("DELETE", "/containers/subject?force=true"), {204}, {204, 404}),
    "list of images": (lambda _: None, lambda s: s.request("GET", "/images"), {200}, {200}),
    "upload and load of an image": (lambda _: kx.podman("rmi", "--force", "--ignore", TRAVELLER), upload_image, {204}, {204}),
    "compose command": (make_compose_file, lambda s: s.request("POST", "/compose-files/subject.yml/containers/create", timeout=120),
                        {201}, {200, 201}),
}


def is_clear_error(answer):
    return answer.status == 500 and len(answer.detail()) > 20


def ask_meanwhile(fault, running):
    """What does not need Podman is answered whatever happens to it."""
    begin = time.monotonic()
    status = running.request("GET", "/settings", timeout=10).status
    fault.expect(status == 200 and time.monotonic() - begin < 5, f"GET /settings meanwhile: {status}")


def kill_during(fault, running, kind, round_number):
    prepare, ask, good, again = REQUESTS[kind]
    prepare(running)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        if round_number % 2 == 0:  # certainly while the request is with Podman
            with kx.frozen_podman() as podman:
                pending = pool.submit(ask, running)
                time.sleep(0.3)
                os.kill(podman, signal.SIGKILL)
        else:  # at any point of its work
            podman = kx.podman_service_pid()
            pending = pool.submit(ask, running)
            time.sleep(random.uniform(0, 0.3))
            os.kill(podman, signal.SIGKILL)
        begin = time.monotonic()
        ask_meanwhile(fault, running)
        measure_recovery(fault, running, begin)
        answer = pending.result(120)
    fault.expect(answer.status in good or is_clear_error(answer), f"{kind}: {answer.status} {answer.body[:200]}")
    repeated = ask(running)
    if repeated.status == 409 or repeated.status == 500:  # Podman tidies up after its own death when asked the next time
        fault.notes or fault.notes.append("asked twice where Podman had left something half done")
        repeated = ask(running)
    fault.expect(repeated.status in again, f"{kind} asked again: {repeated.status} {repeated.body[:300]}")
    fault.expect(not list(IMAGES.iterdir()), "a file of an upload stays behind")


def freeze_during(fault, running, kind, _):
    prepare, ask, good, _ = REQUESTS[kind]
    prepare(running)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        with kx.frozen_podman():
            pending = pool.submit(ask, running)
            time.sleep(FROZEN_SECONDS)
            ask_meanwhile(fault, running)
            fault.expect(not pending.done(), f"{kind} was answered without Podman")
        begin = time.monotonic()
        measure_recovery(fault, running, begin)
        answer = pending.result(120)
    fault.expect(answer.status in good, f"{kind}: {answer.status} {answer.body[:300]}")


def log_url(running, name, query=""):
    return f"ws://127.0.0.1:{running.port}{kx.BASE}/containers/{name}/logs/ws{query}"


def follow(running, name):
    return websockets.connect(log_url(running, name), extra_headers={"Authorization": f"Bearer {running.token()}"}, max_size=None)


async def read_until(stream, seconds):
    """What arrives within the time or until the stream ends; whether it ended."""
    text = ""
    deadline = time.monotonic() + seconds
    with contextlib.suppress(asyncio.TimeoutError):
        while True:
            try:
                text += await asyncio.wait_for(stream.recv(), deadline - time.monotonic())
            except websockets.ConnectionClosed:
                return text, True
    return text, False


@contextlib.contextmanager
def whole_life(fault, device):
    """A service from start to end; the pauses before Podman is started again grow within one life."""
    with fault.guarded(), device.service() as running:
        yield running
        fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])


def run(device, report, plan):
    whats = [(f"Podman {what} during {kind}", lambda fault, running, number, act=act, kind=kind: act(fault, running, kind, number))
             for kind in REQUESTS for what, act in (("killed", kill_during), ("frozen", freeze_during))]
    for what, act in whats:
        with report.fault(what) as fault, whole_life(fault, device) as running:
            for number in range(plan.podman_rounds):
                with fault.guarded():
                    act(fault, running, number)
            fault.times = plan.podman_rounds
    if not plan.quick:
        with report.fault("Podman frozen for good during a compose command") as fault, whole_life(fault, device) as running:
            make_compose_file(running)
            with kx.frozen_podman():
                begin = time.monotonic()
                answer = REQUESTS["compose command"][1](running)
                fault.expect(is_clear_error(answer), f"compose command: {answer.status} {answer.body[:300]}")
                measure_recovery(fault, running, begin, 150)
            fault.notes.append("noticed by its missing answers and replaced")

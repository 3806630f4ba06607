"""Changes to containers and images while Podman is killed again and again: who follows the events ends up with what is."""

import asyncio
import http.client
import json
import os
import random
import signal
import socket
import statistics
import threading
import time

import websockets
from device import kx

NAMES = [f"changing-{i}" for i in range(20)]
TAGS = [f"localhost/changing:{i}" for i in range(20)]
# What an event makes of a container; one that is removed has no state.
STATES = {"create": "created", "start": "running", "die": "exited", "remove": None}


class PodmanApi(http.client.HTTPConnection):
    """Podman's own API, which is quicker than its command line."""

    def __init__(self):
        super().__init__("podman", timeout=60)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.connect(kx.PODMAN_SOCKET)

    def call(self, method, path, body=None):
        self.request(method, "/v1.41" + path, body and json.dumps(body), {"Content-Type": "application/json"})
        answer = self.getresponse()
        answer.read()
        return answer.status


class Mirror:
    """What somebody believes who has nothing but the events."""

    def __init__(self):
        self.containers, self.images, self.seen = {}, set(), {}
        self.lock = threading.Lock()

    def take(self, event):
        with self.lock:
            if event.get("relist"):
                self.containers, self.images = containers_that_are(), tags_that_are()
            elif event.get("kind") == "container" and event["name"] in NAMES and event["action"] in STATES:
                state = STATES[event["action"]]
                self.containers[event["name"]] = state
                self.seen[event["name"], event["action"]] = time.monotonic()
                if state is None:
                    del self.containers[event["name"]]
            elif event.get("kind") == "image" and event["name"] in TAGS:
                change = self.images.add if event["action"] in ("add", "tag") else self.images.discard
                change(event["name"])

    def is_right(self):
        with self.lock:
            return self.containers == containers_that_are() and self.images == tags_that_are()


def containers_that_are():
    # Podman's own list tells more states apart than its API.
    same = {"initialized": "created", "configured": "created", "stopped": "exited", "stopping": "exited"}
    containers = json.loads(kx.podman("ps", "--all", "--format", "json"))
    states = {container["Names"][0]: container["State"] for container in containers}
    return {name: same.get(state, state) for name, state in states.items() if name in NAMES}


def tags_that_are():
    return {name for name in kx.podman("images", "--format", "{{.Repository}}:{{.Tag}}").splitlines() if name in TAGS}


async def follow(running, mirror, ending):
    url = f"ws://127.0.0.1:{running.port}{kx.BASE}/events/ws"
    async with websockets.connect(url, extra_headers={"Authorization": f"Bearer {running.token()}"}) as stream:
        mirror.started.set()
        while not ending.is_set():
            try:
                mirror.take(json.loads(await asyncio.wait_for(stream.recv(), 0.5)))
            except asyncio.TimeoutError:
                pass


def change_something(api):
    """One change; what event of a container it is to give, if any."""
    name, tag, kind = random.choice(NAMES), random.choice(TAGS), random.random()
    if kind < 0.4:
        api.call("POST", f"/images/{kx.IMAGE}/tag?repo={tag.rsplit(':', 1)[0]}&tag={tag.rsplit(':', 1)[1]}")
    elif kind < 0.55:
        api.call("DELETE", f"/images/{tag}?noprune=true")
    elif kind < 0.75:
        if api.call("POST", f"/containers/create?name={name}", {"Image": kx.IMAGE, "Cmd": ["true"],
                                                               "HostConfig": {"NetworkMode": "none"}}) == 201:
            return name, "create"
    elif kind < 0.97:
        if api.call("DELETE", f"/containers/{name}?force=true") in (200, 204):
            return name, "remove"
    else:
        if api.call("POST", f"/containers/{name}/start") == 204:
            return name, "start"
    return None


def change_much(running, mirror, changes, deaths):
    """Gives how long the events took, in seconds, while Podman lived."""
    delays, killed = [], 0
    api, done = PodmanApi(), 0
    while done < changes:
        if done * (deaths + 1) // changes > killed:
            killed += 1
            podman = kx.podman_service_pid()
            if podman:
                os.kill(podman, signal.SIGKILL)
                kx.podman("rm", "--force", "--time", "0", "--ignore", random.choice(NAMES))  # while it is away
        begin = time.monotonic()
        try:
            expected = change_something(api)
            done += 1
        except (OSError, http.client.HTTPException):  # Podman is away
            api.close()
            time.sleep(0.1)
            continue
        if expected and done % 20 == 0:
            try:
                kx.wait_until(lambda: mirror.seen.get(expected, 0) > begin, 10, expected)
                delays.append(time.monotonic() - begin)
            except TimeoutError:
                delays.append(float("inf"))
    return delays, killed


def run(device, report, plan):
    changes, deaths = (300, 3) if plan.quick else (10_000, 20)
    with report.fault(f"{changes} changes to containers and images, Podman killed {deaths} times") as fault, fault.guarded(deaths), \
            device.service() as running:
        mirror, ending = Mirror(), threading.Event()
        mirror.started = threading.Event()
        follower = threading.Thread(target=lambda: asyncio.run(follow(running, mirror, ending)))
        follower.start()
        try:
            mirror.started.wait(20)
            delays, killed = change_much(running, mirror, changes, deaths)
            begin = time.monotonic()
            try:
                kx.wait_until(mirror.is_right, 10, "the follower knows what is")
                fault.recovered(time.monotonic() - begin)
            except TimeoutError:
                fault.lose(f"the follower believes {mirror.containers}, {sorted(mirror.images)}; "
                           f"there is {containers_that_are()}, {sorted(tags_that_are())}")
            fault.expect(killed == deaths, f"Podman was killed {killed} times")
            fault.notes.append(f"an event took {statistics.median(delays):.2f} s, at most {max(delays):.2f} s")
        finally:
            ending.set()
            follower.join()
            kx.podman("rm", "--force", "--time", "0", "--ignore", *NAMES)

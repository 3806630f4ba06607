"""The console's routes on a real Podman."""

import asyncio
import contextlib
import json
import os
import signal
import time

import websockets
from conftest import end, kx

WRITE = "while :; do dd if=/dev/zero of=/tmp/x bs=64k count=16 2>/dev/null; done"


def run(name, *command, options=()):
    kx.podman("run", "-d", "--name", name, "--stop-timeout", "1", *options, kx.IMAGE, *command)


class Follower:
    """One of the console's WebSockets, as a browser opens it."""

    def __init__(self, service, path, protocol):
        self.url = f"ws://127.0.0.1:{service.port}{kx.BASE}{path}"
        self.protocols = [protocol, "bearer." + service.token()]

    async def __aenter__(self):
        self.socket = await websockets.connect(self.url, subprotocols=self.protocols, max_size=None)
        assert self.socket.subprotocol == self.protocols[0]
        return self

    async def __aexit__(self, *_):
        await self.socket.close()

    async def until(self, condition, seconds=20):
        """All messages up to the first that fulfils the condition."""
        messages = []
        while not messages or not condition(messages[-1]):
            messages.append(json.loads(await asyncio.wait_for(self.socket.recv(), seconds)))
        return messages


def events(service, query=""):
    return Follower(service, "/events/ws" + query, "kx.events.v1")


def entries(service, name, query=""):
    return Follower(service, f"/containers/{name}/log-entries/ws{query}", "kx.entries.v1")


def is_event(kind, action, name):
    return lambda message: [message.get(key) for key in ("kind", "action", "name")] == [kind, action, name]


def test_container_is_described_without_its_environment(service):
    run("described", "/bin/sh", "-c", "echo hi; exit 3", options=[
        "-e", "PASSWORD=hunter2", "-p", "18081:80", "-v", "/tmp:/data:ro", "--restart", "no"])
    kx.podman("wait", "described")
    answer = service.request("GET", "/containers/described")
    assert answer.status == 200 and b"hunter2" not in answer.body
    told = answer.json()
    assert told["Name"] == "described" and told["Image"] == kx.IMAGE
    assert told["Command"] == ["/bin/sh", "-c", "echo hi; exit 3"]
    assert told["State"]["Status"] == "exited" and told["State"]["ExitCode"] == 3 and told["State"]["FinishedAt"]
    assert told["Ports"] == [{"ContainerPort": 80, "Protocol": "tcp", "HostIp": None, "HostPort": 18081}]
    assert told["Mounts"] == [{"Source": "/tmp", "Destination": "/data", "ReadOnly": True}]
    assert told["Networks"] == ["podman"] and told["Compose"] is None and told["Log"]["Bytes"] > 0


def test_what_does_not_exist_or_run_is_refused(service):
    kx.podman("create", "--name", "idle", kx.IMAGE, "true")
    for method, path, status, detail in [
            ("GET", "/containers/nobody", 404, "Container 'nobody' does not exist"),
            ("GET", "/containers/%25252e%25252e", 404, "Container '%252e%252e' does not exist"),
            ("GET", "/containers/idle/stats", 409, "Container 'idle' is not running"),
            ("GET", "/events/ws", 426, "This is a WebSocket: the request must ask for the upgrade"),
            ("GET", "/events/ws?after=x", 400, "Query parameter 'after' must be a decimal signed 64-bit number")]:
        answer = service.request(method, path)
        assert (answer.status, answer.detail()) == (status, detail), path


def test_restart(service):
    run("again", "sleep", "1000")
    before = service.request("GET", "/containers/again").json()["State"]["StartedAt"]
    answer = service.request("POST", "/containers/again/restart?timeout=0")
    assert (answer.status, answer.body) == (204, b"")
    state = service.request("GET", "/containers/again").json()["State"]
    assert state["Status"] == "running" and state["StartedAt"] > before


def test_counters_grow_with_what_the_container_does(service):
    run("busy", "/bin/sh", "-c", WRITE, options=["--memory", "64m"])
    first = service.request("GET", "/containers/busy/stats").json()
    time.sleep(1)
    second = service.request("GET", "/containers/busy/stats").json()
    kx.podman("rm", "-f", "-t", "0", "busy")
    assert second["CpuNanoseconds"] > first["CpuNanoseconds"] + 50_000_000
    assert second["Time"] > first["Time"] and second["Processes"] >= 1
    assert 0 < second["MemoryBytes"] <= second["MemoryLimitBytes"] == 64 << 20
    assert second["ReceivedBytes"] is not None and second["SentBytes"] is not None


def test_storage(service):
    run("user", "sleep", "1000")
    kx.podman("import", "/bin/busybox", "localhost/unused:1", check=False)
    storage = service.request("GET", "/storage").json()
    assert [volume["What"] for volume in storage["volumes"]] == ["containers and images", "uploads", "configuration"]
    assert all(0 < volume["FreeBytes"] < volume["TotalBytes"] for volume in storage["volumes"])
    assert storage["images"]["Count"] >= 1 and storage["images"]["UnusedBytes"] < storage["images"]["Bytes"]


def test_health(start_service):
    running = start_service()
    nobody = running.request("GET", "/health", token=False)
    assert (nobody.status, nobody.json()) == (200, {"status": "ok"})
    assert running.request("GET", "/health", token="wrong").status == 401
    told = running.request("GET", "/health").json()
    assert told["identity"] == {"name": "token", "role": "administrator"} and told["uptime"] >= 0
    assert all(told[part]["state"] == "ok" and told[part]["reason"] is None
               for part in ("podman", "storage", "certificate", "audit"))

    with kx.frozen_podman():
        def failed():
            answer = running.request("GET", "/health")
            return answer.status == 503 and answer.json()
        told = kx.wait_until(failed, 60, "the health report says that Podman is away")
        assert told["status"] == "degraded" and told["podman"]["state"] == "failed"
        assert told["podman"]["reason"] == "Podman does not answer" and told["storage"]["state"] == "ok"
        assert running.request("GET", "/health", token=False).json() == {"status": "degraded"}
        assert "\nkx_podman_up 0\n" in running.request("GET", "/metrics").body.decode()
    kx.wait_until(lambda: running.request("GET", "/health").status == 200, 60, "Podman is back")


def test_audit_is_read_in_pieces(service):
    last = service.request("GET", "/audit").json()["last"]
    for name in ("one", "two", "three"):
        service.request("DELETE", f"/compose-files/{name}.yml")
    first = service.request("GET", f"/audit?after={last}&limit=2").json()
    rest = service.request("GET", f"/audit?after={first['entries'][-1]['seq']}").json()
    told = first["entries"] + rest["entries"]
    assert [entry["name"] for entry in told] == ["one.yml", "two.yml", "three.yml"] and len(first["entries"]) == 2
    assert [entry["seq"] for entry in told] == [last + 1, last + 2, last + 3] and rest["last"] == last + 3
    assert {(entry["identity"], entry["status"]) for entry in told} == {("token", 404)}


def test_metrics_count(service):
    def value(sample):
        lines = service.request("GET", "/metrics").body.decode().splitlines()
        return next((float(line.rsplit(" ", 1)[1]) for line in lines if line.startswith(sample + " ")), 0)

    counted = 'kx_http_requests_total{operation="listImages",status="200"}'
    durations = 'kx_http_request_duration_seconds_count{operation="listImages"}'
    before = value(counted), value(durations), value("kx_upload_bytes_total")
    for _ in range(3):
        service.request("GET", "/images")
    service.request("POST", "/plugins", b"12345", {"Content-Disposition": 'attachment; filename="m_1.crp"'})
    assert (value(counted), value(durations), value("kx_upload_bytes_total")) == (before[0] + 3, before[1] + 3, before[2] + 5)
    service.request("DELETE", "/plugins/m_1.crp")
    refused = value('kx_http_refusals_total{status="401"}')
    service.request("GET", "/images", token="wrong")
    assert value('kx_http_refusals_total{status="401"}') == refused + 1

    async def follow():
        async with events(service):
            assert value('kx_streams{operation="followEvents"}') == 1

    kx.wait_until(lambda: value('kx_streams{operation="followEvents"}') == 0, 10, "former streams have ended")
    asyncio.run(follow())
    kx.wait_until(lambda: value('kx_streams{operation="followEvents"}') == 0, 10, "the stream's end is counted")


def test_events_tell_what_anybody_changes_within_a_second(service):
    compose = {"Content-Type": "application/octet-stream", "Content-Disposition": 'attachment; filename="e.yml"'}
    changes = [
        (lambda: kx.podman("create", "--name", "ev", kx.IMAGE, "sleep", "1000"), ("container", "create", "ev")),
        (lambda: service.request("POST", "/containers/ev/start"), ("container", "start", "ev")),
        (lambda: kx.podman("pause", "ev"), ("container", "pause", "ev")),
        (lambda: kx.podman("unpause", "ev"), ("container", "unpause", "ev")),
        (lambda: kx.podman("rename", "ev", "ev2"), ("container", "rename", "ev2")),
        (lambda: service.request("POST", "/containers/ev2/stop?timeout=0"), ("container", "die", "ev2")),
        (lambda: service.request("DELETE", "/containers/ev2"), ("container", "remove", "ev2")),
        (lambda: kx.podman("tag", kx.IMAGE, "localhost/ev:1"), ("image", "tag", "localhost/ev:1")),
        (lambda: kx.podman("untag", kx.IMAGE, "localhost/ev:1"), ("image", "untag", "localhost/ev:1")),
        (lambda: service.request("POST", "/compose-files", b"services: {}", compose), ("compose", "upload", "e.yml")),
        (lambda: service.request("DELETE", "/compose-files/e.yml"), ("compose", "delete", "e.yml")),
        (lambda: service.request("PATCH", "/settings", {"tcp_port": 2376}), ("settings", "change", "settings")),
        (lambda: service.request("PATCH", "/settings/enable", {"enabled": True}), ("settings", "enable", "service")),
    ]

    async def follow():
        seen = []
        async with events(service) as follower:
            for change, expected in changes:
                await asyncio.to_thread(change)
                done = time.monotonic()
                seen += await follower.until(is_event(*expected))
                assert time.monotonic() - done < 5, expected  # a second on a quiet machine
        numbers = [event["seq"] for event in seen]
        assert numbers == sorted(set(numbers))
        async with events(service, f"?after={numbers[2]}") as again:
            missed = await again.until(lambda event: event["seq"] == numbers[-1])
            assert missed == seen[3:]
        for after in (5, numbers[-1] + 1000):
            async with events(service, f"?after={after}") as lost:
                assert await lost.until(lambda _: True) == [{"relist": True}]

    asyncio.run(follow())


def test_events_make_up_for_podmans_death(fresh_service):
    service = fresh_service
    run("old", "sleep", "1000")

    async def follow():
        async with events(service) as follower:
            await asyncio.to_thread(kx.podman, "create", "--name", "new", kx.IMAGE, "true")
            await follower.until(is_event("container", "create", "new"))
            podman = kx.podman_service_pid()
            os.kill(podman, signal.SIGKILL)
            await asyncio.to_thread(kx.podman, "rm", "-f", "-t", "0", "old")
            await asyncio.to_thread(kx.podman, "create", "--name", "meanwhile", kx.IMAGE, "true")
            seen = await follower.until(is_event("container", "create", "meanwhile"))
            assert any(map(is_event("container", "remove", "old"), seen))

    asyncio.run(follow())


def test_log_entries_go_on_over_restarts_and_from_a_cursor(service):
    kx.podman("create", "--name", "chatty", kx.IMAGE, "/bin/sh", "-c", "echo out $$; echo '<&>' >&2; exec sleep 1000")

    def lines(messages):
        return [(entry["stream"], entry["text"]) for message in messages for entry in message.get("entries", [])]

    def has_error(message):
        return any(entry["stream"] == "err" for entry in message.get("entries", []))

    async def follow():
        async with entries(service, "chatty") as follower:
            kx.podman("start", "chatty")
            first = await follower.until(has_error)
            assert ("err", "<&>\n") in lines(first) and {"state": "running", "exitCode": None} in first
        kx.podman("restart", "-t", "0", "chatty")
        cursor = [message["cursor"] for message in first if "cursor" in message][-1]
        async with entries(service, "chatty", f"?cursor={cursor}") as follower:
            assert len(lines(await follower.until(has_error))) == 2  # those of the second run
        async with entries(service, "chatty", "?tail=1") as follower:
            assert lines(await follower.until(has_error)) == [("err", "<&>\n")]
            kx.podman("rm", "-f", "-t", "0", "chatty")
            await follower.until(lambda message: message.get("state") == "removed")

    asyncio.run(follow())


def test_streams_of_the_console_end_when_the_service_stops(start_service):
    running = start_service()
    run("open", "sleep", "1000")

    async def follow():
        async with events(running) as one, entries(running, "open") as other:
            await other.until(lambda message: message.get("state") == "running")
            await asyncio.to_thread(end, running)
            for follower in (one, other):
                with contextlib.suppress(websockets.ConnectionClosedOK):
                    await follower.until(lambda _: False)
                assert follower.socket.close_code in (1000, 1001)

    asyncio.run(follow())

"""Descriptors, memory and disk run out; the clock is stepped."""

import asyncio
import concurrent.futures
import contextlib
import http.client
import os
import pathlib
import random
import resource
import time

from clients import head
from device import (ARCHIVE, COMPOSE_FILES, CONFIG_DIR, COUNTER, IMAGES, PLUGIN_CONFIG, PLUGINS, SETTINGS, fill, kx,
                    measure_recovery, small_disk, upload_image, upload_text)
from podman_faults import follow, read_until

MIB = 1 << 20
DROPPED = "dropped"
FAKETIME = pathlib.Path("/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1")


@contextlib.contextmanager
def limited(running, kind, value):
    """A resource limit of the running service, for a while."""
    before = resource.prlimit(running.pid, kind)
    resource.prlimit(running.pid, kind, (value, before[1]))
    try:
        yield
    finally:
        if running.process.poll() is None:
            resource.prlimit(running.pid, kind, before)


def status_of(ask):
    """The status of an answer, or that the connection was dropped."""
    try:
        return ask().status
    except (OSError, http.client.HTTPException):
        return DROPPED


def lowest_free_descriptor(running):
    used = {int(name) for name in os.listdir(f"/proc/{running.pid}/fd")}
    return min(set(range(len(used) + 1)) - used)


def exhaust_descriptors(fault, running):
    """Not one descriptor is left: whoever is connected gets an answer, who comes then waits."""
    patch = {"tcp_port": 2377}
    before = SETTINGS.read_bytes()
    connected = {name: running.connect(30) for name in "abcdef"}
    for connection in connected.values():
        running.request("GET", "/settings", connection=connection)
    disposition = {"Content-Type": "application/octet-stream", "Content-Disposition": "attachment; filename=x.yml"}
    with limited(running, resource.RLIMIT_NOFILE, lowest_free_descriptor(running)):
        waiting = [running.raw(b"") for _ in range(100)]
        for name, what, ask, allowed in [
            ("a", "what needs none", lambda c: running.request("GET", "/settings", connection=c), {200}),
            ("b", "a list", lambda c: running.request("GET", "/containers", connection=c), {200, 500}),
            ("c", "a settings write", lambda c: running.request("PATCH", "/settings", patch, connection=c), {500}),
            ("d", "an upload", lambda c: running.request("POST", "/compose-files", b"x", disposition, connection=c), {400, 500}),
            ("e", "a compose command", lambda c: running.request("POST", "/compose-files/x.yml/containers/start", connection=c), {404, 500}),
            ("f", "a list of plugins", lambda c: running.request("GET", "/plugins", connection=c), {200, 500}),
        ]:
            status = status_of(lambda: ask(connected[name]))
            fault.expect(status in allowed, f"{what} without a descriptor: {status}")
        fault.expect(SETTINGS.read_bytes() == before, "the settings file changed")
        errors = running.log().count("cannot take a connection in")
        time.sleep(0.5)
        more = running.log().count("cannot take a connection in") - errors
        fault.expect(errors + more > 0 and more < 20, f"{errors}, then {more} log lines in half a second")
    begin = time.monotonic()
    for connection in [*connected.values(), *waiting]:
        connection.close()
    measure_recovery(fault, running, begin)
    fault.expect(running.request("PATCH", "/settings", patch).status == 200, "settings cannot be written any more")


def exhaust_memory(fault, running, room):
    """Much at once of all that takes memory: each gets some answer or is dropped. Gives whether the process lives: where
    nothing at all is left it may end, for the JSON library cannot even destroy a value without memory."""
    size = int(pathlib.Path(f"/proc/{running.pid}/status").read_text().split("VmSize:")[1].split()[0]) * 1024
    big = ('{"tcp_port": 2376, "note": [' + "0," * 400_000 + "0]}").encode()
    json_type = {"Content-Type": "application/json"}

    async def open_stream():
        try:
            async with follow(running, "counter") as stream:
                await read_until(stream, 1)
                return 101
        except Exception:
            return DROPPED

    kinds = [lambda: status_of(lambda: running.request("PATCH", "/settings", big, json_type, timeout=30)),
             lambda: status_of(lambda: running.request("GET", "/containers", timeout=30)),
             lambda: status_of(lambda: upload_image(running, f"memory{random.random()}.tar", timeout=60)),
             lambda: asyncio.run(open_stream())]
    with limited(running, resource.RLIMIT_AS, size + room):
        with concurrent.futures.ThreadPoolExecutor(40) as pool:
            statuses = list(pool.map(lambda number: kinds[number % len(kinds)](), range(80)))
    seen = {status: statuses.count(status) for status in set(statuses)}
    fault.expect(not set(statuses) - {200, 204, 101, 400, 413, 500, 503, DROPPED}, f"unexpected answers: {seen}")
    time.sleep(0.1)
    if running.process.poll() is not None:
        fault.expect("bad_alloc" in running.log()[-500:], f"ended with {running.process.returncode}: {running.log()[-500:]}")
        return False
    measure_recovery(fault, running, time.monotonic())
    return True


def starve(fault, device, room):
    """A process that ends for want of memory must leave what its successor needs; systemd starts that in its place."""
    with device.service() as running:
        kx.podman("run", "-d", "--name", "counter", "--network", "none", kx.IMAGE, "/bin/sh", "-c", COUNTER)
        fault.expect(running.request("PATCH", "/settings", {"tcp_port": 2376}).status == 200, "settings")
        if exhaust_memory(fault, running, room):
            fault.expect(running.stop() == 0, "ended with an error")
            return True
    begin = time.monotonic()
    with device.service(fresh=False) as again:
        measure_recovery(fault, again, begin)
        fault.expect(again.request("GET", "/settings").json()["tcp_port"] == 2376, "the settings were lost")
        fault.expect(upload_image(again).status == 204, "an upload then")
    return False


def run_limits(device, report, plan):
    with report.fault("descriptors exhausted") as fault, device.service() as running:
        fault.expect(running.request("PATCH", "/settings", {"tcp_port": 2376}).status == 200, "settings")
        for _ in range(1 if plan.quick else 10):
            with fault.guarded():
                exhaust_descriptors(fault, running)
        fault.expect(running.stop() == 0, "ended with an error")
    with report.fault("memory exhausted") as fault:
        lived = 0
        for room in [2, 512] if plan.quick else [0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024]:
            with fault.guarded():
                lived += starve(fault, device, room * MIB)
        fault.notes.append(f"the process lived through {lived} and was started again after {fault.times - lived}")


def change_settings(running, number):
    answer = running.request("PATCH", "/settings", {"tcp_port": 3000 + number})
    return answer.status == 200, answer.status == 500 and answer.detail() == "Failed to write settings file"


def change_plugin(running, number):
    upload_text(running, "plugins", f"subject_{number}.crp", "")  # an empty file still has room
    status = running.request("PUT", f"/plugins/subject/activate?pluginVersion={number}", {"activate": False}).status
    return status == 200, status == 500


def change_images(running, number):
    answer = upload_image(running, f"traveller{number}.tar")
    return answer.status == 204, answer.status == 507


def fill_disk(fault, path, size, file, change, device):
    """A change while the disk is full fails and leaves the file as it was; one after it is made."""
    kx.clear_device()
    with small_disk(path, size), device.service(fresh=False) as running:
        fault.expect(change(running, 0)[0], "a change before")
        before = file and file.read_bytes()
        hog = fill(path, leave=0 if file else 2 * MIB)
        fault.expect(change(running, 1)[1], "a change that could not be written")
        fault.expect(file is None or file.read_bytes() == before, "the file changed")
        if file == SETTINGS:
            fault.expect(running.request("GET", "/settings").json()["tcp_port"] == 3000, "the service believes what was not written")
        fault.expect([entry.name for entry in path.glob(".*")] == [], "a temporary file stays")
        begin = time.monotonic()
        hog.unlink()
        fault.expect(change(running, 1)[0], "a change after")
        fault.recovered(time.monotonic() - begin)
        fault.expect(file or not list(IMAGES.iterdir()), "files stay")
        fault.expect(running.stop() == 0, "ended with an error")


DISKS = {"the settings": (CONFIG_DIR, "128k", SETTINGS, change_settings),
         "the plugins": (PLUGINS, "128k", PLUGIN_CONFIG, change_plugin),
         "the images": (IMAGES, "16M", None, change_images)}


def run_disks(device, report, plan):
    for what, disk in DISKS.items():
        with report.fault(f"disk full under {what}") as fault:
            for _ in range(1 if plan.quick else 10):
                with fault.guarded():
                    fill_disk(fault, *disk, device)


def upload_unannounced(running, kind, size):
    """An upload that does not say how long it is."""
    pieces = (b"x" * 65536 for _ in range(size // 65536))
    return running.request("POST", f"/{kind}", pieces, {"Content-Type": "application/x", "Content-Disposition":
                                                        "attachment; filename=subject.crp"})


def overfill(fault, kind, path, name, list_all, device):
    """Neither a file that says it is too long, nor one that turns out to be, ends as anything but 507, and no trace of
    it stays; the file that it would have replaced does as long as nothing was written."""
    kx.clear_device()
    with small_disk(path, "4M"), device.service(fresh=False) as running:
        disposition = {"Content-Type": "application/x", "Content-Disposition": "attachment; filename=subject.crp"}
        (path / name).write_bytes(b"before")
        hog = fill(path, leave=300 * 1024)  # of which 256 KiB are kept
        with running.raw(head(running, "POST", f"/{kind}", "Expect: 100-continue", "Content-Length: 200000",
                              *(f"{key}: {value}" for key, value in disposition.items()))) as client:
            answer = client.recv(65536).decode()
            fault.expect(answer.startswith("HTTP/1.1 507 ") and "200000" in answer and "InsufficientStorage" in answer, f"declared: {answer[:200]}")
        status = upload_unannounced(running, kind, 196608).status
        fault.expect(status == 507 and (path / name).read_bytes() == b"before", f"not declared: {status}")
        os.truncate(hog, hog.stat().st_size - MIB)
        status = upload_unannounced(running, kind, 3 * MIB).status
        fault.expect(status == 507, f"one that fills the disk: {status}")
        fault.expect(not (path / name).exists(), "half a file stays")
        hog.unlink()
        listed = running.request("GET", f"/{list_all}").body.decode()
        fault.expect("subject" not in listed and name not in listed, f"listed: {listed}")
        inventory = pathlib.Path("/run/KxInventoryTree.json")
        fault.expect(not inventory.exists() or "subject" not in inventory.read_text(), "in the inventory")
        fault.expect(" uploaded" not in running.log(), "announced")
        volume = os.statvfs(path)
        fault.expect(volume.f_bavail * volume.f_frsize > 3.9 * MIB, "bytes are taken still")
        fault.expect(running.stop() == 0, "ended with an error")


UPLOADS = [("images", IMAGES, "subject.crp", "images"), ("plugins", PLUGINS, "subject.crp", "plugins"),
           ("compose-files", COMPOSE_FILES, "subject.crp", "compose-files"),
           ("certs/private-key", CONFIG_DIR / "certs", "server.key", "certs")]


def run_full_uploads(device, report):
    with report.fault("uploads that find no room") as fault:
        for upload in UPLOADS:
            with fault.guarded():
                overfill(fault, *upload, device)


def step_clock(fault, running, clock, seconds):
    """The time of day jumps while a list waits for Podman, a stream flows and a connection is kept."""

    async def flow():
        kept = running.connect(30)
        running.request("GET", "/settings", connection=kept)
        async with follow(running, "counter") as stream:
            await read_until(stream, 0.3)
            pending = asyncio.create_task(asyncio.to_thread(running.request, "POST", "/containers/slow/stop?timeout=1"))
            await asyncio.sleep(0.3)
            clock.write_text(f"{seconds:+d}")
            begin = time.monotonic()
            answer = await pending
            fault.expect(answer.status == 204 and time.monotonic() - begin < 20, f"a stop under way: {answer.status}")
            text, ended = await read_until(stream, 1.5)
            fault.expect(text and not ended, "the stream stopped")
            answer = await asyncio.to_thread(running.request, "GET", "/containers", connection=kept)
            fault.expect(answer.status == 200, "a kept connection")
            fault.recovered(time.monotonic() - begin - 1.5)
        kept.close()

    kx.podman("start", "slow")
    asyncio.run(flow())


def run_clock(device, report, plan):
    with report.fault("clock stepped") as fault:
        if not FAKETIME.exists():
            fault.skipped = "faketime is not installed"
            return
        clock = ARCHIVE.parent / "clock"
        clock.write_text("+0")
        environment = {"LD_PRELOAD": str(FAKETIME), "FAKETIME_TIMESTAMP_FILE": str(clock), "FAKETIME_NO_CACHE": "1",
                       "FAKETIME_DONT_FAKE_MONOTONIC": "1", "FAKETIME_DONT_RESET": "1"}
        with device.service(environment=environment) as running:
            kx.podman("run", "-d", "--name", "counter", "--network", "none", kx.IMAGE, "/bin/sh", "-c", COUNTER)
            kx.podman("create", "--name", "slow", "--network", "none", kx.IMAGE, "/bin/sh", "-c", "trap '' TERM; while :; do sleep 0.1; done")
            for step in (3600, -3600) if plan.quick else (3600, -3600, 86400 * 365 * 10, -86400 * 365 * 20, 0):
                with fault.guarded():
                    step_clock(fault, running, clock, step)
            clock.write_text("+0")
            years = {line[:4] for line in running.log().splitlines()}
            fault.expect(len(years) > 1 or plan.quick, "the steps did not reach the service")
            fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])


def run(device, report, plan):
    run_limits(device, report, plan)
    run_disks(device, report, plan)
    run_full_uploads(device, report)
    run_clock(device, report, plan)

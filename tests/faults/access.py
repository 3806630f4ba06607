"""Who may come in, and the record of it: kills and full disks in the middle of writing, addresses that guess."""

import http.client
import json
import pathlib
import random
import subprocess
import threading
import time

from device import CONFIG_DIR, fill, kx, small_disk

RECORD = CONFIG_DIR / "audit.log"
OLDER = CONFIG_DIR / "audit.log.1"
TORN = CONFIG_DIR / "audit.log.torn"
IDENTITIES = CONFIG_DIR / "identities.json"
WRITERS = 4


def admin(device, *words):
    return subprocess.run([pathlib.Path(device.program).parent / "kx-container-admin", *words], text=True, capture_output=True,
                          timeout=60)


def verify(fault, device):
    done = admin(device, "audit", "verify")
    fault.expect(done.returncode == 0 and done.stdout.startswith("The chain holds"), f"audit verify: {done.stdout} {done.stderr}")


def recorded():
    """The names in the record's whole lines."""
    text = "".join(path.read_text() for path in (OLDER, RECORD) if path.exists())
    return {json.loads(line)["name"] for line in text.splitlines()}


def change_until_killed(running, label, answered):
    """Changes, each with a name of its own: that none has such a container is recorded like any other outcome."""
    connection = running.connect(20)
    try:
        for number in range(10_000):
            name = f"{label}-{number}"
            if running.request("POST", f"/containers/{name}/stop", connection=connection).status == 404:
                answered.add(name)
    except (OSError, http.client.HTTPException):
        pass  # killed


def kill_while_recording(fault, device, number):
    """Kills the service while many changes are being recorded. What was answered is there, and the chain goes on."""
    answered = set()
    with device.service(fresh=number == 0) as running:
        writers = [threading.Thread(target=change_until_killed, args=(running, f"{number}-{one}", answered))
                   for one in range(WRITERS)]
        for writer in writers:
            writer.start()
        kx.wait_until(lambda: answered, 20, "a change is answered")
        time.sleep(random.uniform(0, 0.2))
        running.kill()
        for writer in writers:
            writer.join(30)
    begin = time.monotonic()
    with device.service(fresh=False) as running:
        fault.expect(running.request("POST", "/containers/after/stop").status == 404, "a change after")
        fault.recovered(time.monotonic() - begin)
        verify(fault, device)
        lost = answered - recorded()
        fault.expect(not lost, f"answered and not recorded: {sorted(lost)[:5]}")


def fill_disk(fault, device):
    """Without room changes are made all the same, the log says what is lost, and the record goes on when there is room. The
    tool's file stays what it was."""
    kx.clear_device()
    with small_disk(CONFIG_DIR, "128k"), device.service(fresh=False) as running:
        stop = ("POST", "/containers/ghost/stop")
        fault.expect(running.request(*stop).status == 404, "a change before")
        fault.expect(admin(device, "identity", "add", "anna", "--role", "viewer").returncode == 0, "an identity before")
        before, identities = RECORD.read_bytes(), IDENTITIES.read_bytes()
        # What the record's last page has left is room, too: it is filled by changes themselves.
        hog = fill(CONFIG_DIR, leave=0)
        for _ in range(30):
            fault.expect(running.request(*stop).status == 404, "a change without room")
        fault.expect("No space left on device; entries lost: 1" in running.log(), "the log does not say what is lost")
        fault.expect(RECORD.read_bytes().startswith(before), "the record changed")
        added = admin(device, "identity", "add", "ben", "--role", "viewer")
        fault.expect(added.returncode == 1 and "No space left" in added.stderr, f"an identity without room: {added}")
        fault.expect(IDENTITIES.read_bytes() == identities, "the identities changed")
        fault.expect([entry.name for entry in CONFIG_DIR.glob(".*")] == [], "a temporary file stays")
        verify(fault, device)
        begin = time.monotonic()
        hog.unlink()
        entries = len(RECORD.read_text().splitlines())
        fault.expect(running.request(*stop).status == 404, "a change after")
        fault.recovered(time.monotonic() - begin)
        fault.expect(len(RECORD.read_text().splitlines()) == entries + 1, "the record does not go on")
        verify(fault, device)
        fault.expect(running.stop() == 0, "ended with an error")


def guess(running, until):
    """Wrong tokens as fast as they are answered, now and then on a new connection."""
    asked = 0
    while time.monotonic() < until:
        connection = running.connect(20)
        for _ in range(50):
            answer = running.request("GET", "/settings", token=f"wrong-{asked}", connection=connection)
            assert answer.status in (401, 429), answer.status
            asked += 1
        connection.close()
    return asked


def guess_tokens(fault, device, seconds):
    with device.service() as running:
        counts = []
        until = time.monotonic() + seconds
        guessers = [threading.Thread(target=lambda: counts.append(guess(running, until))) for _ in range(4)]
        for guesser in guessers:
            guesser.start()
        slowest = 0
        connection = running.connect(20)
        while time.monotonic() < until:
            begin = time.monotonic()
            fault.expect(running.request("GET", "/settings", connection=connection).status == 200, "a right token is refused")
            slowest = max(slowest, time.monotonic() - begin)
        for guesser in guessers:
            guesser.join(30)
        fault.expect(len(counts) == len(guessers), "who guesses is neither refused nor sent away")
        kx.wait_until(lambda: "refusals=" in running.log(), 70, "refusals are summed up")
        lines = running.log().count("status=4")
        fault.expect(lines < 20 + 10 * seconds, f"{lines} lines in the log")
        fault.expect(RECORD.stat().st_size < 100_000, f"the record grew to {RECORD.stat().st_size} bytes")
        verify(fault, device)
        fault.notes.append(f"{sum(counts)} wrong tokens, {lines} lines, others waited {slowest * 1000:.0f} ms at most")


def run(device, report, plan):
    with report.fault("service killed with -9 while it records changes") as fault:
        for number in range(plan.rounds):
            with fault.guarded():
                kill_while_recording(fault, device, number)
        fault.notes.append("a line was torn" if TORN.exists() else "no line was torn")
    with report.fault("disk full under the audit record and the identities") as fault:
        for _ in range(1 if plan.quick else 10):
            with fault.guarded():
                fill_disk(fault, device)
    with report.fault("addresses that guess tokens") as fault, fault.guarded():
        guess_tokens(fault, device, 3 if plan.quick else 30)

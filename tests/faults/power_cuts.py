"""The power goes between any two writes of the disk: what was answered is there, what was under way is old or new, the service starts."""

import itertools
import json
import pathlib
import random
import subprocess

import device as devices
from device import COMPOSE_FILES, PLUGIN_CONFIG, PLUGINS, SETTINGS, kx
from recorded_disk import cut, recorded

TOOL = "kx-container-admin"
IDENTITIES = pathlib.Path("/mnt/cfdrive/containers/identities.json")
AUDIT = pathlib.Path("/mnt/cfdrive/containers/audit.log")
PLUGIN = "subject_2.1.crp"


def upload(running, path, name, content):
    return running.request("POST", path, content.encode(), {"Content-Type": "application/octet-stream",
                                                            "Content-Disposition": f"attachment; filename={name}"}).status


def admin(*words):
    return 200 if subprocess.run([devices.program_beside(TOOL), "identity", *words], capture_output=True).returncode == 0 else 500


def text_of(path):
    return path.read_text() if path.exists() else None


def deactivated():
    return bool(json.loads(text_of(PLUGIN_CONFIG) or '{"deactivated": []}')["deactivated"])


# For each thing that is kept: how to change it to its value number n, and what is found of it on the disk.
def changes(running):
    return {
        "settings": (lambda n: running.request("PATCH", "/settings", {"tcp_port": 3000 + n}).status, lambda n: 3000 + n,
                     lambda: json.loads(SETTINGS.read_text())["tcp_port"] if SETTINGS.exists() else None),
        "plugin configuration": (lambda n: running.request("PUT", "/plugins/subject/activate?pluginVersion=2.1", {"activate": n % 2 == 0}).status,
                                 lambda n: n % 2 == 1, deactivated),
        "identities": (lambda n: admin("add", f"n{n}", "--role", "viewer"), lambda n: n,
                       lambda: len(json.loads(IDENTITIES.read_text())["identities"]) if IDENTITIES.exists() else None),
    }


def uploads(running):
    """The same for what is uploaded; an upload writes in place, so that one under way may be there in part."""
    compose = COMPOSE_FILES / "cut.yml"
    return {
        "compose file": (lambda n: upload(running, "/compose-files", "cut.yml", f"# {n}\n" * 2000), lambda n: f"# {n}\n" * 2000, lambda: text_of(compose)),
        "plugin": (lambda n: upload(running, "/plugins", PLUGIN, f"{n}" * 9000), lambda n: f"{n}" * 9000, lambda: text_of(PLUGINS / PLUGIN)),
    }


def record(fault, device, recording, rounds):
    """What was changed when: {what: [(position before, position after it was answered, value)]}."""
    history = {}
    with device.service(fresh=False) as running:
        (PLUGINS / PLUGIN).write_text("0" * 9000)
        subprocess.run(["sync", "-f", str(PLUGINS)], check=True)
        for number, (what, (change, value, _)) in itertools.product(range(1, rounds + 1), (changes(running) | uploads(running)).items()):
            begin = recording.position()
            status = change(number)
            fault.expect(status == 200, f"{what} was not changed: {status}")
            history.setdefault(what, []).append((begin, recording.position(), value(number)))
        running.stop()
    recording.end()
    return history


def allowed(history, position):
    """The values that may be found after a cut there: the last that was answered, and those that were under way."""
    answered = [value for _, end, value in history if end <= position]
    return answered[-1:], [value for begin, end, value in history if begin <= position < end]


def judge(fault, device, history, position):
    with device.service(fresh=False) as running:
        for what, (_, _, found) in changes(running).items():
            last, under_way = allowed(history[what], position)
            value = found()
            fault.expect(value in last + under_way or not last, f"{what}: {value!r}, not one of {last + under_way}")
        for what, (_, _, found) in uploads(running).items():
            last, under_way = allowed(history[what], position)
            fault.expect(bool(under_way) or not last or found() == last[0], f"{what} was answered and is not there")
        answered = sum(end <= position for what, entries in history.items() if what != "identities" for _, end, _ in entries)
        lines = sum(len(path.read_text().splitlines()) for path in (AUDIT, AUDIT.with_name("audit.log.1")) if path.exists())
        fault.expect(lines >= answered, f"the audit record has {lines} lines of {answered} changes")
        fault.expect(running.request("GET", "/settings").status == 200, "the service does not answer")
    verified = subprocess.run([devices.program_beside(TOOL), "audit", "verify", AUDIT], text=True, capture_output=True)
    fault.expect(not AUDIT.exists() or verified.returncode == 0, f"the audit record: {verified.stdout}{verified.stderr}")
    fault.expect(not list(SETTINGS.parent.glob("*.broken-*")), "a settings file was found broken")


def run(device, report, plan):
    cuts = 30 if plan.quick else 10 * plan.rounds
    with report.fault("power cut between two writes of the disk") as fault, fault.guarded(0):
        kx.clear_device()
        choice = random.Random(random.random())
        with recorded() as recording:
            history = record(fault, device, recording, 6 if plan.quick else 40)
            writes = recording.writes()
            for number in sorted(choice.sample(range(1, len(writes)), min(cuts, len(writes) - 1))):
                with fault.guarded(), cut(recording, writes, number, choice):
                    judge(fault, device, history, writes[number - 1][0])
            fault.notes.append(f"{len(writes)} writes and flushes of the block layer")

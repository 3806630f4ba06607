"""The service killed with -9 at random moments of what it writes: the old or the new file, never another."""

import http.client
import json
import random
import threading
import time

from device import IMAGES, PLUGIN_CONFIG, PLUGINS, SETTINGS, TRAVELLER, kx, upload_image

# What the files hold besides makes them large enough for a kill to meet them half written.
BALLAST = {"note": "x" * 400_000}
OTHER_PLUGINS = [{"name": f"other{number}", "version": "1.0"} for number in range(4000)]


class Writer(threading.Thread):
    """Changes something again and again until the service is gone. Knows the last value that was acknowledged, and
    the one that was under way."""

    def __init__(self, running, held, values, change):
        super().__init__(daemon=True)
        self.running, self.values, self.change = running, values, change
        self.acknowledged = held
        self.under_way = held
        self.refused = None
        self.first_done = threading.Event()

    def run(self):
        connection = self.running.connect(20)
        try:
            for value in self.values:
                self.under_way = value
                answer = self.change(self.running, value, connection)
                if answer.status != 200:
                    self.refused = f"{answer.status} {answer.body[:200]}"
                    return
                self.acknowledged = value
                self.first_done.set()
        except (OSError, http.client.HTTPException):
            pass  # killed
        finally:
            self.first_done.set()


def kill_while_writing(fault, running, held, values, change):
    """Kills the service in the middle of its writes; gives the acknowledged value, which is the one held before where
    the first change did not come that far, and the one under way."""
    writer = Writer(running, held, values, change)
    writer.start()
    writer.first_done.wait(20)
    time.sleep(random.uniform(0, 0.1))
    running.kill()
    writer.join(20)
    fault.expect(writer.refused is None, f"a change was refused: {writer.refused}")
    return writer.acknowledged, writer.under_way


def strangers(path):
    """Temporary files beside the file."""
    return [entry.name for entry in path.parent.iterdir() if entry.name.startswith("." + path.name)]


def judge(fault, path, value_in, expected):
    """The file must hold one of the expected values."""
    try:
        found = value_in(json.loads(path.read_text()))
    except (OSError, ValueError) as error:
        fault.lose(f"{path.name} cannot be read: {error}")
        return
    fault.expect(found in expected, f"{path.name} holds {found}, not one of {expected}")
    temporary = strangers(path)
    fault.expect(len(temporary) <= 1, f"temporary files pile up: {temporary}")


def in_rounds(fault, device, rounds, check, kill):
    """Starts the service, checks what it found, kills it; and so on. What the last kill left is checked too."""
    for number in range(rounds + 1):
        begin = time.monotonic()
        with fault.guarded(), device.service(fresh=False) as running:
            if number > 0:
                fault.recovered(time.monotonic() - begin)
                check(running)
            if number < rounds:
                kill(running)
    fault.times = rounds


def kill_file_change(fault, device, rounds, path, subject, held_in, told_by, values, change):
    """Kills the service in the middle of changes of a file. `held_in` gives the value in the file and whether the rest of it
    is whole, `told_by` the value that the service tells, `values` what to change the held value to, and back, and so on."""
    half_done = 0

    def held():
        return held_in(json.loads(path.read_text()))[0]

    def check(running):
        fault.expect(told_by(running) == held(), f"the service tells {told_by(running)}, the file holds {held()}")
        answer = change(running, held(), None)
        fault.expect(answer.status == 200, f"no more changes: {answer.status}")

    def kill(running):
        nonlocal half_done
        before = held()
        old, new = kill_while_writing(fault, running, before, values(before), change)
        half_done += bool(strangers(path))
        judge(fault, path, held_in, [(old, True), (new, True)])

    in_rounds(fault, device, rounds, check, kill)
    fault.expect(not list(path.parent.glob("*.broken-*")), f"{subject} was found broken")
    fault.notes.append(f"{half_done} times the new file was half done")


def kill_settings(fault, device, rounds):
    SETTINGS.parent.mkdir(parents=True)
    SETTINGS.write_text(json.dumps({**BALLAST, "enabled": True, "tcp_port": 2376}))

    def held_in(document):
        return document.pop("tcp_port"), {**BALLAST, "enabled": True}.items() <= document.items()

    def change(running, value, connection):
        answer = running.request("PATCH", "/settings", {"tcp_port": value}, connection=connection)
        fault.expect(connection or not strangers(SETTINGS), "a temporary file stays after the next write")
        return answer

    kill_file_change(fault, device, rounds, SETTINGS, "a settings file", held_in,
                     lambda running: running.request("GET", "/settings").json()["tcp_port"],
                     lambda held: range(held + 1, held + 1000), change)


def kill_plugin_change(fault, device, rounds):
    PLUGINS.mkdir(parents=True)
    PLUGIN_CONFIG.write_text(json.dumps({"deactivated": OTHER_PLUGINS}))
    plugin = PLUGINS / "subject_2.1.crp"
    plugin.write_text("plugin")
    entry = {"name": "subject", "version": "2.1"}

    def held_in(document):
        entries = document["deactivated"]
        own = [one for one in entries if one["name"] == "subject"]
        return not own, own in ([], [entry]) and [one for one in entries if one["name"] != "subject"] == OTHER_PLUGINS

    def change(running, value, connection):
        return running.request("PUT", "/plugins/subject/activate?pluginVersion=2.1", {"activate": value}, connection=connection)

    kill_file_change(fault, device, rounds, PLUGIN_CONFIG, "the plugins' file", held_in,
                     lambda running: not running.request("GET", "/plugins").json()["plugins"][0]["isDeactivated"],
                     lambda active: [active, *[not active, active] * 500],  # the first changes nothing and shows that all is well
                     change)
    fault.expect(plugin.read_text() == "plugin", "the plugin itself changed")


def kill_upload(fault, device, rounds):
    duration = 1.0

    def check(running):
        nonlocal duration
        begin = time.monotonic()
        answer = upload_image(running)
        duration = min(time.monotonic() - begin, 3)
        fault.expect(answer.status == 204, f"the same upload then: {answer.status} {answer.body[:300]}")
        tags = [tag for image in running.request("GET", "/images").json()["images"] for tag in image["RepoTags"] or []]
        fault.expect(TRAVELLER in tags, f"the image is not listed: {tags}")
        fault.expect(not list(IMAGES.iterdir()), "an upload's file stays behind")
        kx.podman("rmi", "--force", TRAVELLER)

    def kill(running):
        def upload():
            try:
                upload_image(running, timeout=30)
            except (OSError, http.client.HTTPException):
                pass  # killed

        client = threading.Thread(target=upload, daemon=True)
        client.start()
        time.sleep(random.uniform(0, duration))
        running.kill()
        client.join(30)

    in_rounds(fault, device, rounds, check, kill)


def run(device, report, plan):
    for what, act in (("a settings write", kill_settings), ("a plugin change", kill_plugin_change), ("an upload", kill_upload)):
        with report.fault(f"service killed with -9 during {what}") as fault, fault.guarded():
            kx.clear_device()
            act(fault, device, plan.rounds)

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


def settings_value(document):
    return (document["tcp_port"], document.get("note") == BALLAST["note"], document.get("enabled"))


def change_settings(running, value, connection):
    return running.request("PATCH", "/settings", {"tcp_port": value}, connection=connection)


def kill_settings(fault, device, rounds):
    SETTINGS.parent.mkdir(parents=True)
    SETTINGS.write_text(json.dumps({**BALLAST, "enabled": True, "tcp_port": 2376}))
    value, half_done = 3000, 0

    def check(running):
        held = json.loads(SETTINGS.read_text())["tcp_port"]
        told = running.request("GET", "/settings").json()["tcp_port"]
        fault.expect(told == held, f"the settings read {told}, the file holds {held}")
        fault.expect(running.request("PATCH", "/settings", {"tcp_port": held}).status == 200, "no more changes")
        fault.expect(not strangers(SETTINGS), "a temporary file stays after the next write")

    def kill(running):
        nonlocal value, half_done
        held = json.loads(SETTINGS.read_text())["tcp_port"]
        old, new = kill_while_writing(fault, running, held, range(value, value + 1000), change_settings)
        half_done += bool(strangers(SETTINGS))
        judge(fault, SETTINGS, settings_value, [(old, True, True), (new, True, True)])
        value = new + 1

    in_rounds(fault, device, rounds, check, kill)
    fault.expect(not list(SETTINGS.parent.glob("*.broken-*")), "a settings file was found broken")
    fault.notes.append(f"{half_done} times the new file was half done")


def change_plugin(running, value, connection):
    return running.request("PUT", "/plugins/subject/activate?pluginVersion=2.1", {"activate": value}, connection=connection)


def plugin_value(document):
    entries = document["deactivated"]
    others = [entry for entry in entries if entry["name"] != "subject"]
    return ({"name": "subject", "version": "2.1"} not in entries, others == OTHER_PLUGINS, len(entries) - len(others) <= 1)


def is_active():
    return plugin_value(json.loads(PLUGIN_CONFIG.read_text()))[0]


def kill_plugin_change(fault, device, rounds):
    PLUGINS.mkdir(parents=True)
    PLUGIN_CONFIG.write_text(json.dumps({"deactivated": OTHER_PLUGINS}))
    plugin = PLUGINS / "subject_2.1.crp"
    plugin.write_text("plugin")
    half_done = 0

    def check(running):
        listed = running.request("GET", "/plugins").json()["plugins"]
        fault.expect([entry["isDeactivated"] for entry in listed] == [not is_active()], "the list differs from the file")

    def kill(running):
        nonlocal half_done
        active = is_active()
        values = [active, *[not active, active] * 500]  # the first one changes nothing and shows that all is well
        old, new = kill_while_writing(fault, running, active, values, change_plugin)
        half_done += bool(strangers(PLUGIN_CONFIG))
        judge(fault, PLUGIN_CONFIG, plugin_value, [(old, True, True), (new, True, True)])

    in_rounds(fault, device, rounds, check, kill)
    fault.expect(plugin.read_text() == "plugin", "the plugin itself changed")
    fault.notes.append(f"{half_done} times the new file was half done")


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
            device.clear()
            act(fault, device, plan.rounds)

"""The device that the faults happen to: its files, its Podman, the service on it."""

import contextlib
import os
import pathlib
import subprocess
import sys
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[2] / path) for path in ("scripts/lib", "tests/logs")]
import service as kx  # noqa: E402

CONFIG_DIR = pathlib.Path("/mnt/cfdrive/containers")
SETTINGS = CONFIG_DIR / "container_rte_settings.json"
PLUGINS = pathlib.Path("/userstorage1/container_rte/plugins")
PLUGIN_CONFIG = PLUGINS / "config.json"
IMAGES = pathlib.Path("/userstorage1/container_rte/utilities/images")
COMPOSE_FILES = pathlib.Path("/userstorage1/container_rte/utilities/compose-files")
TRAVELLER = "localhost/traveller:1"
MARKER = pathlib.Path("/run/KxContainerRTE.enabled")
ARCHIVE = pathlib.Path("/run/kx-faults/traveller.tar")
COUNTER = "i=0; while :; do i=$((i+1)); echo $i; sleep 0.05; done"
COMPOSE = "version: '3'\nservices:\n  a:\n    image: localhost/hello:1\n    command: sleep 1000\n    stop_grace_period: 0s\n"


def program_beside(name):
    """Another program of the same build."""
    return str(Device.program.with_name(name))


class Device:
    program = None

    def __init__(self, program):
        Device.program = pathlib.Path(program)
        self.log_number = 0
        ARCHIVE.parent.mkdir()
        kx.make_image()
        kx.podman("run", "--name", "maker", "--network", "none", kx.IMAGE, "dd", "if=/dev/urandom", "of=/luggage", "bs=1M", "count=8")
        kx.podman("commit", "-q", "maker", TRAVELLER)
        kx.podman("rm", "maker")
        kx.podman("save", "-q", "-o", str(ARCHIVE), TRAVELLER)
        kx.podman("rmi", TRAVELLER)

    @contextlib.contextmanager
    def service(self, options=None, fresh=True, **keywords):
        """A running service, by default on a fresh device."""
        if fresh:
            kx.clear_device()
        self.log_number += 1
        log = ARCHIVE.parent / f"service-{self.log_number}.log"
        options = {"Log.Level": 2, "WebApi.Port": 0, **(options or {})}
        with kx.Service(self.program, log, options, **keywords) as running:
            yield running.wait_ready(60)
        log.unlink()


def is_up(running):
    """Whether the service answers from Podman."""
    try:
        return running.request("GET", "/containers", timeout=20).status == 200
    except OSError:
        return False


def measure_recovery(fault, running, begin, seconds=30):
    """Waits until the service answers from Podman again, and until then checks that it lives."""

    def back():
        if running.process.poll() is not None:
            raise RuntimeError(f"the process ended with {running.process.returncode}\n{running.log()[-2000:]}")
        return is_up(running)

    kx.wait_until(back, seconds, "the service answers from Podman again")
    fault.recovered(time.monotonic() - begin)


def upload_image(running, name="traveller.tar", **keywords):
    with open(ARCHIVE, "rb") as archive:
        return running.request("POST", "/images", archive, {"Content-Type": "application/x-tar", "Content-Length":
                               str(ARCHIVE.stat().st_size), "Content-Disposition": f"attachment; filename={name}"}, **keywords)


def upload_text(running, kind, name, text):
    return running.request("POST", f"/{kind}", text.encode(), {"Content-Type": "application/octet-stream",
                                                               "Content-Disposition": f'attachment; filename="{name}"'})


@contextlib.contextmanager
def small_disk(path, size):
    """A file system of that size in place of the directory."""
    path.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", path], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "-l", path], check=True)


def fill(path, leave):
    """Takes all room that a file system has, but for what is to be left; gives the file that holds it."""
    hog = path / "hog"
    with open(hog, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(4096))
    os.truncate(hog, hog.stat().st_size - leave)
    return hog

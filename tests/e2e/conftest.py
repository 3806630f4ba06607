"""Fixtures of the end-to-end tests: the built program against a real Podman, inside the sandbox.

scripts/test-e2e runs them. One program runs at a time, as on a device; the tests of a module share one where they can.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts/lib"))
import service as kx  # noqa: E402
from description import Description  # noqa: E402

PREFIX = "Korvex Container Service: "
OPTIONS = {"Log.Level": 0, "WebApi.Port": 0}

kx.require_sandbox()


def pytest_addoption(parser):
    parser.addoption("--program", required=True, help="the executable to test")


def clear_state():
    """Leaves what a device has on its first start: no files, no containers, no Podman."""
    while podman := kx.podman_service_pid():
        os.kill(podman, signal.SIGKILL)
        kx.wait_until(lambda: kx.podman_service_pid() != podman, 10, "Podman ends")
    pathlib.Path(kx.PODMAN_SOCKET).unlink(missing_ok=True)
    # A container that ends just now may be busy for a moment.
    kx.wait_until(lambda: subprocess.run(["podman", "rm", "--all", "--force", "--time", "0"],
                                         stdout=subprocess.DEVNULL).returncode == 0, 60, "no container is left")
    for directory in ("/mnt", "/userstorage1"):
        for path in pathlib.Path(directory).iterdir():
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
    for path in pathlib.Path("/run").glob("Kx*"):
        path.unlink()


def check_log(running, exit_status, expected_status):
    """What holds for every run: its exit status, the form of its log, and that no secret stands in it."""
    log = running.log()
    assert exit_status == expected_status, log[-5000:]
    strangers = [line for line in log.splitlines() if PREFIX not in line]
    assert not strangers, "\n".join(strangers[:40])
    assert PREFIX + PREFIX not in log
    if kx.TOKEN_FILE.exists() and running.token():
        assert running.token() not in log
    assert not re.search(r"BEGIN [A-Z ]*PRIVATE KEY", log)


def judge_answers(running):
    """From here on each answer of the service must be one that its description knows."""
    if running.port and not kx.TLS_FILE.exists():
        answer = running.request("GET", "/openapi.json", token=kx.TOKEN_FILE.exists())
        running.judge = Description(answer.json(), kx.BASE).check


class Programs:
    """The runs of the program: one shared by the tests of a module, and those that single tests start."""

    def __init__(self, program, logs):
        self.program, self.logs = program, logs
        self.shared, self.module = None, None
        self.started = []

    def start(self, options=None, environment=None, ready=True):
        """Starts the program on the state that is there: start({"Section.Key": value}, {"VARIABLE": value}).
        A KX_CUSTOM_CONFIG among the variables takes the place of the options."""
        own_configuration = "KX_CUSTOM_CONFIG" in (environment or {})
        running = kx.Service(self.program, self.logs.mktemp("log") / "service.log",
                             None if own_configuration else {**OPTIONS, **(options or {})}, environment)
        self.started.append(running)
        if ready:
            running.wait_ready()
            judge_answers(running)
        return running

    def share(self, module):
        if self.shared is None or self.module != module:
            self.end_shared()
            clear_state()
            self.shared, self.module = self.start(), module
            self.started.remove(self.shared)
        return self.shared

    def end_shared(self):
        running, self.shared = self.shared, None
        if running:
            with running:
                check_log(running, running.stop(), 0)

    def kill_started(self):
        while self.started:
            self.started.pop().__exit__()


@pytest.fixture(scope="session")
def programs(request, tmp_path_factory):
    kx.make_image()
    programs = Programs(request.config.getoption("--program"), tmp_path_factory)
    yield programs
    programs.end_shared()


@pytest.fixture
def service(request, programs):
    """A service on a fresh device, shared by the tests of a module, with a busybox image in Podman."""
    return programs.share(request.module)


@pytest.fixture
def device(programs):
    """A fresh device without a running service."""
    programs.end_shared()
    clear_state()
    yield
    programs.kill_started()


@pytest.fixture
def start_service(programs):
    return programs.start


@pytest.fixture
def fresh_service(device, start_service):
    """A service of its own for one test, on a fresh device."""
    running = start_service()
    yield running
    if running.process.poll() is None:
        check_log(running, running.stop(), 0)

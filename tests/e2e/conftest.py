"""Fixtures of the end-to-end tests: the built program against a real Podman, inside the sandbox.

scripts/test-e2e runs them, in two sandboxes at once that share the tests. In each, one program runs at a time, as on a
device; the tests that need nothing special share one, and come first.
"""

import pathlib
import re
import signal
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / path) for path in ("scripts/lib", "tests/openapi", "tests/logs")]
import service as kx  # noqa: E402
from description import Description  # noqa: E402

PREFIX = "Korvex Container Service: "
OPTIONS = {"Log.Level": 0, "WebApi.Port": 0}

kx.require_sandbox()


def pytest_addoption(parser):
    parser.addoption("--program", required=True, help="the executable to test")
    parser.addoption("--claims", type=pathlib.Path, help="a directory: of the runs that share it, each takes some of the tests")
    parser.addoption("--from-end", action="store_true", help="begin with the last test")


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(config, items):
    items.sort(key=lambda item: "service" not in item.fixturenames)
    if config.getoption("--from-end"):
        items.reverse()


def claim(item):
    """Whether the test is this run's: each is the first one's that comes to it."""
    claims = item.config.getoption("--claims")
    try:
        if claims:
            (claims / item.nodeid.replace("/", "|")[-250:]).mkdir()
        return True
    except FileExistsError:
        return False


def pytest_runtestloop(session):
    if session.testsfailed or session.config.option.collectonly:
        return None  # pytest's own loop reports it
    items = filter(claim, session.items)
    item = next(items, None)
    while item:
        following = next(items, None)
        item.config.hook.pytest_runtest_protocol(item=item, nextitem=following)
        if session.shouldfail or session.shouldstop:
            raise session.Failed(session.shouldfail or session.shouldstop)
        item = following
    return True


def end(running, expected_status=0, number=signal.SIGTERM, ended=False):
    """Ends a run, unless it has ended; what holds for every run: its exit status, the form of its log, that no secret
    stands in it."""
    with running:
        status = running.process.wait(20) if ended else running.stop(number)
        log = running.log()
        assert status == expected_status, log[-5000:]
        strangers = [line for line in log.splitlines() if PREFIX not in line]
        assert not strangers, "\n".join(strangers[:40])
        assert PREFIX + PREFIX not in log
        if kx.TOKEN_FILE.exists() and running.token():
            assert running.token() not in log
        assert not re.search(r"BEGIN [A-Z ]*PRIVATE KEY", log)


class Programs:
    """The runs of the program: one that tests share, and those that single tests start."""

    def __init__(self, program, logs):
        self.program, self.logs = program, logs
        self.shared, self.started = None, []

    def start(self, options=None, environment=None, ready=True):
        """Starts the program on the state that is there: start({"Section.Key": value}, {"VARIABLE": value}).
        A KX_CUSTOM_CONFIG among the variables takes the place of the options."""
        own_configuration = "KX_CUSTOM_CONFIG" in (environment or {})
        running = kx.Service(self.program, self.logs.mktemp("log") / "service.log",
                             None if own_configuration else {**OPTIONS, **(options or {})}, environment)
        self.started.append(running)
        if ready:
            running.wait_ready()
            if running.port and not kx.TLS_FILE.exists():  # each answer must be one that the service's description knows
                document = running.request("GET", "/openapi.json", token=kx.TOKEN_FILE.exists()).json()
                running.judge = Description(document, kx.BASE).check
        return running

    def share(self):
        if self.shared is None:
            kx.clear_device()
            self.shared = self.start()
        return self.shared

    def end_all(self):
        """Ends what still runs; a test that expects another status than 0 has ended its program itself."""
        self.shared = None
        while self.started:
            running = self.started.pop()
            if running.process.poll() is None:
                end(running)


@pytest.fixture(scope="session")
def programs(request, tmp_path_factory):
    kx.make_image()
    programs = Programs(request.config.getoption("--program"), tmp_path_factory)
    yield programs
    programs.end_all()


@pytest.fixture
def service(programs):
    """A service that tests share, with a busybox image in Podman."""
    return programs.share()


@pytest.fixture
def start_service(programs):
    """Programs.start on a fresh device."""
    programs.end_all()
    kx.clear_device()
    yield programs.start
    programs.end_all()


@pytest.fixture
def fresh_service(start_service):
    """A service of its own for one test, on a fresh device."""
    return start_service()

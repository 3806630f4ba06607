"""The page in a real browser, against the built program and a real Podman, inside the sandbox. tests/browser/run runs it."""

import hashlib
import json
import os
import pathlib
import re
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import service as kx  # noqa: E402
from browser import Browser  # noqa: E402

IDENTITIES = pathlib.Path("/mnt/cfdrive/containers/identities.json")
COMPOSE_FILES = pathlib.Path("/userstorage1/container_rte/utilities/compose-files")
PLUGINS = pathlib.Path("/userstorage1/container_rte/plugins")
# What the browser says when the service is away on purpose, or answers no: everything else is a fault of the page.
EXPECTED = re.compile(r"ERR_(CONNECTION|BLOCKED_BY_CLIENT|EMPTY_RESPONSE|NETWORK|TIMED_OUT)|WebSocket connection to|status of (4|5)\d\d")

kx.require_sandbox()


def pytest_addoption(parser):
    parser.addoption("--program", required=True, help="the executable to test")
    parser.addoption("--axe", required=True, type=pathlib.Path, help="axe.min.js")
    parser.addoption("--long", action="store_true", help="loads as large and as long as they are promised")


def pytest_configure(config):
    config.addinivalue_line("markers", "long: takes minutes; runs with --long")


def pytest_collection_modifyitems(config, items):
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="needs --long"))


def run_container(name, command, *options):
    kx.podman("run", "-d", "--name", name, *options, kx.IMAGE, "/bin/sh", "-c", command)


def clear():
    """Leaves no container, compose file or plugin of another test."""
    kx.podman("rm", "--all", "--force", "--time", "0")
    for folder in (COMPOSE_FILES, PLUGINS):
        for file in folder.glob("*"):
            file.unlink()


class Page:
    """The page in the browser's tab."""

    def store(self, path, name, content=b"services: {}"):
        """Uploads a file without the page."""
        quoted = name.replace('"', '\\"')
        answer = self.device.service.request("POST", path, content, {"Content-Type": "application/octet-stream",
                                                                     "Content-Disposition": f'attachment; filename="{quoted}"'})
        assert answer.status == 200, answer.body

    def __init__(self, browser, device):
        self.browser, self.device = browser, device

    @property
    def address(self):
        scheme = "https" if self.device.service.tls else "http"
        return f"{scheme}://127.0.0.1:{self.device.port}/"

    def load(self):
        """Loads it in a tab of its own: what a tab keeps is gone."""
        self.browser.open("about:blank")
        self.browser.wait("return location.href === 'about:blank'")
        self.browser.open(self.address)
        self.browser.wait("return document.querySelector('h1')")

    def log_in(self, token=None):
        self.load()
        self.browser.run("sessionStorage.clear()")
        self.load()
        self.browser.type("#token", token or self.device.token())
        self.browser.click("button", "Log in")
        self.browser.find("nav")

    def go(self, place):
        self.browser.run("location.hash = '#/' + arguments[0]", place)
        self.browser.find("main h1")

    def row(self, name):
        """The text of the table row, or the card, with that name."""
        return self.browser.run("""
            return [...document.querySelectorAll("tbody tr, .cards > li, .problem")]
                .find(row => row.querySelector("th, h2, h3 a")?.innerText === arguments[0])?.innerText ?? ""
        """, name)

    def wait_row(self, name, text, seconds=20):
        try:
            kx.wait_until(lambda: text in self.row(name), seconds, f"{text!r} in the row of {name}")
        except TimeoutError as error:
            raise AssertionError(f"{error}; it is {self.row(name)!r}\n{self.browser.text()[:2000]}") from None

    def wait_text(self, text, seconds=20):
        self.browser.wait("return document.body.innerText.includes(arguments[0])", text, seconds=seconds)

    def buttons(self):
        """The labels of all buttons that are offered in the view."""
        return self.browser.run("""
            return [...document.querySelectorAll("main button, main label.button, main input[type=checkbox]")]
                .filter(one => one.checkVisibility()).map(one => (one.getAttribute("aria-label") ?? one.innerText).trim())
        """)

    def log_lines(self):
        """The texts of the rows of the log that stand on the screen, by their place."""
        return self.browser.run("""
            const place = line => new DOMMatrix(line.style.transform).f;
            return [...document.querySelectorAll(".line:not([hidden])")].sort((a, b) => place(a) - place(b))
                .map(line => [line.classList[1], line.querySelector(".text").textContent]);
        """)

    def unexpected(self):
        return [message for message in self.browser.console() if not EXPECTED.search(message)]


@pytest.fixture(scope="session")
def device(request, tmp_path_factory):
    kx.clear_device()
    kx.make_image()
    running = Device(request.config.getoption("--program"), tmp_path_factory)
    yield running
    running.end()


class Device:
    """The service, which can be ended and started again at the same address."""

    def __init__(self, program, logs):
        self.program, self.logs, self.service, self.port = program, logs, None, 0
        self.secrets = set()
        self.start()

    def start(self):
        self.service = kx.Service(self.program, self.logs.mktemp("log") / "service.log", {"Log.Level": 0, "WebApi.Port": self.port})
        self.service.wait_ready()
        self.port = self.service.port
        self.secrets.add(self.token())

    def end(self):
        with self.service:
            assert self.service.stop() == 0
            log = self.service.log()
            assert not any(secret in log for secret in self.secrets)

    def token(self):
        return self.service.token()

    def identity(self, name, role):
        """Lets somebody in; gives the token."""
        token = hashlib.sha256(os.urandom(16)).hexdigest()
        known = json.loads(IDENTITIES.read_text())["identities"] if IDENTITIES.exists() else []
        created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
        self.write_identities([one for one in known if one["name"] != name] + [{
            "name": name, "role": role, "expires": None, "created": created,
            "tokenSha256": hashlib.sha256(token.encode()).hexdigest()}])
        self.secrets.add(token)
        kx.wait_until(lambda: time.sleep(1) or self.service.request("GET", "/settings", token=token).status == 200, 5, name)
        return token

    def write_identities(self, known):
        new = IDENTITIES.with_suffix(".new")
        new.touch(mode=0o600)
        new.write_text(json.dumps({"identities": known}))
        new.rename(IDENTITIES)


@pytest.fixture(scope="session")
def browser():
    with Browser() as browser:
        yield browser


@pytest.fixture
def page(browser, device):
    """The page with the administrator in. Whatever a test does, the browser reports nothing that the page should not do."""
    page = Page(browser, device)
    clear()
    browser.size(1280, 860)
    browser.theme("light")
    page.log_in()
    browser.console()
    yield page
    assert page.unexpected() == []

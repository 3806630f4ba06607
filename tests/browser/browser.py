"""A headless Chromium, driven over the WebDriver protocol (W3C)."""

import base64
import http.client
import json
import pathlib
import socket
import subprocess
import tempfile
import time

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
DRIVER = "/usr/bin/chromedriver"


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


class BrowserError(Exception):
    pass


class Browser:
    """One tab. As a context manager it is closed on the way out."""

    def __init__(self, width=1280, height=860):
        self.port = free_port()
        self.driver = subprocess.Popen([DRIVER, f"--port={self.port}"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.session = ""
        self.profile = tempfile.TemporaryDirectory(prefix="kx-browser-", ignore_cleanup_errors=True)
        options = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                   "--disable-sync", "--disable-background-networking", "--disable-component-update",
                   "--force-device-scale-factor=1", "--enable-precise-memory-info",
                   f"--user-data-dir={self.profile.name}", f"--window-size={width},{height}"]
        deadline = time.monotonic() + 60
        while True:
            try:
                value = self.send("POST", "/session", {"capabilities": {"alwaysMatch": {
                    "browserName": "chrome", "pageLoadStrategy": "none", "goog:loggingPrefs": {"browser": "ALL"},
                    "acceptInsecureCerts": True,
                    "goog:chromeOptions": {"binary": "/usr/bin/chromium", "args": options}}}})
                break
            except ConnectionError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.1)
        self.session = f"/session/{value['sessionId']}"
        self.command("Page.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.send("DELETE", self.session)
        except (BrowserError, OSError):
            pass
        self.driver.terminate()
        self.driver.wait(20)
        self.profile.cleanup()

    def send(self, method, path, body=None, timeout=120):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, json.dumps(body) if body is not None else None, {"Content-Type": "application/json"})
            value = json.loads(connection.getresponse().read())["value"]
        finally:
            connection.close()
        if isinstance(value, dict) and "error" in value:
            raise BrowserError(f"{value['error']}: {value['message'].splitlines()[0]}")
        return value

    def command(self, name, **parameters):
        """One of the DevTools protocol."""
        return self.send("POST", self.session + "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def open(self, url):
        self.send("POST", self.session + "/url", {"url": url})

    def run(self, script, *arguments):
        """The value of a script's `return`."""
        return self.send("POST", self.session + "/execute/sync", {"script": script, "args": list(arguments)})

    def run_async(self, script, *arguments):
        """What the script gives to its last argument, a function."""
        return self.send("POST", self.session + "/execute/async", {"script": script, "args": list(arguments)})

    def wait(self, script, *arguments, seconds=20):
        """The script's first true value."""
        deadline = time.monotonic() + seconds
        while True:
            value = self.run(script, *arguments)
            if value:
                return value
            if time.monotonic() > deadline:
                raise BrowserError(f"not within {seconds} s: {script} {arguments}\n{self.text()[:3000]}")
            time.sleep(0.05)

    def text(self):
        return self.run("return document.body.innerText")

    def find(self, selector, text=None, seconds=20):
        """The first element that is seen, with that selector and that label or text."""
        return self.wait("""
            const [selector, text] = arguments;
            return [...document.querySelectorAll(selector)].find(element => element.checkVisibility()
                && (text === null || (element.getAttribute("aria-label") ?? element.innerText).trim() === text)) ?? null;
        """, selector, text, seconds=seconds)

    def exists(self, selector, text=None):
        try:
            return bool(self.find(selector, text, seconds=0))
        except BrowserError:
            return False

    def click(self, selector, text=None, seconds=20):
        """As a person does: scrolls there, and hits what lies on top."""
        for attempt in range(5):
            element = self.find(selector, text, seconds)
            try:
                return self.send("POST", f"{self.session}/element/{element[ELEMENT]}/click", {})
            except BrowserError as error:
                if attempt == 4 or "stale" not in str(error):  # another one has taken its place meanwhile
                    raise

    def type(self, selector, text, label=None):
        element = self.find(selector, label)
        self.send("POST", f"{self.session}/element/{element[ELEMENT]}/value", {"text": text})

    def press(self, key):
        self.send("POST", self.session + "/actions", {"actions": [{"type": "key", "id": "keys", "actions": [
            {"type": "keyDown", "value": key}, {"type": "keyUp", "value": key}]}]})

    def point(self, x, y):
        self.send("POST", self.session + "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "x": x, "y": y, "duration": 0}]}]})

    def choose_file(self, selector, path):
        element = self.wait("return document.querySelector(arguments[0])", selector)
        self.send("POST", f"{self.session}/element/{element[ELEMENT]}/value", {"text": str(path)})

    def size(self, width, height):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 600)

    def theme(self, name):
        self.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name},
                                                            {"name": "prefers-reduced-motion", "value": "reduce"}])

    def upload_rate(self, bytes_per_second):
        self.command("Network.enable")
        self.command("Network.emulateNetworkConditions", offline=False, latency=0, downloadThroughput=-1,
                     uploadThroughput=bytes_per_second)

    def screenshot(self, path):
        pathlib.Path(path).write_bytes(base64.b64decode(self.send("GET", self.session + "/screenshot")))

    def console(self):
        """What the browser has said since the last time: refused by the policy, not caught, not loaded."""
        return [entry["message"] for entry in self.send("POST", self.session + "/se/log", {"type": "browser"})]

"""The installed package, as its tests see it."""

import http.client
import json
import pathlib
import shlex
import subprocess
import time

NAME = "kx-container-service"
CONFIGURATION = pathlib.Path(f"/etc/{NAME}.conf")
PROGRAM = pathlib.Path(f"/usr/sbin/{NAME}")
MARKER = pathlib.Path("/run/KxContainerRTE.enabled")
TOKEN = pathlib.Path("/mnt/cfdrive/containers/api-token")
SETTINGS = pathlib.Path("/mnt/cfdrive/containers/container_rte_settings.json")
DEFAULT_PORT, OTHER_PORT = 8460, 9460


def run(*command, check=True, **options):
    result = subprocess.run([str(part) for part in command], text=True, stdin=subprocess.DEVNULL, capture_output=True,
                            timeout=200, **options)
    if check and result.returncode != 0:
        raise RuntimeError(f"{shlex.join(map(str, command))} failed:\n{result.stdout}{result.stderr}")
    return result.stdout.strip()


def unit_state(question):
    return run("systemctl", question, NAME, check=False)


def main_process(unit=NAME):
    return int(run("systemctl", "show", "-P", "MainPID", unit))


def request(method, path, body=None, port=DEFAULT_PORT, expected=200, headers=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    headers = {"Authorization": "Bearer " + TOKEN.read_text().strip(), "Content-Type": "application/json", **(headers or {})}
    content = body if body is None or isinstance(body, bytes) else json.dumps(body)
    connection.request(method, "/api/cre/v1.0" + path, content, headers)
    answer = connection.getresponse()
    text = answer.read()
    assert answer.status in (expected if isinstance(expected, tuple) else (expected,)), (answer.status, text)
    return json.loads(text) if text else None


def wait_until(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.1)



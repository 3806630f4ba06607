"""Compose files and the commands on them, with the real docker-compose and Podman."""

import concurrent.futures
import pathlib
import subprocess
import time
import urllib.parse

from conftest import end, kx
from follower import Follower

FILES = pathlib.Path("/userstorage1/container_rte/utilities/compose-files")

TWO_SERVICES = """
version: "3"
services:
  server:
    image: localhost/hello:1
    command: ["/bin/sh", "-c", "mkdir /www; echo {greeting} > /www/index.html; exec httpd -f -p 80 -h /www"]
    networks: [inner]
    stop_grace_period: 0s
  {greeting}-client:
    image: localhost/hello:1
    command: ["/bin/sh", "-c", "while :; do wget -q -O - http://server/; sleep 0.3; done"]
    networks: [inner]
    stop_grace_period: 0s
networks:
  inner: {{}}
"""
MISSING_IMAGE = 'version: "3"\nservices:\n  a:\n    image: localhost/no-such-image:1\n'
SLEEPER = 'version: "3"\nservices:\n  a:\n    image: localhost/hello:1\n    command: sleep 1000\n    stop_grace_period: 0s\n'


def upload(service, name, text):
    disposition = "attachment; filename*=UTF-8''" + urllib.parse.quote(name, safe="")
    return service.request("POST", "/compose-files", text.encode(), {"Content-Type": "application/yaml",
                                                                     "Content-Disposition": disposition})


def command(service, name, word):
    path = f"/compose-files/{urllib.parse.quote(name, safe='')}/containers"
    return service.request("DELETE", path, timeout=120) if word == "remove" else service.request(
        "POST", f"{path}/{word}", timeout=120)


def running_names(service):
    return [entry["Names"][0].lstrip("/") for entry in service.request("GET", "/containers").json()["containers"]]


def follow_until_stopped(service, container, word, stop):
    """Reads until the word has come, stops the container, and reads to the end; gives the answer to the stop."""
    follower = Follower(service, container)
    kx.wait_until(lambda: word in "".join(follower.messages), 60, f"{word!r} in the log")
    answer = stop()
    follower.result()
    return answer


def whole_life(service, name, greeting, repeat=1):
    """Each command once, or as often as `repeat` says where the second time there is nothing to do."""
    assert upload(service, name, TWO_SERVICES.format(greeting=greeting)).json() == {"filename": name}
    created, started = ([command(service, name, word) for _ in range(repeat)] for word in ("create", "start"))
    assert [result.status for result in created + started] == [201, 200][:repeat] + [200] * repeat, created + started
    assert list(created[0].json()) == ["Message", "Name", "Command", "ExitCode", "Output"]
    assert created[0].json()["Name"] == name and created[0].json()["ExitCode"] == 0
    client = next(container for container in running_names(service) if f"{greeting}-client" in container)
    assert follow_until_stopped(service, client, greeting, lambda: command(service, name, "stop")).status == 200
    assert client not in running_names(service)
    assert {command(service, name, "remove").status for _ in range(repeat)} == {200}
    assert client not in kx.podman("ps", "--all", "--format", "{{.Names}}").split()
    assert service.request("DELETE", f"/compose-files/{name}").status == 204


def test_two_projects_live_side_by_side(service):
    with concurrent.futures.ThreadPoolExecutor() as pool:
        for future in [pool.submit(whole_life, service, "first.yml", "hallo", repeat=2),
                       pool.submit(whole_life, service, "First.yml", "salut")]:
            future.result()
    assert "inner" not in kx.podman("network", "ls")


def test_what_cannot_run_says_why(service):
    upload(service, "image.yml", MISSING_IMAGE)
    upload(service, "noise.yml", "services: [\n")
    for name, word, status, words in [("ghost.yml", "start", 404, "ghost.yml"), ("ghost.yml", "remove", 404, "ghost.yml"),
                                      ("noise.yml", "create", 400, "noise.yml"), ("", "start", 400, ""),
                                      ("image.yml", "create", 500, "no-such-image")]:
        answer = command(service, name, word)
        assert answer.status == status, (name, word, answer.body)
        assert answer.detail() and words in answer.detail(), (name, answer.detail())


def test_odd_names_are_only_names(service):
    for name in ["-f it's $(touch pwned); \"touch\" `touch pwned` ünïcode.yml", "n" * 250 + ".yml"]:
        assert upload(service, name, SLEEPER).json() == {"filename": name}
        results = [command(service, name, word) for word in ("create", "remove")]
        assert [result.status for result in results] == [201, 200], [result.body for result in results]
        assert not list(FILES.rglob("pwned"))
        assert service.request("DELETE", "/compose-files/" + urllib.parse.quote(name, safe="")).status == 204


def test_no_command_outlives_the_service(start_service, tmp_path):
    """The tool is replaced by one that hangs, with a child of its own."""
    tool = tmp_path / "docker-compose"
    tool.write_text("#!/bin/sh\nsleep 4711 &\nsleep 4711\n")
    tool.chmod(0o755)
    running = start_service(environment={"PATH": f"{tmp_path}:/usr/sbin:/usr/bin:/sbin:/bin"})
    upload(running, "hang.yml", SLEEPER)

    def sleepers():
        return subprocess.run(["pgrep", "-xf", "sleep 4711"], capture_output=True, text=True).stdout.split()

    with concurrent.futures.ThreadPoolExecutor() as pool:
        pending = pool.submit(command, running, "hang.yml", "create")
        kx.wait_until(lambda: len(sleepers()) == 2, 10, "the tool runs")
        assert running.request("GET", "/settings").status == 200
        end(running)
        try:
            assert pending.result(10).status == 500
        except OSError:
            pass  # the connection ended with the service
    kx.wait_until(lambda: not sleepers(), 5, "the tool and its child are gone")

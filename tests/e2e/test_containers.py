"""The container endpoints on a real Podman: processes really start, stop and go."""

import os
import pathlib
import time

import pytest
from conftest import PREFIX, end, kx

STUBBORN = "trap '' TERM; while :; do sleep 0.1; done"


def pid_of(name):
    return int(kx.podman("inspect", "-f", "{{.State.Pid}}", name))


def create(name, command="exec sleep 1000"):
    kx.podman("create", "--stop-timeout", "1", "--name", name, kx.IMAGE, "/bin/sh", "-c", command)


def names(service, query=""):
    return {entry["Names"][0].lstrip("/") for entry in service.request("GET", "/containers" + query).json()["containers"]}


def test_container_lives_as_told(service):
    create("life")
    assert "life" not in names(service) and "life" in names(service, "?all=true") and "life" in names(service, "?all=1")
    listed = next(entry for entry in service.request("GET", "/containers?all=true").json()["containers"])
    assert list(listed) == ["Id", "Names", "Image", "Created", "State"]

    steps = [("POST", "/containers/life/start", 204, "Container 'life' started successfully"),
             ("POST", "/containers/life/start", 304, "Container 'life' was already running"),
             ("POST", "/containers/life/stop?timeout=0", 204, "Container 'life' stopped successfully"),
             ("POST", "/containers/life/stop", 304, "Container 'life' was already stopped"),
             ("POST", "/containers/life/start", 204, "Starting container 'life'")]
    processes = []
    for method, path, status, line in steps:
        answer = service.request(method, path)
        assert (answer.status, answer.body) == (status, b""), path
        assert PREFIX + line in service.log()
        processes.append(pid_of("life"))
    assert processes[0] == processes[1] != 0 and processes[2] == processes[3] == 0
    assert not os.path.exists(f"/proc/{processes[0]}") and os.path.exists(f"/proc/{processes[4]}")
    assert "life" in names(service)

    refused = service.request("DELETE", "/containers/life")
    assert (refused.status, refused.json()["title"]) == (409, "Conflict")
    assert refused.detail() == "Container 'life' is running and cannot be deleted without force=true"
    assert service.request("DELETE", "/containers/life?force=false").status == 409
    answer = service.request("DELETE", "/containers/life?force=true")
    assert (answer.status, answer.body) == (204, b"")
    assert not os.path.exists(f"/proc/{processes[4]}") and "life" not in names(service, "?all=true")

    create("life")
    assert service.request("DELETE", "/containers/life").status == 204
    for method, path in [("POST", "life/start"), ("POST", "life/stop?timeout=1"), ("DELETE", "life?force=true")]:
        answer = service.request(method, "/containers/" + path)
        assert (answer.status, answer.detail()) == (404, "Container 'life' does not exist")


def test_stop_gives_the_container_its_time(service):
    kx.podman("run", "-d", "--name", "stubborn", "--stop-timeout", "100", kx.IMAGE, "/bin/sh", "-c", STUBBORN)
    begin = time.monotonic()
    assert service.request("POST", "/containers/stubborn/stop?timeout=1").status == 204
    assert 1 <= time.monotonic() - begin < 50
    assert pid_of("stubborn") == 0


def test_container_that_cannot_start_quotes_podman(service):
    kx.podman("create", "--name", "broken", kx.IMAGE, "/no/such/program")
    answer = service.request("POST", "/containers/broken/start")
    assert answer.status == 500
    assert answer.detail().startswith("Error occurred while starting container 'broken': ")
    assert "/no/such/program" in answer.detail()
    assert PREFIX + "Podman /containers/broken/start failed with HTTP 500: " in service.log()


@pytest.mark.skipif(len(os.sched_getaffinity(0)) < 2, reason="one CPU cannot be told from all")
def test_containers_run_on_the_configured_number_of_cpus(fresh_service, start_service):
    assert fresh_service.request("PATCH", "/settings", {"cores_num": 1}).status == 200
    end(fresh_service)
    running = start_service()
    create("narrow")
    assert running.request("POST", "/containers/narrow/start").status == 204
    status = pathlib.Path(f"/proc/{pid_of('narrow')}/status").read_text()
    assert status.split("Cpus_allowed_list:")[1].split()[0].isdigit()

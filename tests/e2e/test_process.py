"""The life of the process: start, second instance, configuration, shutdown, exit status."""

import os
import pathlib
import signal
import socket

import pytest
from conftest import PREFIX, end, kx

MARKER = pathlib.Path("/run/KxContainerRTE.enabled")
SETTINGS = pathlib.Path("/mnt/cfdrive/containers/container_rte_settings.json")


def in_order(log, *texts):
    """Asserts that the log holds the texts, one after the other."""
    position = 0
    for text in texts:
        position = log.find(text, position)
        assert position >= 0, f"{text!r} is missing or out of order in\n{log}"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_serves_from_start_to_signal(start_service, number):
    running = start_service()
    assert MARKER.read_bytes() == b"1\n"
    assert running.request("GET", "/settings").json()["service_state"] == "started"
    kx.podman("run", "-d", "--name", "outlives", kx.IMAGE, "sleep", "1000")
    container = int(kx.podman("inspect", "-f", "{{.State.Pid}}", "outlives"))
    podman_service = [pid for thread in os.listdir(f"/proc/{running.pid}/task")
                      for pid in pathlib.Path(f"/proc/{running.pid}/task/{thread}/children").read_text().split()]
    assert podman_service

    end(running, number=number)
    in_order(running.log(), PREFIX + "TAMBER WebApi server started", f"Shutdown requested (signal {number}).",
             "Shutdown requested (eventfd).")
    assert f":{running.port}" in running.log() or f"port {running.port}" in running.log()
    assert not MARKER.exists()
    assert os.path.exists(f"/proc/{container}"), "containers keep running"
    assert not [pid for pid in podman_service if os.path.exists(f"/proc/{pid}")], "its Podman service ends"


def test_second_instance_leaves_the_first_alone(fresh_service, start_service):
    second = start_service(ready=False)
    end(second, 1, ended=True)
    assert PREFIX + "Another instance of the container service is already running" in second.log()
    assert MARKER.exists()
    assert fresh_service.request("GET", "/containers").status == 200


def test_disabled_service_answers_settings_only(start_service):
    SETTINGS.parent.mkdir(parents=True)
    SETTINGS.write_text('{"enabled": false}')
    MARKER.write_text("1\n")
    running = start_service()
    assert not MARKER.exists()
    assert PREFIX + "Container service is disabled by configuration." in running.log()
    assert running.request("GET", "/settings").json()["service_state"] == "uninitialized"
    assert running.request("GET", "/settings/enable").json() == {"enabled": False}
    refused = running.request("GET", "/containers")
    assert (refused.status, refused.json()) == (500, {"type": "about:blank", "title": "InternalServerError",
                                                      "status": 500, "detail": "Container service is disabled"})
    assert running.request("DELETE", "/containers/").detail() == "Container name must be provided"
    assert running.request("PATCH", "/settings/enable", {"enabled": True}).json() == {"enabled": True}
    assert running.request("GET", "/containers").detail() == "Container service is not started"


def test_port_in_use_is_an_error_that_names_it(start_service):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        port = taken.getsockname()[1]
        running = start_service({"WebApi.Port": port})
        assert running.port is None
        end(running, 1)
    log = running.log()
    assert "127.0.0.1" in log and str(port) in log and os.strerror(98) in log
    assert "TAMBER WebApi server started" not in log
    assert PREFIX + "Something went wrong!" in log


def test_bad_configuration_stops_the_part_that_needs_it(start_service):
    path = pathlib.Path("/run/kx-bad.conf")
    for text, words, part in [
            ("[WebApi]\nPort = eighty", [":2:", "Port", "eighty"], "server"),
            ("[WebApi]\nPort = 0\nAuth = none\nAddress = 0.0.0.0", ["0.0.0.0"], "server"),
            ("[WebApi]\nPort = 0\nAddress = 0.0.0.0", ["0.0.0.0"], "server"),
            ("[WebApi]\nPort = 0\n[ContainerRuntime]\nPodmanTransport = pigeon", [":4:", "PodmanTransport"], "runtime"),
            ("[WebApi]\nPort = 0", ["podman"], "search path")]:
        path.write_text(text + "\n")
        environment = {"PATH": "/nonexistent"} if part == "search path" else {}
        running = start_service(environment={"KX_CUSTOM_CONFIG": str(path), **environment})
        if part == "server":
            assert running.port is None
        else:
            assert running.request("GET", "/settings").json()["service_state"] == "failed"
            assert running.request("GET", "/containers").detail() == "Container service is not started"
        end(running, 1)
        log = running.log()
        assert any(all(word in entry for word in words) for entry in log.splitlines()), log
        assert PREFIX + "Something went wrong!" in log

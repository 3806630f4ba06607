"""The settings and enable endpoints, what they leave on disk, and settings files that are broken."""

import json
import os
import pathlib
import subprocess

import pytest
from conftest import PREFIX, check_log, kx

SETTINGS = pathlib.Path("/mnt/cfdrive/containers/container_rte_settings.json")
INVENTORY = pathlib.Path("/run/KxInventoryTree.json")
CORES = len(os.sched_getaffinity(0))
DEFAULTS = {"tcp_port": 2376, "cores_num": CORES, "max_allowed_cores_num": CORES, "service_state": "started"}

REFUSED = [
    ("/settings", None, "Missing request body"),
    ("/settings", {}, "Empty request body: at least one of 'tcp_port' or 'cores_num' must be specified"),
    ("/settings", {"x": 1}, "Empty request body: at least one of 'tcp_port' or 'cores_num' must be specified"),
    ("/settings", {"tcp_port": "80", "cores_num": 1}, "'tcp_port' must be an integer"),
    ("/settings", {"tcp_port": 80.5}, "'tcp_port' must be an integer"),
    ("/settings", {"tcp_port": 81, "cores_num": True}, "'cores_num' must be an integer"),
    ("/settings", {"tcp_port": 81, "cores_num": CORES + 1},
     f"'cores_num' ({CORES + 1}) exceeds the maximum allowed CPU core count ({CORES})"),
    ("/settings/enable", None, "Request body must contain 'enabled' (boolean)"),
    ("/settings/enable", {}, "Request body must contain 'enabled' (boolean)"),
    ("/settings/enable", {"enabled": 1}, "'enabled' must be a boolean"),
]


@pytest.mark.parametrize("path, body, detail", REFUSED)
def test_refused_change_names_the_reason_and_changes_nothing(service, path, body, detail):
    before = service.request("GET", "/settings").json()
    answer = service.request("PATCH", path, body)
    assert (answer.status, answer.headers["Content-Type"]) == (400, "application/problem+json")
    assert answer.json() == {"type": "about:blank", "title": "BadRequest", "status": 400, "detail": detail}
    assert service.request("GET", "/settings").json() == before


def test_changes_are_answered_kept_and_found_again(fresh_service, start_service):
    first = fresh_service
    assert list(first.request("GET", "/settings").json().items()) == list(DEFAULTS.items())
    for body, answer in [({"cores_num": -1}, {"tcp_port": 2376, "cores_num": -1}),
                         ({"tcp_port": 0, "ignored": 1}, {"tcp_port": 0, "cores_num": -1}),
                         ({"tcp_port": 70000, "cores_num": 1}, {"tcp_port": 70000, "cores_num": 1})]:
        reply = first.request("PATCH", "/settings", body)
        assert (reply.status, reply.json()) == (200, answer)
    kept = json.loads(SETTINGS.read_text())
    assert (kept["tcp_port"], kept["cores_num"]) == (70000, 1)
    check_log(first, first.stop(), 0)

    SETTINGS.write_text(json.dumps({**kept, "of_another_release": [1, 2]}))
    second = start_service()
    assert second.request("GET", "/settings").json() == {**DEFAULTS, "tcp_port": 70000, "cores_num": 1}
    second.request("PATCH", "/settings", {"tcp_port": 2376})
    assert json.loads(SETTINGS.read_text())["of_another_release"] == [1, 2]
    check_log(second, second.stop(), 0)


def test_enable_changes_the_setting_at_once_and_the_runtime_at_the_next_start(service):
    assert service.request("PATCH", "/settings/enable", {"enabled": False}).json() == {"enabled": False}
    assert json.loads(SETTINGS.read_text())["enabled"] is False
    assert service.request("GET", "/containers").detail() == "Container service is disabled"
    assert service.request("GET", "/settings").json()["service_state"] == "started"
    INVENTORY.unlink(missing_ok=True)
    answer = service.request("PATCH", "/settings/enable", {"enabled": True})
    assert (answer.status, answer.body) == (200, b'{"enabled":true}')
    assert service.request("GET", "/settings/enable").json() == {"enabled": True}
    assert service.request("GET", "/containers").status == 200
    json.loads(INVENTORY.read_text())


def test_user_storage_that_is_missing_refuses_the_enable(service):
    subprocess.run(["mount", "-t", "tmpfs", "-o", "ro", "tmpfs", "/userstorage1"], check=True)
    try:
        answer = service.request("PATCH", "/settings/enable", {"enabled": True})
        assert answer.status == 500 and "/userstorage1" in answer.detail()
        assert f"{PREFIX}{answer.detail()}" in service.log()
    finally:
        subprocess.run(["umount", "/userstorage1"], check=True)


@pytest.mark.parametrize("content", [b"", b'{"tcp_port": 1', b"\x00\xff garbage", b"[1, 2]"])
def test_broken_file_is_set_aside_and_defaults_apply(device, start_service, content):
    SETTINGS.parent.mkdir(parents=True)
    SETTINGS.write_bytes(content)
    running = start_service()
    assert running.request("GET", "/settings").json() == DEFAULTS
    aside = [path for path in SETTINGS.parent.iterdir() if path.name.startswith(SETTINGS.name) and path != SETTINGS]
    assert [path.read_bytes() for path in aside] == [content]
    assert any(str(SETTINGS) in line and aside[0].name in line for line in running.log().splitlines())
    assert running.request("PATCH", "/settings", {"tcp_port": 3}).status == 200
    assert json.loads(SETTINGS.read_text())["tcp_port"] == 3
    check_log(running, running.stop(), 0)


def test_full_disk_keeps_the_old_settings(device, start_service):
    SETTINGS.parent.mkdir(parents=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", SETTINGS.parent], check=True)
    try:
        running = start_service()
        assert running.request("PATCH", "/settings", {"tcp_port": 1111}).status == 200
        saved = SETTINGS.read_bytes()
        with open(SETTINGS.parent / "fill", "wb", buffering=0) as fill, pytest.raises(OSError):
            while True:
                fill.write(bytes(4096))
        for path, body in (("/settings", {"tcp_port": 2222}), ("/settings/enable", {"enabled": False})):
            answer = running.request("PATCH", path, body)
            assert (answer.status, answer.detail()) == (500, "Failed to write settings file")
        assert SETTINGS.read_bytes() == saved
        assert running.request("GET", "/settings").json()["tcp_port"] == 1111
        assert running.request("GET", "/settings/enable").json() == {"enabled": True}
        (SETTINGS.parent / "fill").unlink()
        assert running.request("PATCH", "/settings", {"tcp_port": 2222}).status == 200
        assert json.loads(SETTINGS.read_text())["tcp_port"] == 2222
        check_log(running, running.stop(), 0)
    finally:
        subprocess.run(["umount", "-l", SETTINGS.parent], check=True)

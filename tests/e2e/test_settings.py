"""The settings and enable endpoints, what they leave on disk, and settings files that are broken."""

import json
import os
import pathlib
import subprocess

from conftest import PREFIX, end

SETTINGS = pathlib.Path("/mnt/cfdrive/containers/container_rte_settings.json")
INVENTORY = pathlib.Path("/run/KxInventoryTree.json")
CORES = len(os.sched_getaffinity(0))
DEFAULTS = {"tcp_port": 2376, "cores_num": CORES, "max_allowed_cores_num": CORES, "service_state": "started"}


def test_changes_are_answered_kept_and_found_again(fresh_service, start_service):
    first = fresh_service
    assert list(first.request("GET", "/settings").json().items()) == list(DEFAULTS.items())
    for body, answer in [({"cores_num": -1}, {"tcp_port": 2376, "cores_num": -1}),
                         ({"tcp_port": 70000, "cores_num": 1}, {"tcp_port": 70000, "cores_num": 1})]:
        reply = first.request("PATCH", "/settings", body)
        assert (reply.status, reply.json()) == (200, answer)
    kept = json.loads(SETTINGS.read_text())
    assert (kept["tcp_port"], kept["cores_num"]) == (70000, 1)
    end(first)

    SETTINGS.write_text(json.dumps({**kept, "of_another_release": [1, 2]}))
    second = start_service()
    assert second.request("GET", "/settings").json() == {**DEFAULTS, "tcp_port": 70000, "cores_num": 1}
    second.request("PATCH", "/settings", {"tcp_port": 2376})
    assert json.loads(SETTINGS.read_text())["of_another_release"] == [1, 2]


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

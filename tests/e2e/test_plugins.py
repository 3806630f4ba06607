"""Plugins through the API."""

import json
import pathlib

from conftest import PREFIX

PLUGINS = pathlib.Path("/userstorage1/container_rte/plugins")
CONFIG = PLUGINS / "config.json"


def upload(service, name, content=b"plugin"):
    return service.request("POST", "/plugins", content, {"Content-Type": "application/octet-stream",
                                                         "Content-Disposition": f'attachment; filename="{name}"'})


def activate(service, name, version, value):
    return service.request("PUT", f"/plugins/{name}/activate?pluginVersion={version}", {"activate": value})


def test_plugin_from_upload_to_deletion(service):
    assert upload(service, "motion_2.1.crp").json() == {"filename": "motion_2.1.crp"}
    assert upload(service, "plain.crp").json() == {"filename": "plain.crp"}
    for name in ("plugin.CRP", ""):
        assert upload(service, name).detail() == (
            "No CRP plugin file was uploaded. Make sure the name of the file is not empty and has a .crp extension")
    listed = service.request("GET", "/plugins").json()["plugins"]
    assert [(entry["name"], entry["version"], entry["fileName"], entry["size"], entry["isDeactivated"])
            for entry in listed] == [("motion", "2.1", "motion_2.1.crp", 6, False), ("plain", "1.0", "plain.crp", 6, False)]

    for value, message in [(True, "Plugin was already activated"), (False, "Plugin deactivated successfully"),
                           (False, "Plugin was already deactivated")]:
        answer = activate(service, "motion", "2.1", value)
        assert (answer.status, list(answer.json().items())) == (200, [
            ("name", "motion"), ("version", "2.1"), ("isDeactivated", not value), ("message", message)])
    assert json.loads(CONFIG.read_text()) == {"deactivated": [{"name": "motion", "version": "2.1"}]}
    assert PREFIX + "Reboot the system to deactivate plugin: name='motion' version='2.1'" in service.log()
    assert [entry["isDeactivated"] for entry in service.request("GET", "/plugins").json()["plugins"]] == [True, False]

    assert service.request("DELETE", "/plugins/motion_2.1.crp").status == 204
    assert json.loads(CONFIG.read_text()) == {"deactivated": []}
    missing = service.request("DELETE", "/plugins/motion_2.1.crp")
    assert (missing.status, missing.detail()) == (404, f"File '{PLUGINS}/motion_2.1.crp' not found")
    assert activate(service, "motion", "2.1", False).detail() == "Plugin does not exist"
    assert service.request("DELETE", "/plugins/plain.crp").status == 204

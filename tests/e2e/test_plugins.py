"""Plugins through the API."""

import json
import pathlib

import pytest
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
    listed = service.request("GET", "/plugins").json()["plugins"]
    assert [(entry["name"], entry["version"], entry["fileName"], entry["size"], entry["isDeactivated"])
            for entry in listed] == [("motion", "2.1", "motion_2.1.crp", 6, False), ("plain", "1.0", "plain.crp", 6, False)]
    assert list(listed[0]) == ["name", "version", "fileName", "size", "modified", "isDeactivated"]

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
    assert service.log().count(f"CRP plugin '{PLUGINS}/motion_2.1.crp' deleted. A system reboot is required.") == 2
    assert activate(service, "motion", "2.1", False).detail() == "Plugin does not exist"


@pytest.mark.parametrize("method, path, body, status, detail", [
    ("DELETE", "/plugins/", None, 400, "Plugin file name must be provided"),
    ("DELETE", "/plugins/config.json", None, 400, "File 'config.json' is not a valid .crp plugin file."),
    ("PUT", "/plugins/x/activate", {"activate": True}, 400, "Plugin name and version must be provided"),
    ("PUT", "/plugins//activate?pluginVersion=1", {"activate": True}, 400, "Plugin name and version must be provided"),
    ("PUT", "/plugins/x/activate?pluginVersion=1", None, 400, "Request body must contain 'activate' (boolean)"),
    ("PUT", "/plugins/x/activate?pluginVersion=1", {}, 400, "Request body must contain 'activate' (boolean)"),
    ("PUT", "/plugins/x/activate?pluginVersion=1", {"activate": "true"}, 400, "'activate' must be a boolean"),
    ("PUT", "/plugins/x/activate?pluginVersion=1", {"activate": True}, 404, "Plugin does not exist"),
])
def test_refusals(service, method, path, body, status, detail):
    answer = service.request(method, path, body)
    assert (answer.status, answer.detail()) == (status, detail)


@pytest.mark.parametrize("name", ["plugin.CRP", "crp", "plugin.crp.txt", "..", ""])
def test_other_files_are_refused_at_the_first_chunk(service, name):
    answer = upload(service, name)
    assert (answer.status, answer.detail()) == (
        400, "No CRP plugin file was uploaded. Make sure the name of the file is not empty and has a .crp extension")


def test_broken_configuration_survives_untouched(service):
    upload(service, "kept.crp")
    before = CONFIG.read_bytes() if CONFIG.exists() else None
    for content in (b"{", b"", b'{"deactivated": 7}', b"[]"):
        CONFIG.write_bytes(content)
        answer = activate(service, "kept", "1.0", False)
        assert (answer.status, answer.detail()) == (500, "Failed to update plugin deactivation config")
        assert CONFIG.read_bytes() == content
        assert service.request("GET", "/plugins").status == 200
    CONFIG.write_bytes(before) if before is not None else CONFIG.unlink()
    assert activate(service, "kept", "1.0", False).status == 200

#!/usr/bin/python3
"""install_test.py PACKAGE: installs, uses, upgrades, removes and purges the package. For tests/package/boot.

The service runs as systemd runs it, by the unit of the package, with a real Podman.
"""

import contextlib
import http.client
import json
import os
import pathlib
import re
import sys
import time

import units
from installed import (CONFIGURATION, DEFAULT_PORT, MARKER, NAME, OTHER_PORT, PROGRAM, SETTINGS, TOKEN, main_process, request,
                       run, unit_state, wait_until)


def get_status(token):
    time.sleep(0.3)  # who asks often with a wrong token is sent away
    connection = http.client.HTTPConnection("127.0.0.1", DEFAULT_PORT, timeout=60)
    connection.request("GET", "/api/cre/v1.0/settings", headers={"Authorization": "Bearer " + token})
    return connection.getresponse().status


def make_version(package, version, change_configuration=False):
    """The same package as another version; with another configuration file, if wanted."""
    tree = pathlib.Path("/tmp") / version
    run("dpkg-deb", "--raw-extract", package, tree)
    control = tree / "DEBIAN/control"
    control.write_text(re.sub(r"(?m)^Version: .*", f"Version: {version}", control.read_text()))
    if change_configuration:
        shipped = tree / f"etc/{NAME}.conf"
        shipped.write_text(shipped.read_text() + "# New in this version.\n")
    run("dpkg-deb", "--root-owner-group", "-Znone", "--build", tree, f"{tree}.deb")
    return f"{tree}.deb"


def data():
    return TOKEN.read_text(), SETTINGS.read_text()


def make_container():
    root = pathlib.Path("/tmp/image")
    (root / "bin").mkdir(parents=True)
    run("cp", "/bin/busybox", root / "bin/sh")
    run("tar", "-C", root, "-cf", "/tmp/image.tar", ".")
    run("podman", "import", "/tmp/image.tar", "localhost/test:1")
    run("podman", "save", "-q", "-o", "/tmp/saved.tar", "localhost/test:1")
    run("podman", "create", "--name", "witness", "localhost/test:1", "/bin/sh", "-c",
        "trap exit TERM; while :; do sleep 1; done")


def witness():
    """The process of the container that has to outlive whatever happens to the service."""
    pid = run("podman", "inspect", "--format", "{{.State.Pid}}", "witness")
    assert pid != "0" and pathlib.Path("/proc", pid).exists(), "the container does not run"
    return pid


def test_installation_starts_the_service(package):
    run("dpkg", "--install", package)
    assert (unit_state("is-active"), unit_state("is-enabled")) == ("active", "enabled")
    assert run("dpkg", "--verify", NAME) == ""
    request("GET", "/containers")
    request("PATCH", "/settings", {"cores_num": 1})
    entries = [json.loads(line) for line in run("journalctl", "-u", NAME, "-t", NAME, "-o", "json").splitlines()]
    assert entries
    for entry in entries:
        assert entry["MESSAGE"].startswith("Korvex Container Service: "), entry["MESSAGE"]
    assert "6" in {entry["PRIORITY"] for entry in entries}


def test_the_tool_gives_access_to_the_running_service(_):
    token = run("kx-container-admin", "identity", "add", "anna", "--role", "viewer")
    wait_until(lambda: get_status(token) == 200, "the service follows")
    run("kx-container-admin", "identity", "remove", "anna")
    wait_until(lambda: get_status(token) == 401, "the service follows")
    assert run("kx-container-admin", "audit", "verify").startswith("The chain holds: ")
    completed = run("bash", "-c", "source /usr/share/bash-completion/completions/kx-container-admin; "
                    "COMP_WORDS=(kx-container-admin identity re) COMP_CWORD=2; _kx_container_admin; echo ${COMPREPLY[*]}")
    assert completed == "remove renew", completed


def test_containers_outlive_the_service(_):
    make_container()
    request("POST", "/containers/witness/start", expected=204)
    pid = witness()
    run("systemctl", "restart", NAME)
    assert witness() == pid
    begin = time.monotonic()
    run("systemctl", "stop", NAME)
    assert time.monotonic() - begin < 20
    assert witness() == pid and not MARKER.exists()
    run("systemctl", "start", NAME)
    killed = main_process()
    run("kill", "-KILL", killed)
    wait_until(lambda: unit_state("is-active") == "active" and main_process() not in (0, killed), "started again")
    assert witness() == pid
    request("POST", "/containers/witness/stop?timeout=5", expected=204)
    request("POST", "/containers/witness/start", expected=204)
    assert witness() != pid


def test_upgrade_keeps_what_was_edited(package):
    before, pid = data(), witness()
    CONFIGURATION.write_text(CONFIGURATION.read_text().replace("#Port = 8460", f"Port = {OTHER_PORT}"))
    run("dpkg", "--install", make_version(package, "90"))
    assert request("GET", "/settings", port=OTHER_PORT)["cores_num"] == 1
    run("systemctl", "disable", NAME)
    run("dpkg", "--force-confdef", "--force-confold", "--install", make_version(package, "91", True))
    assert run("dpkg-query", "-W", "-f=${Version}", NAME) == "91"
    assert unit_state("is-enabled") == "disabled", "what the administrator disabled came back"
    assert f"\nPort = {OTHER_PORT}\n" in CONFIGURATION.read_text()
    assert data() == before and witness() == pid


def test_removal_stops_the_service_and_keeps_configuration_data_and_containers(package):
    before, pid = data(), witness()
    run("dpkg", "--remove", NAME)
    assert not PROGRAM.exists() and not MARKER.exists() and not run("pgrep", "-f", PROGRAM, check=False)
    assert f"\nPort = {OTHER_PORT}\n" in CONFIGURATION.read_text()
    assert data() == before and witness() == pid
    run("dpkg", "--install", make_version(package, "92", True))
    assert f"\nPort = {OTHER_PORT}\n" in CONFIGURATION.read_text()


def test_purge_leaves_only_data_and_containers(_):
    before, pid = data(), witness()
    run("dpkg", "--purge", NAME)
    assert data() == before and witness() == pid
    left = run("find", "/etc", "/usr", "/var", "/run", "-xdev", "(", "-name", f"{NAME}*", "-o", "-name", "kx-container-podman*",
               "-o", "-name", "kx-container-admin*", "-o", "-name", "KxContainerRTE*",
               ")", "-not", "-path", f"{pathlib.Path.cwd()}/*")
    assert left == "", left


def main():
    if not os.path.exists("/boot-test"):
        sys.exit("This changes the system: run it through tests/package/boot.")
    with contextlib.suppress(RuntimeError):
        run("dpkg", "--purge", NAME)
    for step in (test_installation_starts_the_service, test_containers_outlive_the_service,
                 test_the_tool_gives_access_to_the_running_service, *units.TESTS, test_upgrade_keeps_what_was_edited,
                 test_removal_stops_the_service_and_keeps_configuration_data_and_containers,
                 test_purge_leaves_only_data_and_containers):
        try:
            step(sys.argv[1])
        except Exception:
            print(run("journalctl", "-u", NAME, "--no-pager", "-n", "60", check=False))
            raise
        print(f"ok   {step.__name__}", flush=True)


if __name__ == "__main__":
    main()

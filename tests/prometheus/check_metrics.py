#!/usr/bin/python3
"""check_metrics.py PROGRAM: has promtool check the metrics of a running service, and that the alerts know their names. For
the sandbox."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import service as kx  # noqa: E402


def do_something(running):
    kx.podman("rm", "--all", "--force", "--time", "0")
    kx.podman("create", "--name", "idle", kx.IMAGE, "true")
    for method, path, token in [("GET", "/settings", True), ("GET", "/nothing", True), ("GET", "/settings", False),
                                ("GET", "/containers/nobody", True), ("POST", "/containers/idle/start", True)]:
        running.request(method, path, token=token)


def main():
    kx.require_sandbox()
    kx.make_image()
    with kx.Service(sys.argv[1], "/run/service.log", {"WebApi.Port": 0}) as running:
        running.wait_ready()
        do_something(running)
        kx.wait_until(lambda: b'kx_container_starts_total{container="idle"} 1' in running.request("GET", "/metrics").body, 20,
                      "the start is counted")
        metrics = running.request("GET", "/metrics")
        running.stop()
    assert metrics.headers["Content-Type"] == "text/plain; version=0.0.4; charset=utf-8"
    checked = subprocess.run(["promtool", "check", "metrics"], input=metrics.body, capture_output=True)
    text = metrics.body.decode()
    names = set(re.findall(r"kx_[a-z_]+", (ROOT / "packaging/prometheus/alerts.yml").read_text()))
    unknown = [name for name in names if f"# TYPE {name} " not in text and name != "kx_certificate_remaining_seconds"]
    for expected in ['kx_http_requests_total{operation="getSettings",status="200"} ', 'status="404"} ',
                     'kx_http_refusals_total{status="401"} 1', 'kx_podman_up 1']:
        assert expected in text, f"{expected} is missing in\n{text}"
    if checked.returncode or checked.stderr or unknown:
        sys.exit(f"{text}\n{checked.stderr.decode()}\nunknown to the service: {unknown}")
    print(f"{len(text.splitlines())} lines of metrics are well-formed")


if __name__ == "__main__":
    main()

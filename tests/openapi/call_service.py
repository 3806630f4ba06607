#!/usr/bin/python3
"""call_service.py PROGRAM FILE: starts the program, keeps the description of its API in FILE, and has call_everything.js
call it. For the sandbox."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import service as kx  # noqa: E402


def make_things_to_call():
    kx.make_image()
    kx.podman("rm", "--all", "--force", "--time", "0")
    kx.podman("create", "--name", "worker", kx.IMAGE, "sleep", "1000")
    archive = pathlib.Path("/run/unused.tar")
    kx.podman("tag", kx.IMAGE, "localhost/unused:1")
    kx.podman("save", "-o", str(archive), "localhost/unused:1")
    kx.podman("untag", kx.IMAGE, "localhost/unused:1")
    return archive


def main():
    kx.require_sandbox()
    program, description = sys.argv[1:]
    archive = make_things_to_call()
    log = pathlib.Path("/run/service.log")
    with kx.Service(program, log, {"WebApi.Port": 0}) as running:
        running.wait_ready()
        pathlib.Path(description).write_bytes(running.request("GET", "/openapi.json").body)
        result = subprocess.run(["node", ROOT / "tests/openapi/call_everything.js", description,
                                 f"http://127.0.0.1:{running.port}{kx.BASE}", running.token(), archive,
                                 ROOT / "docs/examples/web.yml"], timeout=600)
        status = running.stop()
    if result.returncode or status:
        sys.exit(f"{log.read_text()}\nThe calls ended with {result.returncode}, the service with {status}.")


if __name__ == "__main__":
    main()

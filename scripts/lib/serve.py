#!/usr/bin/python3
"""What scripts/run runs in the sandbox: the program, with an image and a container to play with."""

import os
import pathlib
import signal
import sys

import service

CONTAINER = "hello"
COMMAND = 'while :; do echo "hello at $(date)"; sleep 2; done'


def make_container():
    service.make_image()
    if CONTAINER not in service.podman("ps", "-a", "--format", "{{.Names}}").split():
        service.podman("create", "--name", CONTAINER, service.IMAGE, "/bin/sh", "-c", COMMAND)
    service.podman("start", CONTAINER)


def save_image():
    """Leaves an archive to upload beside what the sandbox keeps."""
    archive = pathlib.Path(os.environ["KX_SANDBOX"]) / "hello.tar"
    if not archive.exists():
        service.podman("save", "-o", str(archive), service.IMAGE)


def invite(running):
    scheme, curl = ("https", "curl --insecure") if service.TLS_FILE.exists() else ("http", "curl")
    url = f"{scheme}://127.0.0.1:{running.port}{service.BASE}"
    print(f"""
The service answers at {url} (Ctrl-C ends it). In another terminal, try:

  {curl} -H "Authorization: Bearer {running.token()}" {url}/containers
""", flush=True)


def main():
    service.require_sandbox()
    make_container()
    save_image()
    with service.Service(service.ROOT / "build/release/kx-container-service", None, own_session=False) as running:
        signal.signal(signal.SIGTERM, lambda *_: running.process.terminate())
        signal.signal(signal.SIGINT, signal.SIG_IGN)  # a terminal sends it to the service as well
        running.wait_ready()
        if running.port is None:
            running.stop()
            sys.exit("The service does not listen: its log above says why.")
        invite(running)
        sys.exit(running.process.wait())


if __name__ == "__main__":
    main()

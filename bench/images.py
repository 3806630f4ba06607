"""An image on its way to Podman: sent, loaded, and found in the list of images."""

import json
import os
import pathlib
import subprocess
import time

from bench import http, programs, uploads
from bench.measurement import Row
from bench.programs import kx

NAME = "localhost/kx-bench-image:1"
SIZES = (1, 64, 256)  # MiB
STORED = pathlib.Path("/userstorage1/container_rte/utilities/images/bench.tar")


def make_archive(directory, size):
    """An image with a file of that many random bytes, as Podman saves it; Podman has it no more."""
    payload, layer, archive = directory / "payload", directory / "layer.tar", directory / "bench-image.tar"
    with open(payload, "wb") as file:
        for _ in range(size):
            file.write(os.urandom(uploads.MIB))
    subprocess.run(["tar", "-C", directory, "-cf", layer, payload.name], check=True)
    archive.unlink(missing_ok=True)
    kx.podman("import", str(layer), NAME)
    kx.podman("save", "--output", str(archive), NAME)
    kx.podman("rmi", NAME)
    payload.unlink()
    layer.unlink()
    return archive


def require_listed():
    with http.Connection(kx.PODMAN_SOCKET) as connection:
        images = json.loads(connection.request("GET", "/v1.41/images/json")[2])
    if not any(NAME in (image["RepoTags"] or []) for image in images):
        raise RuntimeError(f"{NAME} is not listed")


def seconds_until_listed(act, stored):
    begin = time.monotonic()
    act()
    require_listed()
    seconds = time.monotonic() - begin
    kx.podman("rmi", NAME)
    stored.unlink(missing_ok=True)
    return seconds


def until_listed(effort, directory):
    """Through the service, which loads what it was sent; and as a file that nginx stores, and `podman load`."""
    rows = []
    with programs.Podman(directory), programs.Service(directory) as service, programs.Nginx(directory) as nginx:
        stored = nginx.store / "bench.tar"

        def by_service():
            headers = {**service.headers(), "Content-Disposition": 'attachment; filename="bench.tar"'}
            programs.client("upload", service.address, http.upload_head("POST", programs.API + "/images", headers, archive), archive)

        def by_nginx():
            programs.client("upload", nginx.address, http.upload_head("PUT", "/store/bench.tar", {}, archive), archive)
            kx.podman("load", "--input", str(stored))

        for size in SIZES:
            archive = make_archive(directory, size)
            own, reference = [], []
            for _ in range(effort.rounds(7)):
                reference.append(seconds_until_listed(by_nginx, stored))
                own.append(seconds_until_listed(by_service, STORED))
            archive.unlink()
            rows.append(Row(f"image-{size}", f"image of {size} MiB, sent, loaded and listed", "s", own, "nginx PUT and podman load",
                            reference, 1.05, "ratio", at_most=True))
    return rows

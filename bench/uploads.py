"""Uploads of a file from the page cache, onto the same file system by both sides."""

import pathlib
import statistics

from bench import http, programs
from bench.measurement import Growth, Row

MIB = 1 << 20
STORED = pathlib.Path("/userstorage1/container_rte/utilities/compose-files/bench.bin")


def make_source(directory, size):
    """A file of `size` bytes, in the page cache after it was written."""
    path = directory / f"source-{size}"
    with open(path, "wb") as file:
        block = bytes(range(256)) * (MIB // 256)
        for _ in range(size // MIB):
            file.write(block)
    return path


def upload_to_service(service, source):
    seconds = http.upload(service.address, "POST", programs.API + "/compose-files",
                          {**service.headers(), "Content-Disposition": 'attachment; filename="bench.bin"'}, source)
    check_and_remove(STORED, source)
    return seconds


def upload_to_nginx(nginx, source):
    seconds = http.upload(nginx.address, "PUT", "/store/bench.bin", {}, source)
    check_and_remove(nginx.store / "bench.bin", source)
    return seconds


def check_and_remove(stored, source):
    """Removed before the kernel writes it out, so that no round pays for the one before."""
    if stored.stat().st_size != source.stat().st_size:
        raise RuntimeError(f"{stored} is not what was sent")
    stored.unlink()


def upload(effort, directory):
    size = 1024 * MIB
    source = make_source(directory, size)
    own, nginx_rounds, peaks = [], [], []
    with programs.PodmanDouble(directory), programs.Service(directory) as service, programs.Nginx(directory) as nginx:
        for _ in range(effort.rounds(9)):
            nginx_rounds.append(size / MIB / upload_to_nginx(nginx, source))
            service.usage.reset_peak()
            own.append(size / MIB / upload_to_service(service, source))
            peaks.append(service.usage.peak_kib() / 1024)
    source.unlink()
    return [
        Row("upload", "upload of 1 GiB", "MiB/s", own, "nginx storing it on the same file system", nginx_rounds, 1.0,
            "ratio"),
        Row("memory-upload", "resident memory during a 1 GiB upload, peak", "MiB", peaks, target=14, at_most=True),
    ]


def upload_growth(effort, directory):
    sizes = [1, 4, 16, 64, 256, 1024] + ([] if effort.quick else [4096])
    rate = {"the service": [], "nginx": []}
    peak = {"the service": []}
    with programs.PodmanDouble(directory), programs.Service(directory) as service, programs.Nginx(directory) as nginx:
        for size in sizes:
            source = make_source(directory, size * MIB)
            own, nginx_rounds = [], []
            service.usage.reset_peak()
            for _ in range(effort.rounds(9) if size <= 256 else effort.rounds(3)):
                nginx_rounds.append(size / upload_to_nginx(nginx, source))
                own.append(size / upload_to_service(service, source))
            source.unlink()
            rate["the service"].append(statistics.median(own))
            rate["nginx"].append(statistics.median(nginx_rounds))
            peak["the service"].append(service.usage.peak_kib() / 1024)
    return [Growth("growth-upload", "upload, rate", "MiB", "MiB/s", sizes, rate),
            Growth("growth-upload-memory", "upload, peak of resident memory", "MiB", "MiB resident", sizes, peak)]

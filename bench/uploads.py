"""Uploads of a file from the page cache, onto the same file system by both sides."""

import pathlib
import time

from bench import http, programs
from bench.measurement import Growth, Row

MIB = 1 << 20
ROUNDS = {1: 45, 16: 21, 64: 9, 256: 9, 1024: 5, 4096: 3}  # by MiB
STORED = pathlib.Path("/userstorage1/container_rte/utilities/compose-files/bench.bin")


def make_source(directory, size):
    """A file of `size` bytes, in the page cache after it was written."""
    path = directory / f"source-{size}"
    with open(path, "wb") as file:
        block = bytes(range(256)) * (MIB // 256)
        for _ in range(size // MIB):
            file.write(block)
    return path


def to_service(service):
    """Where an upload goes: method, target, header fields, and the file that it becomes."""
    return ("POST", programs.API + "/compose-files",
            {**service.headers(), "Content-Disposition": 'attachment; filename="bench.bin"'}, STORED)


def to_nginx(nginx):
    return "PUT", "/store/bench.bin", {}, nginx.store / "bench.bin"


def upload(program, method, target, headers, stored, source):
    """MiB per second of the clock, from the request's first byte to the answer, and per second of the server's CPU time."""
    size = source.stat().st_size
    before = program.usage.cpu_seconds()
    seconds, = programs.client("upload", program.address, http.upload_head(method, target, headers, source), source)
    time.sleep(0.01)  # what the server does after its answer is its cost too
    cpu_seconds = program.usage.cpu_seconds() - before
    if stored.stat().st_size != size:
        raise RuntimeError(f"{stored} is not what was sent")
    stored.unlink()  # before the kernel writes it out, so that no round pays for the one before
    return size / MIB / seconds, size / MIB / cpu_seconds


def uploads(effort, directory, tls):
    sizes = [size for size in ROUNDS if size <= 1024 or not effort.quick]
    rows, peaks = [], []
    with programs.PodmanDouble(directory), programs.Service(directory, tls=tls) as service, \
            programs.Nginx(directory, tls=tls) as nginx:
        if tls:
            programs.require_same_cipher(service, nginx)
        for size in sizes:
            source = make_source(directory, size * MIB)
            own, reference = [], []
            service.usage.reset_peak()
            for _ in range(effort.rounds(ROUNDS[size])):
                reference.append(upload(nginx, *to_nginx(nginx), source))
                own.append(upload(service, *to_service(service), source))
            source.unlink()
            peaks.append(service.usage.peak_kib() / 1024)
            for index, (name, what) in enumerate({"rate": "", "cpu": ", by second of CPU time"}.items()):
                rows.append(Row(f"upload-{size}-{name}", f"upload of {size} MiB{what}", "MiB/s",
                                [round[index] for round in own], "nginx storing it on the same file system",
                                [round[index] for round in reference], 1.0, "ratio"))
    return [
        *rows,
        Row("memory-upload", "resident memory during a 1 GiB upload, peak", "MiB", [peaks[sizes.index(1024)]],
            target=None if tls else 9, at_most=True),
        Growth("growth-upload-memory", "upload, peak of resident memory", "MiB", "MiB resident", sizes,
               {"the service": peaks}),
    ]

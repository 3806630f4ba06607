"""A disk that remembers: a file system on a loop device whose file is served from here, so that each write of the block layer, and each
flush that orders them, is a record. What a power cut would have left is made by playing a part of them back.

Served with FUSE, because the kernels of test machines have neither dm-log-writes nor nbd. The loop device turns flushes and writes
that force unit access into fsync(2) of its file.
"""

import contextlib
import errno
import os
import pathlib
import shutil
import stat
import struct
import subprocess
import time

import fusepy

SIZE = 48 << 20
HEAD = struct.Struct("<qq")  # offset and length; a flush has the length -1
PLACES = {"mnt": "/mnt", "userstorage1": "/userstorage1"}  # folders on the disk, and where they are seen


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


class Disk(fusepy.Operations):
    """The one file of the served file system. Runs in a process of its own."""

    def __init__(self, image, log):
        self.image = os.open(image, os.O_RDWR)
        self.log = os.open(log, os.O_WRONLY | os.O_APPEND)

    def getattr(self, path, handle=None):
        if path == "/":
            return {"st_mode": stat.S_IFDIR | 0o755, "st_nlink": 2}
        if path != "/disk":
            raise fusepy.FuseOSError(errno.ENOENT)
        return {"st_mode": stat.S_IFREG | 0o600, "st_nlink": 1, "st_size": SIZE}

    def read(self, path, size, offset, handle):
        return os.pread(self.image, size, offset)

    def write(self, path, data, offset, handle):
        os.write(self.log, HEAD.pack(offset, len(data)) + data)
        return os.pwrite(self.image, data, offset)

    def fsync(self, path, datasync, handle):
        os.write(self.log, HEAD.pack(0, -1))
        return 0


class Recording:
    """A recorded disk in the folder `work`, its file system mounted at the service's places."""

    def __init__(self, work):
        self.work = work
        self.log = work / "log"
        self.first = work / "first"
        self.log.touch()
        with open(self.first, "wb") as image:
            image.truncate(SIZE)
        run("mkfs.ext4", "-q", "-E", "lazy_itable_init=0,lazy_journal_init=0", "-J", "size=4", str(self.first))
        live = work / "live"
        run("cp", "--sparse=always", str(self.first), str(live))
        served = work / "served"
        served.mkdir()
        self.server = os.fork()
        if self.server == 0:
            fusepy.FUSE(Disk(live, self.log), str(served), foreground=True, nothreads=True, raw_fi=False, big_writes=True)
            os._exit(0)
        while not (served / "disk").exists():
            time.sleep(0.01)
        self.mounted = Mounted(served / "disk", work / "mounted")

    def position(self):
        """How far the recording has come: what is before it was written before now."""
        return self.log.stat().st_size

    def end(self):
        self.mounted.leave()
        run("fusermount", "-u", str(self.work / "served"))
        os.waitpid(self.server, 0)

    def writes(self):
        """[(position after it, offset, bytes or None for a flush)]"""
        found = []
        with open(self.log, "rb") as log:
            while head := log.read(HEAD.size):
                offset, length = HEAD.unpack(head)
                data = log.read(length) if length >= 0 else None
                found.append((log.tell(), offset, data))
        return found


class Mounted:
    """The file system in `image`, mounted, with its folders at the service's places."""

    def __init__(self, image, folder):
        self.folder = folder
        folder.mkdir(exist_ok=True)
        run("mount", "-o", "loop", str(image), str(folder))
        for name, place in PLACES.items():
            (folder / name).mkdir(exist_ok=True)
            run("mount", "--bind", str(folder / name), place)

    def leave(self):
        for place in (*PLACES.values(), self.folder):
            run("umount", str(place))


@contextlib.contextmanager
def cut(recording, writes, number, choice):
    """What is on the disk after a power cut between two writes: all up to the flush before it, and of what was written since
    then what `choice`, a random.Random, leaves: the disk may have kept any of it. Mounted meanwhile."""
    image = recording.work / "cut"
    run("cp", "--sparse=always", str(recording.first), str(image))
    flushed = max((index for index in range(number) if writes[index][2] is None), default=0)
    with open(image, "r+b") as disk:
        for index, (_, offset, data) in enumerate(writes[:number]):
            if data is not None and (index < flushed or choice.random() < 0.7):
                os.pwrite(disk.fileno(), data, offset)
    mounted = Mounted(image, recording.work / "after")
    try:
        yield
    finally:
        mounted.leave()
        image.unlink()


@contextlib.contextmanager
def recorded(work=pathlib.Path("/run/kx-power")):
    work.mkdir()
    recording = Recording(work)
    try:
        yield recording
    finally:
        shutil.rmtree(work, ignore_errors=True)

"""Containers that write lines which are known beforehand, and what their driver kept of them."""

import datetime
import errno
import functools
import itertools
import json
import os
import pathlib
import re
import subprocess
from dataclasses import dataclass, field

import service as kx

CONTROL = pathlib.Path("/run/kx-logs")
LINE = re.compile(r"(?:out|err) (\d{7}) ")


def journalctl(*arguments):
    return subprocess.run(["journalctl", "-q", "--no-pager", *arguments], text=True, errors="replace", capture_output=True,
                          timeout=120, check=True).stdout


@dataclass(frozen=True)
class Plan:
    """Lines "out 0000001 FILLING" to standard output and "err 0000001 FILLING" to standard error, by turns. Without a number
    of lines they go on for good. `filling` is what awk prints 2 to the power of `doublings` times, `shown` what a client is to
    see of it. A pause of some microseconds comes after every so many lines."""

    lines: int | None = 1000
    outputs: tuple = ("out",)
    filling: str = "0123456789"
    shown: str | None = None
    doublings: int = 2
    pause: tuple = (0, 0)
    ends_line: bool = True  # the last one with a newline

    def script(self):
        every, microseconds = self.pause
        prints = "; ".join(f'printf "{output} %07d %s%s", i, f, i == {self.count()} ? last : "\\n"'
                           + (' > "/dev/stderr"' if output == "err" else "") for output in self.outputs)
        rest = f'if (i % {every} == 0) {{ fflush(); system("usleep {microseconds}") }}' if every else ""
        return (f'exec awk \'BEGIN {{ f = "{self.filling}"; last = "{chr(92) + "n" if self.ends_line else ""}"; '
                f"for (i = 0; i < {self.doublings}; i++) f = f f; "
                f"for (i = 1; i <= {self.count()}; i++) {{ {prints}; {rest} }} }}'")

    def count(self):
        return 10**7 - 1 if self.lines is None else self.lines

    def line(self, output, number):
        end = "\n" if self.ends_line or number != self.lines else ""
        return f"{output} {number:07d} {(self.shown or self.filling) * 2 ** self.doublings}{end}"

    @functools.cache
    def written(self, output):
        return [self.line(output, number) for number in range(1, self.lines + 1)]


@dataclass
class Logged:
    """A line as the driver has it."""

    time: str
    output: str
    text: str = field(repr=False)


class Container:
    """It begins to write when it is told to."""

    numbers = itertools.count(1)

    def __init__(self, plan, options=(), driver="k8s-file"):
        self.plan, self.driver, self.has_begun = plan, driver, False
        self.name = f"writer{next(Container.numbers)}"
        self.gate = CONTROL / self.name
        CONTROL.mkdir(exist_ok=True)
        os.mkfifo(self.gate)
        self.id = kx.podman("run", "-d", "--name", self.name, "--network", "none", "--log-driver", driver,
                            "-v", f"{CONTROL}:/control", *(option.format(name=self.name) for option in options), kx.IMAGE,
                            "/bin/sh", "-c", f"read go < /control/{self.name}; {plan.script()}")
        self.log = self.log_file() if driver == "k8s-file" else None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        kx.podman("rm", "--force", "--time", "0", "--ignore", self.name)
        for file in filter(None, (self.gate, self.log)):
            file.unlink(missing_ok=True)

    def log_file(self):
        """The file under a second name, under which it stays when the first one is removed."""
        self.log_path = pathlib.Path(kx.podman("inspect", "-f", "{{.HostConfig.LogConfig.Path}}", self.name))
        kept = self.log_path.with_name(self.name + ".kept") if CONTROL in self.log_path.parents else None
        kept = kept or self.log_path.parents[2] / (self.name + ".kept")
        os.link(self.log_path, kept)
        return kept

    def go(self):
        """Lets it write; nothing the second time."""

        def opened():
            try:
                gate = os.open(self.gate, os.O_WRONLY | os.O_NONBLOCK)
            except OSError as error:
                if error.errno == errno.ENXIO:  # it does not read yet
                    return False
                raise
            os.write(gate, b"\n")
            os.close(gate)
            return True

        if not self.has_begun:
            kx.wait_until(opened, 60, f"{self.name} is ready")
            self.has_begun = True
        return self

    def wait(self):
        kx.podman("wait", self.name)
        return self

    def exists(self):
        return subprocess.run(["podman", "container", "exists", self.name]).returncode == 0

    def ended_at(self):
        """Seconds since the epoch."""
        text = kx.podman("inspect", "-f", "{{json .State.FinishedAt}}", self.name).strip('"')
        return datetime.datetime.fromisoformat(re.sub(r"(\.\d{6})\d*", r"\1", text).replace("Z", "+00:00")).timestamp()

    def last_number(self):
        """Of the last whole line that the driver has; 0 without any."""
        if self.driver == "journald":
            text = self.journal("-n", "2", "-o", "cat")
        else:
            with open(self.log_path if self.log_path.exists() else self.log, "rb") as file:
                file.seek(max(0, file.seek(0, os.SEEK_END) - 4096))
                pieces = re.findall(rb"^\S+ std(?:out|err) ([FP]) (.*)\n", file.read(), re.MULTILINE)
            text = b"".join(piece + (b"\n" if kind == b"F" else b"") for kind, piece in pieces).decode(errors="replace")
            text = text[:text.rfind("\n") + 1]
        return max((int(number) for number in LINE.findall(text)), default=0)

    def wait_for_line(self, number, seconds=60):
        kx.wait_until(lambda: self.last_number() >= number, seconds, f"line {number} of {self.name}")

    def logged(self):
        """The whole lines that the driver has."""
        pieces = {"out": b"", "err": b""}
        for time, output, partial, text in self.journal_entries() if self.driver == "journald" else self.file_entries():
            pieces[output] += text
            if not partial:
                yield Logged(time, output, pieces[output].decode(errors="replace") + "\n")
                pieces[output] = b""

    def file_entries(self):
        for line in self.log.read_bytes().split(b"\n")[:-1]:
            if match := re.fullmatch(rb"(\S+) std(out|err) ([FP]) (.*)", line, re.DOTALL):
                yield match[1].decode(), match[2].decode(), match[3] == b"P", match[4]

    def journal(self, *options):
        return journalctl(*options, f"CONTAINER_ID_FULL={self.id}")

    def journal_entries(self):
        for line in self.journal("-o", "json", "--all").splitlines():
            entry = json.loads(line)
            text = entry["MESSAGE"]
            time = datetime.datetime.fromtimestamp(int(entry["__REALTIME_TIMESTAMP"]) / 1e6, datetime.timezone.utc)
            yield (time.isoformat(), "err" if entry["PRIORITY"] == "3" else "out", "CONTAINER_PARTIAL_MESSAGE" in entry,
                   (text.encode() if isinstance(text, str) else bytes(text)).removesuffix(b"\n"))

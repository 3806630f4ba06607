"""A client that follows a container's entries, is cut off at any moment and goes on where it was."""

import json
import os
import random
import time
from dataclasses import dataclass, field

import service as kx
from container import LINE, Container, Plan
from follower import TEXT, Refused, frames, handshake

WRITER = Plan(None, pause=(50, 9_000))  # 5000 lines a second
ROTATING = ("--log-opt", "max-size=1m")
CUTS_FOR_A_DEATH = 100  # of Podman, whose pauses before it is started again grow
LEAST = 0.5  # of the lines has to come: gaps are for what was rotated away while nobody was connected


@dataclass
class Put:
    """What came, put together from all connections."""

    numbers: list = field(default_factory=list)
    gaps: dict = field(default_factory=dict)  # by the number of lines that came before
    state: dict | None = None
    piece: str = ""
    cursor: str | None = None
    problems: list = field(default_factory=list)

    def take(self, message):
        if "state" in message:
            self.state = message
        elif "gap" in message:
            self.gaps.setdefault(len(self.numbers), []).append(message["gap"])
            self.piece = ""
        else:
            for entry in message["entries"]:
                self.take_text(entry["text"])
        self.cursor = message.get("cursor", self.cursor)

    def take_text(self, text):
        self.piece += text
        if not text.endswith("\n"):
            return
        match = LINE.match(self.piece)
        number = int(match[1]) if match else None
        if not match or self.piece != WRITER.line("out", number):
            self.problems.append(f"torn: {self.piece[:100]!r}")
        else:
            if number != self.last() + 1 and len(self.numbers) not in self.gaps:
                self.problems.append(f"line {number} after {self.last()}, and no gap was told")
            elif number <= self.last():
                self.problems.append(f"line {number} again, after {self.last()}")
            self.numbers.append(number)
        self.piece = ""

    def last(self):
        return self.numbers[-1] if self.numbers else 0


def follow(running, container, put, seconds, last=None):
    """Reads for some seconds, or until that line has come; then the connection is cut."""
    end = time.monotonic() + seconds
    query = f"?cursor={put.cursor}" if put.cursor else ""
    connection, _ = handshake(running, f"/containers/{container.name}/log-entries/ws{query}",
                              {"Authorization": f"Bearer {running.token()}", "Sec-WebSocket-Protocol": "kx.entries.v1"})
    put.state = None
    with connection:
        try:
            connection.settimeout(max(0.001, seconds))
            for opcode, payload in frames(connection):
                if opcode != TEXT:
                    continue
                put.take(json.loads(payload))
                if put.state is None:
                    put.problems.append("the state did not come first")
                if put.last() == last or time.monotonic() > end:
                    return
                connection.settimeout(max(0.001, end - time.monotonic()))
        except TimeoutError:
            pass


def cut_often(running, cuts, driver="k8s-file"):
    """Cuts a connection that often while Podman is killed now and then; gives what went wrong and what was seen."""
    put, refused = Put(), 0
    with Container(WRITER, ROTATING if driver == "k8s-file" else (), driver) as container:
        container.go()
        for number in range(cuts):
            if number % CUTS_FOR_A_DEATH == CUTS_FOR_A_DEATH // 2:
                os.kill(kx.wait_until(kx.podman_service_pid, 60, "Podman is there"), 9)
            try:
                follow(running, container, put, random.uniform(0, 0.25))
            except Refused:  # while there is no Podman
                refused += 1
                time.sleep(0.1)
        kx.podman("kill", container.name)
        kx.wait_until(lambda: running.request("GET", "/containers").status == 200, 60, "Podman is back")
        written = container.wait().last_number()
        follow(running, container, put, 60, written)
        if put.state["state"] != "exited" or put.state["exitCode"] != 137:
            put.problems.append(f"the state at the end is {put.state}")
    if put.last() != written or len(put.numbers) < LEAST * written:
        put.problems.append(f"{len(put.numbers)} lines came, the last one {put.last()} of {written}")
    return put.problems, (f"{len(put.numbers)} of {written} lines, {sum(map(len, put.gaps.values()))} gaps told, "
                          f"{refused} times there was no Podman")

"""What may happen to a log while somebody follows it: one table, for the end-to-end tests, the fault suite and the boot test.

Each row is compared line by line with what the container wrote: none lost, none twice, none torn, the order of each output kept,
and the stream ended in order once the container had ended.
"""

import contextlib
import dataclasses
import os
import random
import subprocess
import time
from dataclasses import dataclass, field
from typing import Callable

import service as kx
from container import CONTROL, Container, Plan, journalctl
from follower import Follower
from judges import Seen, as_logged, between, last, nothing, second_of_middle, to_the_end, told_gaps, whole

ENDED, LIVE, OPENING, BUSY = "ended", "live", "opening", "busy"  # when the followers come
FILE, JOURNAL = "k8s-file", "journald"


# What happens while the followers are there; the container has to be told to go.


def go(_, container):
    container.go()


def go_at_random(_, container):
    time.sleep(random.uniform(0, 0.05))
    container.go()


def write_all(stage, container):
    """All is written before anybody reads."""
    before = stage.running.own_kib()
    container.go()
    container.wait()
    grown = stage.running.own_kib() - before
    assert grown < 4 * 1024 or stage.running.is_sanitized(), f"the service grew by {grown} KiB"


def in_the_middle(act, line=100):
    def meanwhile(stage, container):
        container.go()
        container.wait_for_line(line)
        time.sleep(random.uniform(0, 0.2))
        act(stage, container)

    return meanwhile


@in_the_middle
def kill_podman(*_):
    os.kill(kx.podman_service_pid(), 9)


def end_without_podman(stage, container):
    """The container ends while nobody can be asked about it."""
    follower = stage.followers[0]
    container.go()
    follower.allowed.set()
    kx.wait_until(lambda: follower.messages, 30, "the first line")
    with kx.frozen_podman():
        kx.wait_until(lambda: follower.ended_at, 30, "the end of the stream")


def request(method, path):
    def ask(stage, container):
        answer = stage.running.request(method, path.format(container.name))
        assert answer.status == 204, f"{method} was answered {answer.status} {answer.body[:200]}"

    return in_the_middle(ask)


@in_the_middle
def kill(_, container):
    kx.podman("kill", container.name)


@in_the_middle
def restart(_, container):
    kx.podman("restart", "--time", "0", container.name)


@in_the_middle
def remove_log(_, container):
    container.log_path.unlink()


@in_the_middle
def cut_short(_, container):
    os.truncate(container.log_path, 0)


@in_the_middle
def rotate_journal(*_):
    journalctl("--rotate")


@in_the_middle
def vacuum_journal(*_):
    """What was written up to now is removed."""
    journalctl("--rotate")
    journalctl("--vacuum-files=1")


def vacuum_unread_journal(stage, container):
    vacuum_journal(stage, container)
    container.wait()


SMALL_DISK = CONTROL / "small"


@contextlib.contextmanager
def small_disk():
    SMALL_DISK.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=512k", "tmpfs", SMALL_DISK], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "-l", SMALL_DISK], check=True)


def fill_disk(_, container):
    hog = SMALL_DISK / "hog"
    hog.write_bytes(bytes(300 * 1024))
    container.go()
    kx.wait_until(lambda: os.statvfs(SMALL_DISK).f_bavail == 0, 60, "the disk is full")
    time.sleep(0.3)
    hog.unlink()


@dataclass
class Case:
    what: str
    plan: Plan
    judge: Callable[[Seen], str | None] = field(default_factory=whole)
    when: str = LIVE
    query: str | Callable[[Container], str] = ""
    meanwhile: Callable = go
    followers: int = 1
    client: dict = field(default_factory=dict)  # of each follower
    options: tuple = ()  # of `podman run`
    around: Callable = contextlib.nullcontext
    rounds_at_once: dict = field(default_factory=dict)  # what takes the place of many rounds
    only: str = ""  # the one driver that has this
    seconds: int = 60  # for all to arrive

    def with_rounds(self, rounds):
        """The case and the number of its rounds."""
        if rounds > 1 and self.rounds_at_once:
            return dataclasses.replace(self, **self.rounds_at_once, rounds_at_once={}), 1
        return self, rounds


BOTH = ("out", "err")
SHORT = Plan(50)
MANY = Plan(20_000, BOTH)
PACED = Plan(600, pause=(10, 20_000))
ENDLESS = Plan(None, pause=(20, 10_000))
FAST = Plan(None, pause=(400, 10_000))
TEN_MIB = Plan(20_000, doublings=6)  # 653 bytes a line
SECONDS = Plan(120, pause=(1, 20_000))
ROTATING = ("--log-opt", "max-size=64k")


def tails(when, plan, judge):
    return [Case(f"tail={count}, {'a busy container' if when == BUSY else 'after the end'}", plan, judge(count), when, f"?tail={count}",
                 meanwhile=kill if when == BUSY else go) for count in (0, 1, 10, 20_000)]


CASES = [
    Case("ended before", MANY, when=ENDED),
    Case("ends while the stream opens", SHORT, when=OPENING, meanwhile=go_at_random),
    Case("ends with a burst of 20 000 lines", MANY),
    Case("ends without any output", Plan(0)),
    Case("ended without any output", Plan(0), when=ENDED),
    Case("slow client, 13 MB after the end", TEN_MIB, when=ENDED, client={"delay": 3},
         rounds_at_once={"followers": 25, "client": {"delay": 5, "rate": 100_000}, "seconds": 300}),
    Case("client that does not read while 13 MB are written", TEN_MIB, meanwhile=write_all, client={"delay": 0.1}),
    *tails(ENDED, MANY, last),
    Case("tail=all, after the end", MANY, when=ENDED, query="?tail=all"),
    *tails(BUSY, FAST, to_the_end),
    Case("tail=all, a busy container", FAST, to_the_end(), BUSY, "?tail=all", meanwhile=kill),
    Case("since in the middle", SECONDS, between(since=True), ENDED,
         lambda container: f"?timestamps=true&since={second_of_middle(container)}"),
    Case("until in the middle", SECONDS, between(until=True), ENDED,
         lambda container: f"?timestamps=true&until={second_of_middle(container)}"),
    Case("standard output only", MANY, whole("out"), query="?stderr=false"),
    Case("standard error only", MANY, whole("err"), query="?stdout=0"),
    Case("neither", SHORT, nothing, query="?stdout=false&stderr=0"),
    Case("a terminal", Plan(2000), options=("-t",)),
    Case("lines of 320 KB", Plan(20, doublings=15)),
    Case("last line without an end", Plan(20, ends_line=False)),
    Case("bytes that are no UTF-8", Plan(200, filling="a\\377", shown="a\ufffd", doublings=10)),
    Case("characters cut by the driver's buffer", Plan(50, filling="ä€😀", doublings=11), when=ENDED),
    Case("rotates at 64 KiB while 6 000 lines are written", Plan(6000, pause=(20, 10_000)), told_gaps(0.99), options=ROTATING,
         only=FILE),
    Case("rotates while the client does not read", Plan(6000, doublings=5, pause=(20, 5_000)), told_gaps(0.01), meanwhile=write_all,
         client={"delay": 0.1}, options=ROTATING, only=FILE),
    Case("Podman killed", PACED, meanwhile=kill_podman),
    Case("Podman frozen, and the end meanwhile", PACED, meanwhile=end_without_podman),
    Case("container stopped", ENDLESS, to_the_end(), meanwhile=request("POST", "/containers/{}/stop?timeout=0")),
    Case("container killed", ENDLESS, to_the_end(), meanwhile=kill),
    Case("container restarted", ENDLESS, to_the_end(), meanwhile=restart),
    Case("container deleted", ENDLESS, to_the_end(), meanwhile=request("DELETE", "/containers/{}?force=true"),
         options=("--stop-signal", "KILL")),
    Case("two followers", PACED, followers=2),
    Case("100 followers", PACED, followers=100),
    Case("log file removed by somebody", PACED, meanwhile=remove_log, only=FILE),
    Case("log file cut short by somebody", PACED, told_gaps(0.2), meanwhile=cut_short, only=FILE),
    Case("disk full under the log", Plan(6000, pause=(20, 10_000)), as_logged, meanwhile=fill_disk, around=small_disk,
         options=("--log-opt", f"path={SMALL_DISK}/{{name}}.log"), only=FILE),
    Case("journal rotated", PACED, meanwhile=rotate_journal, only=JOURNAL),
    Case("journal vacuumed", PACED, told_gaps(0.2), meanwhile=vacuum_journal, only=JOURNAL),
    Case("journal vacuumed while the client does not read", Plan(6000, doublings=7, pause=(20, 10_000)), told_gaps(0.01),
         meanwhile=vacuum_unread_journal, client={"delay": 0.1}, only=JOURNAL),
]


class Stage:
    """Plays the rows on a running service; containers that have ended serve many of them."""

    def __init__(self, running, driver=FILE, end_seconds=1):
        self.running, self.driver, self.end_seconds = running, driver, end_seconds
        self.ended, self.followers = {}, []
        self.cases = [case for case in CASES if case.only in ("", driver)]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for container in self.ended.values():
            container.__exit__()

    def container(self, case):
        """As the followers are to find it, to be used in a scope."""
        if case.when != ENDED:
            container = Container(case.plan, case.options, self.driver)
            if case.when == BUSY:
                container.go().wait_for_line(25_000)
            return container
        if case.plan not in self.ended:
            self.ended[case.plan] = Container(case.plan, case.options, self.driver).go().wait()
        return contextlib.nullcontext(self.ended[case.plan])

    def play(self, case):
        """One round. Gives what went wrong, or None, and the seconds from the container's end to the stream's."""
        with case.around(), self.container(case) as container:
            opened_at = time.time()
            before = container.last_number() if case.when == BUSY else 0
            query = case.query if isinstance(case.query, str) else case.query(container)
            followers = self.followers = [Follower(self.running, container.name, query, **case.client,
                                                   allowed=case.when in (ENDED, BUSY)) for _ in range(case.followers)]
            if case.when != OPENING:
                for follower in followers:
                    follower.wait_open()
            if case.when == BUSY:  # when the first line is here the log is certainly open
                kx.wait_until(lambda: followers[0].messages, 60, "the first line")
            after = container.last_number() if case.when == BUSY else 0
            if case.when != ENDED:
                case.meanwhile(self, container)
            texts = {follower.result(case.seconds) for follower in followers}
            told = [line for line in self.running.log().splitlines() if " WARNING " in line and f"'{container.name}'" in line]
            for text in texts:
                if problem := case.judge(Seen(container, text, told, before, after)):
                    return problem, None
            if case.client or case.around is small_disk or not container.exists():
                return None, None
            late = max(follower.ended_at for follower in followers) - max(opened_at, container.ended_at())
            return (f"ended {late:.2f} s after the container" if late > self.end_seconds else None), late

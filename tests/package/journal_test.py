#!/usr/bin/python3
"""journal_test.py PACKAGE [ROUNDS [WORD]]: follows container logs that the journal keeps, through the service as its unit runs
it; with a word only the cases that have it. For tests/package/boot.
"""

import pathlib
import subprocess
import sys
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[2] / path) for path in ("scripts/lib", "tests/logs")]
import service as kx  # noqa: E402
from cases import JOURNAL, Stage  # noqa: E402
from container import journalctl  # noqa: E402

NAME = "kx-container-service"
END_SECONDS = 10  # of a second that is promised: other work may be going on


class UnitService(kx.Service):
    """The service that systemd runs."""

    def __init__(self, port):
        self.port, self.tls, self.judge = port, None, lambda *_: None

    @property
    def pid(self):
        return int(subprocess.check_output(["systemctl", "show", "-P", "MainPID", NAME]))

    def log(self):
        """With the word that stands for a warning elsewhere."""
        return journalctl("-u", NAME, "-o", "cat", "-p", "warning").replace("Korvex", " WARNING Korvex")


def lift_rate_limit():
    """The journal drops what a container writes beyond 10 000 lines in half a minute."""
    options = pathlib.Path("/etc/systemd/journald.conf.d/rate.conf")
    options.parent.mkdir(exist_ok=True)
    options.write_text("[Journal]\nRateLimitIntervalSec=0\n")
    subprocess.run(["systemctl", "restart", "systemd-journald"], check=True)


def main():
    lift_rate_limit()
    subprocess.run(["dpkg", "--install", sys.argv[1]], check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    kx.make_image()
    rounds, word = int((sys.argv[2:] or [1])[0]), (sys.argv[3:] or [""])[0]
    failed = 0
    running = UnitService(8460)
    process = running.pid
    with Stage(running, JOURNAL, END_SECONDS) as stage:
        for case in [case for case in stage.cases if word in case.what] * rounds:
            begin = time.monotonic()
            try:
                problem, late = stage.play(case)
            except Exception as error:
                problem, late = f"{type(error).__name__}: {str(error)[:500]}", None
            failed += problem is not None
            print(f"{'FAIL' if problem else 'ok  '} journal: {case.what} {time.monotonic() - begin:.1f} s {problem or late}", flush=True)
    if failed or running.pid != process:
        print(journalctl("-u", NAME, "-n", "60"))
        sys.exit(f"{failed} cases failed" if running.pid == process else "the service was started anew")


if __name__ == "__main__":
    main()

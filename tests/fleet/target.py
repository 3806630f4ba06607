#!/usr/bin/python3
"""One target of the fleet, inside its sandbox: the program, and the file `ready` beside what the sandbox keeps once it answers.

SIGUSR1 takes the service down, SIGUSR2 brings it back.
"""

import os
import pathlib
import signal
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts/lib"))
import service


def main():
    service.require_sandbox()
    place = pathlib.Path(os.environ["KX_SANDBOX"])
    running = None
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGUSR1, signal.SIGUSR2})
    while True:
        if running is None:
            running = service.Service(sys.argv[1], place / "log", options={}).wait_ready()
            (place / "ready").touch()
        if signal.sigwait({signal.SIGUSR1, signal.SIGUSR2}) == signal.SIGUSR1 and running:
            running.stop()
            running.__exit__()
            running = None
            (place / "ready").unlink()
            signal.sigwait({signal.SIGUSR2})


if __name__ == "__main__":
    main()

"""slowhttptest in its four modes: what others notice of it."""

import contextlib
import re
import statistics
import subprocess
import time

from device import kx

CONNECTIONS = 900  # of the 1024 that are let in
WORST_SECONDS = 5  # what the tool itself waits for an answer
MODES = {
    "headers that never end": ["-H", "-i", "2", "-x", "24", "-u", "/settings"],
    "bodies that never end": ["-B", "-i", "2", "-x", "10", "-s", "100000", "-f", "application/x", "-u", "/compose-files"],
    "thousands of ranges": ["-R", "-a", "10", "-b", "3000", "-t", "GET", "-u", "/openapi.json"],
    "answers that are hardly read": ["-X", "-k", "10", "-w", "10", "-y", "20", "-n", "2", "-z", "5", "-u", "/openapi.json"],
}


def ask_until(fault, running, over, times):
    """Asks as somebody else does, on a new connection each time."""
    while not over():
        begin = time.monotonic()
        status = running.request("GET", "/settings", timeout=20, token=False).status
        times.append(time.monotonic() - begin)
        fault.expect(status == 200, f"others are answered {status}")
        time.sleep(0.02)


def attack(fault, running, arguments, seconds):
    target = f"http://localhost:{running.port}{kx.BASE}{arguments[-1]}"
    quiet, busy = [], []
    end = time.monotonic() + 1
    ask_until(fault, running, lambda: time.monotonic() > end, quiet)
    with subprocess.Popen(["slowhttptest", *arguments[:-1], target, "-c", str(CONNECTIONS), "-r", "450", "-l", str(seconds), "-p", "5"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as tool:
        with contextlib.suppress(Exception):
            ask_until(fault, running, lambda: tool.poll() is not None, busy)
        output = tool.communicate(timeout=60)[0]
    report = re.sub(r"\x1b\[[0-9;]*m", "", output)
    most = max(map(int, re.findall(r"connected:\s+(\d+)", report)), default=0)
    fault.expect(most > CONNECTIONS // 2 or "No open connections left" in report, f"only {most} connections came about: {report[-500:]}")
    fault.expect(not re.search(r"service available:\s+NO", report), "slowhttptest calls the service unavailable")
    fault.expect(busy and max(busy) < WORST_SECONDS, f"others waited {max(busy, default=0):.2f} s")
    milliseconds = [1000 * value for value in (statistics.median(quiet), statistics.median(busy), max(busy))]
    fault.notes.append("others' median {:.1f} ms before, {:.1f} ms meanwhile, {:.0f} ms at most".format(*milliseconds))
    begin = time.monotonic()
    kx.wait_until(lambda: running.descriptors() < 100, 20, "the descriptors come back")
    fault.recovered(time.monotonic() - begin)


def run(device, report, plan):
    for what, arguments in MODES.items():
        with report.fault(f"slowhttptest: {what}") as fault, device.service({"WebApi.Auth": "none"}) as running:
            with fault.guarded(CONNECTIONS):
                attack(fault, running, arguments, 8 if plan.quick else 90)
            fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])

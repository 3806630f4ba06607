"""What one request takes inside the shipped program: system calls, allocations and instructions. Counted, not timed, so the
same from run to run, whatever else the machine does.
"""

import re
import signal
import subprocess
import time

from bench import http, programs
from bench.measurement import Row

REQUESTS = {"GET /settings": "/settings", "GET /containers, 10 containers": "/containers?all=true"}


def costs(effort, directory):
    rows = []
    with programs.PodmanDouble(directory, 10):
        for what, target in REQUESTS.items():
            name = target.strip("/").partition("?")[0]
            calls, detail = system_calls(directory, target, effort.count(5000))
            rows.append(Row(f"calls-{name}", f"{what}, system calls", "", [calls], note=detail))
            rows.append(Row(f"allocations-{name}", f"{what}, allocations", "",
                            [counted_under_valgrind(directory, target, MEMCHECK)]))
            rows.append(Row(f"instructions-{name}", f"{what}, instructions in user space", "",
                            [counted_under_valgrind(directory, target, CALLGRIND)]))
    return rows


def send(service, target, count):
    request = http.head("GET", programs.API + target, service.headers())
    with http.Connection(service.address) as connection:
        for _ in range(count):
            if connection.exchange(request)[0] != 200:
                raise RuntimeError(f"{target} was refused")


def system_calls(directory, target, count):
    """System calls of one request on a kept connection: the mean, and which."""
    summary = directory / "strace"
    with programs.Service(directory) as service:
        send(service, target, 100)
        tracer = subprocess.Popen(["strace", "-c", "-f", "-qq", "-o", summary, "-p", str(service.usage.pid)])
        time.sleep(1)
        send(service, target, count)
        tracer.send_signal(signal.SIGINT)
        tracer.wait()
    found = {}
    for line in summary.read_text().splitlines():
        fields = line.split()
        if len(fields) >= 5 and fields[3].isdigit() and fields[-1] != "total":
            found[fields[-1]] = int(fields[3]) / count
    common = {name: each for name, each in found.items() if each >= 0.01}
    return sum(common.values()), ", ".join(f"{name} {each:.2f}" for name, each in sorted(common.items(), key=lambda x: -x[1]))


MEMCHECK = (["valgrind", "--leak-check=no"], r"total heap usage: ([\d,]+) allocs")
CALLGRIND = (["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"], r"Collected : (\d+)")


def counted_under_valgrind(directory, target, tool):
    """The difference that 400 more requests make, for one of them."""
    command, pattern = tool
    counts = []
    for requests in (100, 500):
        with programs.Service(directory, prefix=command) as service:
            send(service, target, requests)
        counts.append(int(re.findall(pattern, service.log())[-1].replace(",", "")))
    return (counts[1] - counts[0]) / 400

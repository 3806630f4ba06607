"""What the kernel tells about a running program: CPU time, memory, threads, descriptors."""

import os
import pathlib
import time


class Usage:
    """A program, as the sum of its processes (a server with a worker has two)."""

    def __init__(self, pid):
        self.pid = pid

    def _pids(self):
        children = pathlib.Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text().split()
        return [self.pid, *map(int, children)]

    def cpu_seconds(self):
        """User and system time, to the nanosecond: each process has a clock (see clock_getcpuclockid, of which Python knows
        only the one for threads)."""
        return sum(time.clock_gettime(~pid << 3 | 2) for pid in self._pids())

    def _status(self, key, pid=None):
        for line in pathlib.Path(f"/proc/{pid or self.pid}/status").read_text().splitlines():
            if line.startswith(key + ":"):
                return int(line.split()[1])
        raise KeyError(key)

    def resident_kib(self):
        return sum(self._status("VmRSS", pid) for pid in self._pids())

    def peak_kib(self):
        """The largest resident size since `reset_peak`."""
        return self._status("VmHWM")

    def reset_peak(self):
        pathlib.Path(f"/proc/{self.pid}/clear_refs").write_text("5")

    def threads(self):
        return self._status("Threads")

    def wake_ups(self):
        """How often threads of the process were woken up, those that have ended not counted."""
        tasks = pathlib.Path(f"/proc/{self.pid}/task").iterdir()
        return sum(int((task / "status").read_text().split("\nvoluntary_ctxt_switches:")[1].split()[0]) for task in tasks)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

"""What /proc tells about a running program: CPU time, memory, threads, descriptors."""

import os
import pathlib

TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")


class Usage:
    """A program, as the sum of its processes (a server with a worker has two)."""

    def __init__(self, pid):
        self.pid = pid

    def _pids(self):
        children = pathlib.Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text().split()
        return [self.pid, *map(int, children)]

    def cpu_seconds(self):
        """User and system time, with that of processes that it has waited for."""
        total = 0
        for pid in self._pids():
            fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
            total += int(fields[11]) + int(fields[12])
        return total / TICKS_PER_SECOND

    def _status(self, key):
        for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines():
            if line.startswith(key + ":"):
                return int(line.split()[1])
        raise KeyError(key)

    def resident_kib(self):
        return self._status("VmRSS")

    def peak_kib(self):
        """The largest resident size since `reset_peak`."""
        return self._status("VmHWM")

    def reset_peak(self):
        pathlib.Path(f"/proc/{self.pid}/clear_refs").write_text("5")

    def threads(self):
        return self._status("Threads")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

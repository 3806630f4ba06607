"""What a fault did: the rows of the table."""

import contextlib
import statistics
import time
import traceback


class Fault:
    """One kind of fault: how often it was done, what was lost, how long the service took to be itself again."""

    def __init__(self, what):
        self.what = what
        self.times = 0
        self.lost = []
        self.recoveries = []
        self.notes = []
        self.skipped = None

    def lose(self, text):
        self.lost.append(text)
        print(f"  LOST {self.what}: {text}", flush=True)

    def expect(self, holds, text):
        if not holds:
            self.lose(text)
        return holds

    def recovered(self, seconds):
        self.recoveries.append(seconds)

    @contextlib.contextmanager
    def guarded(self, times=1):
        """One time of this fault, or many at once: whatever goes wrong in it is a loss, and the next one goes on."""
        self.times += times
        try:
            yield
        except Exception as error:  # not only assertions: a service that hangs shows as a timeout of the client
            traceback.print_exc()
            self.lose(f"{type(error).__name__}: {str(error)[:300]}")

    def cells(self):
        recovery = "-"
        if self.recoveries:
            recovery = f"{max(self.recoveries):.2f} s"
            if len(self.recoveries) > 1:
                recovery = f"{statistics.median(self.recoveries):.2f} s, at most {recovery}"
        lost = "skipped: " + self.skipped if self.skipped else f"{len(self.lost)}: {self.lost[0].splitlines()[0][:80]}" if self.lost else "nothing"
        return self.what, str(self.times), lost, recovery, "; ".join(self.notes)


class Report:
    HEADS = ("what was done", "times", "lost", "recovery", "seen")

    def __init__(self):
        self.faults = []

    @contextlib.contextmanager
    def fault(self, what):
        row = Fault(what)
        self.faults.append(row)
        begin = time.monotonic()
        print(f"--- {what}", flush=True)
        yield row
        print("    " + " | ".join(row.cells()[1:]) + f" | took {time.monotonic() - begin:.1f} s", flush=True)

    def has_losses(self):
        return any(fault.lost for fault in self.faults)

    def markdown(self):
        rows = [self.HEADS, ("---",) * len(self.HEADS), *(fault.cells() for fault in self.faults)]
        return "".join("| " + " | ".join(cell.replace("|", "\\|") for cell in row) + " |\n" for row in rows)

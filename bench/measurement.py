"""What a measurement is: rows that are compared to something, and series of how cost grows with work."""

import dataclasses
import statistics
from typing import Optional


@dataclasses.dataclass
class Row:
    """One line of the table. `rounds` of both sides were measured alternately, in this order."""

    name: str
    what: str
    unit: str
    rounds: list
    against: str = ""
    reference_rounds: list = dataclasses.field(default_factory=list)
    target: Optional[float] = None  # of the judged value; None for a row that only informs
    judged: str = "value"  # what the target is about: "value", "ratio" (ours to theirs) or "difference"
    at_most: bool = False
    note: str = ""

    def value(self):
        return statistics.median(self.rounds)

    def reference(self):
        return statistics.median(self.reference_rounds) if self.reference_rounds else None

    def verdict_value(self):
        if self.judged == "ratio":
            return self.value() / self.reference()
        if self.judged == "difference":
            return self.value() - self.reference()
        return self.value()

    def reached(self):
        if self.target is None:
            return None
        return self.verdict_value() <= self.target if self.at_most else self.verdict_value() >= self.target

    def as_json(self):
        return {**dataclasses.asdict(self), "median": self.value(), "referenceMedian": self.reference(),
                "verdict": self.verdict_value(), "reached": self.reached()}


@dataclasses.dataclass
class Growth:
    """How something grows: `lines` maps a name to its values at each of `steps`."""

    name: str
    what: str
    step: str
    unit: str
    steps: list
    lines: dict

    def as_json(self):
        return dataclasses.asdict(self)


@dataclasses.dataclass
class Effort:
    """How long to measure."""

    quick: bool = False

    def rounds(self, full):
        return max(2, full // 3) if self.quick else full

    def seconds(self, full):
        return max(1, full // 3) if self.quick else full

    def count(self, full):
        return full // 10 if self.quick else full

"""Whether what a follower of a log got is what the container wrote."""

import datetime
import re
from dataclasses import dataclass

from container import LINE, Container


@dataclass
class Seen:
    """One follower's view, for the judge."""

    container: Container
    text: str
    told: list  # warnings of the service about this log
    before: int  # last line that the driver had before the follower came
    after: int  # and once it had

    @property
    def plan(self):
        return self.container.plan

    def lines(self):
        """By their ends, which stay."""
        lines = self.text.replace("\r\n", "\n").split("\n")
        return [line + "\n" for line in lines[:-1]] + lines[-1:] * (lines[-1] != "")

    def of_output(self, output):
        return [line for line in self.lines() if line.startswith(output)]


def difference(got, expected):
    """None when both are the same; else what is wrong with the lines."""
    if got == expected:
        return None
    wanted, seen = set(expected), set(got)
    torn = [line for line in got if line not in wanted]
    problems = {"lost": len(wanted - seen), "twice": len(got) - len(seen), "strange": len(torn)}
    found = ", ".join(f"{count} {what}" for what, count in problems.items() if count) or "not in order"
    first = next((i for i, (one, other) in enumerate(zip(got, expected)) if one != other), min(len(got), len(expected)))
    return (f"of {len(expected)} lines {len(got)} came: {found}; first at {first}: {''.join(got[first:first + 1])[:60]!r} "
            f"instead of {''.join(expected[first:first + 1])[:60]!r}" + (f"; strange: {torn[0][:80]!r}" if torn else ""))


def together(seen, expected):
    """The first problem of the outputs, which are each in order, and nothing else is there."""
    for output, lines in expected.items():
        if problem := difference(seen.of_output(output), lines):
            return f"{output}: {problem}"
    strange = [line for line in seen.lines() if line[:3] not in expected]
    return f"{len(strange)} strange lines: {strange[0][:80]!r}" if strange else None


def whole(*outputs):
    """All lines of these outputs, or of all that the container writes to."""
    return lambda seen: together(seen, {output: seen.plan.written(output) for output in outputs or seen.plan.outputs})


def last(count):
    """The last lines, of all outputs together."""

    def judge(seen):
        got = {output: len(seen.of_output(output)) for output in seen.plan.outputs}
        expected = min(count, len(seen.plan.outputs) * seen.plan.lines)
        if sum(got.values()) != expected:
            return f"{sum(got.values())} lines instead of {expected}; {seen.text[:80]!r}"
        return together(seen, {output: seen.plan.written(output)[-number:] if number else [] for output, number in got.items()})

    return judge


def numbers(seen):
    return [int(number) for number in LINE.findall(seen.text)]


def unbroken(first, last_one, seen):
    """Whole lines from one number to another."""
    return together(seen, {"out": [seen.plan.line("out", number) for number in range(first, last_one + 1)]})


def to_the_end(tail=None):
    """Of a writer that was ended: from the first line, or the tail at the moment of the opening, to the driver's last one."""

    def judge(seen):
        got = numbers(seen)
        first = got[0] if got else 0
        if tail is None and first != 1:
            return f"begins with line {first}"
        if tail is not None and not seen.before - tail + 1 <= first <= seen.after - tail + 1:
            return f"tail={tail} begins with line {first}, when line {seen.before} to {seen.after} was the last"
        return unbroken(first, seen.container.last_number(), seen)

    return judge


def as_logged(seen):
    """Where the driver itself could not write all: what it has."""
    got = [line for line in seen.lines() if line in set(seen.plan.written("out"))]
    return difference(got, [line.text for line in seen.container.logged() if line.text in set(seen.plan.written("out"))])


def told_gaps(least):
    """Lines may be missing where a warning tells it, but none is torn or comes twice, and so much at least comes."""

    def judge(seen):
        got = numbers(seen)
        if problem := together(seen, {"out": [seen.plan.line("out", number) for number in sorted(set(got))]}):
            return problem
        missing = seen.plan.lines - len(got)
        if missing and not seen.told:
            return f"{missing} lines are missing and nobody was told"
        if len(got) < least * seen.plan.lines or got[-1] != seen.plan.lines:
            return f"only {len(got)} lines, to {got[-1:]}; told: {seen.told[:1]}"
        return None

    return judge


def nothing(seen):
    return seen.text[:80] and f"got {seen.text[:80]!r}"


def time_of(text):
    """Nanoseconds since the epoch, of a time in RFC 3339 with nanoseconds."""
    seconds, fraction, zone = re.fullmatch(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.?(\d*)(Z|[+-]\d\d:\d\d)", text).groups()
    moment = datetime.datetime.fromisoformat(seconds + zone.replace("Z", "+00:00"))
    return int(moment.timestamp()) * 10**9 + int(fraction.ljust(9, "0"))


def second_of_middle(container):
    logged = list(container.logged())
    return time_of(logged[len(logged) // 2].time) // 10**9


def between(since=False, until=False):
    """The lines before or after a second in the middle, each with the time that the driver has for it."""

    def judge(seen):
        second = second_of_middle(seen.container) * 10**9
        logged = [line for line in seen.container.logged()
                  if (not since or time_of(line.time) >= second) and (not until or time_of(line.time) < second)]
        times = [line.split(" ", 1)[0] for line in seen.lines()]
        seen.text = "".join(line.split(" ", 1)[-1] for line in seen.lines())
        if problem := difference(seen.lines(), [line.text for line in logged]):
            return problem
        wrong = [(mine, line.time) for mine, line in zip(times, logged) if time_of(mine) != time_of(line.time)]
        short = [mine for mine in times if not re.search(r"\.\d{9}", mine)]
        return f"times: {wrong[:1]} {short[:1]}" if wrong or short or not logged else None

    return judge

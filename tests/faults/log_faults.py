"""All that may happen to a followed log, many times; and a client that is cut off a thousand times and comes back."""

import contextlib

from cases import Stage
from entries import cut_often


def run(device, report, plan):
    if not plan.quick:  # the end-to-end tests have each once
        play_all(device, report, max(plan.rounds // 4, 1))
    with device.service() as running:
        with report.fault("followed entries: cut and resumed at the cursor") as fault:
            cuts = 60 if plan.quick else 10 * plan.rounds
            with fault.guarded(cuts):
                problems, seen = cut_often(running, cuts)
                fault.notes.append(seen)
                for problem in problems:
                    fault.lose(problem)
        fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])


def play_all(device, report, rounds):
    with stage_of_its_own(device) as stage:
        cases = [case.with_rounds(rounds) for case in stage.cases]
        for case, count in cases:
            if not case.what.startswith("Podman"):
                play(report, case, count, lambda: contextlib.nullcontext(stage))
    # A Podman that dies again and again is started after longer and longer pauses, in which no log can be opened.
    for case, count in cases:
        if case.what.startswith("Podman"):
            play(report, case, count, lambda: stage_of_its_own(device))


@contextlib.contextmanager
def stage_of_its_own(device):
    with device.service() as running, Stage(running) as stage:
        yield stage


def play(report, case, rounds, get_stage):
    with report.fault(f"followed log: {case.what}") as fault:
        for _ in range(rounds):
            with fault.guarded(case.followers), get_stage() as stage:
                problem, late = stage.play(case)
                fault.expect(problem is None, problem)
                if late is not None:
                    fault.recovered(late)

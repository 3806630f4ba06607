"""All that may happen to a followed log, many times; and a client that is cut off a thousand times and comes back."""

from cases import Stage
from device import kx
from entries import cut_often


def run(device, report, plan):
    with device.service() as running:
        if not plan.quick:  # the end-to-end tests have each once
            with Stage(running) as stage:
                for case in stage.cases:
                    play(stage, report, *case.with_rounds(max(plan.rounds // 4, 1)))
        with report.fault("followed entries: cut and resumed at the cursor") as fault:
            cuts = 60 if plan.quick else 10 * plan.rounds
            with fault.guarded(cuts):
                problems, seen = cut_often(running, cuts)
                fault.notes.append(seen)
                for problem in problems:
                    fault.lose(problem)
        fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])


def play(stage, report, case, rounds):
    with report.fault(f"followed log: {case.what}") as fault:
        for _ in range(rounds):
            # A Podman that was killed often is started again after a pause, and no log is opened without it.
            kx.wait_until(lambda: stage.running.request("GET", "/containers").status == 200, 60, "Podman answers")
            with fault.guarded(case.followers):
                problem, late = stage.play(case)
                fault.expect(problem is None, problem)
                if late is not None:
                    fault.recovered(late)

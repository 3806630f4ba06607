"""All that may happen to a followed log, many times."""

from cases import Stage


def run(device, report, plan):
    if plan.quick:
        return  # the end-to-end tests have each once
    with device.service() as running:
        with Stage(running) as stage:
            for case in stage.cases:
                play(stage, report, *case.with_rounds(max(plan.rounds // 4, 1)))
        running.stop()


def play(stage, report, case, rounds):
    with report.fault(f"followed log: {case.what}") as fault:
        for _ in range(rounds):
            with fault.guarded(case.followers):
                problem, late = stage.play(case)
                fault.expect(problem is None, problem)
                if late is not None:
                    fault.recovered(late)

"""Runs the measurements; scripts/bench is the command."""

import argparse
import functools
import pathlib
import resource
import sys
import time

from bench import console, costs, footprint, images, logs, plots, realtime, report, requests, streams, uploads
from bench.measurement import Effort, Growth, Row

PLAIN_OR_TLS = {  # take as `tls` which
    "settings": requests.settings,
    "connections": footprint.connections,
    "upload": uploads.uploads,
    "streams": streams.stream_growth,
    "streams-in-turn": streams.streams_in_turn,
}


def over_tls(measure):
    def measure_over_tls(effort, directory):
        results = measure(effort, directory, tls=True)
        for result in results:
            result.name += "-tls"
            result.what += ", over TLS"
        return results

    return measure_over_tls


MEASUREMENTS = {
    **{name: functools.partial(measure, tls=False) for name, measure in PLAIN_OR_TLS.items()},
    **{f"{name}-tls": over_tls(measure) for name, measure in PLAIN_OR_TLS.items()},
    "image": images.until_listed,
    "handshake": requests.handshake,
    "identities": requests.identities,
    "wrong-tokens": requests.wrong_tokens,
    "list": requests.container_list,
    "log": logs.ended_log,
    "log-tail": logs.tail_of_large_log,
    "log-latency": logs.latency,
    "log-unread": logs.unread_streams,
    "stream": streams.double_stream,
    "start": footprint.start,
    "executable": footprint.executable,
    "growth-list": requests.list_growth,
    "growth-clients": requests.client_growth,
    "costs": costs.costs,
    "realtime": realtime.realtime,
    "console": console.console,
}


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures the shipped program beside what it is "
                                     "compared to, and writes a table, build/bench/results.json and growth plots.")
    parser.add_argument("--quick", action="store_true", help="fewer and shorter rounds; figures are rough")
    parser.add_argument("--output", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("names", nargs="*", metavar="NAME", help="one of: " + ", ".join(MEASUREMENTS) + "; none for all")
    arguments = parser.parse_args()
    if unknown := set(arguments.names) - set(MEASUREMENTS):
        parser.error(f"no such measurement: {', '.join(sorted(unknown))}")

    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    work = arguments.output / "work"
    work.mkdir(parents=True, exist_ok=True)
    results = {"machine": report.describe_machine(), "quick": arguments.quick, "rows": [], "growth": [], "failed": {}}
    for name in arguments.names or MEASUREMENTS:
        started = time.monotonic()
        try:
            for measured in MEASUREMENTS[name](Effort(arguments.quick), work):
                kind = {Row: "rows", Growth: "growth"}[type(measured)]
                results[kind].append(measured.as_json())
        except Exception as error:  # one that cannot be measured does not lose the others
            results["failed"][name] = f"{type(error).__name__}: {error}"
        print(f"{name}: {time.monotonic() - started:.0f} s {results['failed'].get(name, '')}", file=sys.stderr, flush=True)
        report.write(results, arguments.output / "results.json")
    plots.draw(arguments.output / "results.json", arguments.output)
    (arguments.output / "table.md").write_text(report.table(results) + "\n")
    print(report.table(results))
    sys.exit(1 if results["failed"] else 0)


if __name__ == "__main__":
    main()

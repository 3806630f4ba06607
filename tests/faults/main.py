"""The fault suite: scripts/faults is the command."""

import argparse
import pathlib
import random
import resource
import sys
from dataclasses import dataclass

import access
import device as devices
import clients
import events
import kills
import log_faults
import podman_faults
import power_cuts
import resources
import shutdown
import slow_clients
import streams
import uploads
from report import Report

GROUPS = {"podman": podman_faults, "events": events, "logs": log_faults, "kill": kills, "power": power_cuts, "resources": resources, "clients": clients,
          "slow": slow_clients, "uploads": uploads, "access": access, "streams": streams, "shutdown": shutdown}


@dataclass
class Plan:
    quick: bool
    rounds: int

    @property
    def podman_rounds(self):
        return 1 if self.quick else max(self.rounds // 20, 1)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/faults")
    parser.add_argument("--program", required=True)
    parser.add_argument("--rounds", type=int, default=100, help="how often the service is killed in each kind of write")
    parser.add_argument("--quick", action="store_true", help="a few rounds of everything that does not wait for time limits")
    parser.add_argument("--seed", type=int, default=1, help="of the random moments")
    parser.add_argument("--markdown", type=pathlib.Path, help="a file for the table")
    parser.add_argument("--only", action="append", choices=GROUPS, help="one group of faults")
    return parser.parse_args()


def main():
    devices.kx.require_sandbox()
    arguments = parse_arguments()
    random.seed(arguments.seed)
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    plan = Plan(arguments.quick, 4 if arguments.quick else arguments.rounds)
    report = Report()
    device = devices.Device(arguments.program)
    for name, group in GROUPS.items():
        if not arguments.only or name in arguments.only:
            group.run(device, report, plan)
    print("\n" + report.markdown())
    if arguments.markdown:
        arguments.markdown.write_text(report.markdown())
    sys.exit(1 if report.has_losses() else 0)


if __name__ == "__main__":
    main()

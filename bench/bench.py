# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""Measures the driver beside its peers and writes docs/performance.md; a run of less than
everything goes into the build tree. Raw results are kept in build/bench/results.json."""

import argparse
import json
import os
import signal
import sys

import report
from clients import BUILD, CLIENTS
from machine import machine, versions
from results import Results
from run import Bench, Failure
from server import ROOT, SETTINGS
from workloads import Sizes, cases

RESULTS = BUILD / "results.json"
QUIET_LOAD = 0.5


def names(known):
    """The type of an option with some of the known names."""
    def parse(text):
        chosen = text.split(",")
        unknown = set(chosen) - set(known)
        if unknown:
            raise argparse.ArgumentTypeError("unknown: " + ", ".join(sorted(unknown)))
        return [name for name in known if name in chosen]
    return parse


def parse_options():
    workloads = sorted({case.workload for case in cases(1)})
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--rounds", type=int, default=7, help="how often everything is run")
    parser.add_argument("--only", type=names(workloads), default=workloads,
                        metavar="W1,W2", help="the workloads, of " + ",".join(workloads))
    parser.add_argument("--clients", type=names(CLIENTS), default=list(CLIENTS),
                        metavar="libpq,dorvy", help="the clients, of " + ",".join(CLIENTS))
    parser.add_argument("--scale", type=float, default=1, help="share of the work, to try it out")
    parser.add_argument("--report-only", metavar="FILE",
                        help="runs nothing and writes the report from these raw results")
    return parser.parse_args()


def load_before():
    load = os.getloadavg()
    if load[0] > QUIET_LOAD:
        print(f"bench: the machine is busy already, its load is {load[0]:.2f}", file=sys.stderr)
    return load


def measure(options):
    """The raw results of a run. They are kept after each round, as the next may fail."""
    raw = {"machine": machine(), "versions": versions(), "settings": SETTINGS,
           "scale": options.scale, "rounds": options.rounds, "load": load_before(), "runs": []}

    def keep(runs):
        raw["runs"] += runs
        RESULTS.write_text(json.dumps(raw, indent=1), encoding="utf-8")

    chosen = [case for case in cases(options.scale) if case.workload in options.only]
    Bench(chosen, options.clients, Sizes(options.scale)).measure(options.rounds, keep)
    return raw


def results_of(options):
    if not options.report_only:
        return Results(measure(options))
    with open(options.report_only, encoding="utf-8") as file:
        return Results(json.load(file))


def main():
    # As Ctrl-C does, so that what was started is stopped.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit("bench: terminated"))
    options = parse_options()
    try:
        results = results_of(options)
    except Failure as failure:
        sys.exit(f"bench: {failure}")
    except KeyboardInterrupt:
        sys.exit("bench: interrupted")
    print(report.ratios(results))
    whole = results.raw["scale"] == 1 and results.is_whole()
    print("bench: wrote", report.write(results, ROOT / "docs" if whole else BUILD / "report"))


if __name__ == "__main__":
    main()

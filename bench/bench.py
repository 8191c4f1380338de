# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""Measures the driver beside its peers. A whole run (all workloads and clients, in full size and
7 rounds) writes docs/performance.md, and its raw results into build/bench/results.json. Any other
writes both into build/bench/report."""

import argparse
import json
import os
import pathlib
import signal
import sys

import report
from clients import BUILD, CLIENTS
from machine import machine, versions
from results import Results
from run import Bench, Failure
from server import ROOT, SETTINGS, Server
from workloads import ROUNDS, Sizes, cases

RESULTS = BUILD / "results.json"  # of the last whole run
REPORT = BUILD / "report"
TRIED = REPORT / "results.json"  # of a run that is not whole, or not yet
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
    parser.add_argument("--rounds", type=int, default=ROUNDS, help="how often everything is run")
    parser.add_argument("--only", type=names(workloads), default=workloads,
                        metavar="W1,W2", help="the workloads, of " + ",".join(workloads))
    parser.add_argument("--clients", type=names(CLIENTS), default=list(CLIENTS),
                        metavar="libpq,dorvy", help="the clients, of " + ",".join(CLIENTS))
    parser.add_argument("--scale", type=float, default=1, help="share of the work, to try it out")
    parser.add_argument("--report-only", metavar="FILE", type=pathlib.Path, nargs="?",
                        const=RESULTS, help="runs nothing and writes the report from these raw "
                        "results, or else from those of the last whole run")
    return parser.parse_args()


def load_before():
    load = os.getloadavg()
    if load[0] > QUIET_LOAD:
        print(f"bench: the machine is busy already, its load is {load[0]:.2f}", file=sys.stderr)
    return load


def measure(options, load, server):
    """The raw results of a run. They are kept after each round, as the next may fail."""
    raw = {"machine": machine(), "versions": versions(server), "settings": SETTINGS,
           "scale": options.scale, "load": load, "runs": []}
    REPORT.mkdir(parents=True, exist_ok=True)

    def keep(runs):
        raw["runs"] += runs
        TRIED.write_text(json.dumps(raw, indent=1), encoding="utf-8")

    chosen = [case for case in cases(options.scale) if case.workload in options.only]
    Bench(server, chosen, options.clients, Sizes(options.scale)).measure(options.rounds, keep)
    return raw


def measured(options):
    load = load_before()
    with Server() as server:
        results = Results(measure(options, load, server))
    if results.is_whole():
        TRIED.replace(RESULTS)
    return results


def kept(file):
    return Results(json.loads(file.read_text(encoding="utf-8")))


def forget_settings():
    """The caller's settings for libpq would reach the server, the clients and this program."""
    for name in [name for name in os.environ if name.startswith("PG")]:
        del os.environ[name]


def main():
    # As Ctrl-C does, so that what was started is stopped.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit("bench: terminated"))
    options = parse_options()
    forget_settings()
    try:
        results = kept(options.report_only) if options.report_only else measured(options)
    except (Failure, FileNotFoundError) as failure:
        sys.exit(f"bench: {failure}")
    except KeyboardInterrupt:
        sys.exit("bench: interrupted")
    print(report.ratios(results))
    print("bench: wrote", report.write(results, ROOT / "docs" if results.is_whole() else REPORT))


if __name__ == "__main__":
    main()

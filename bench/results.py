# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The results of a run, as tables and plots ask for them."""

import statistics

from clients import CLIENTS
from workloads import cases

BASE = "libpq"  # what the others are compared with


def ordered(values):
    return list(dict.fromkeys(values))


class Results:
    def __init__(self, raw):
        self.raw = raw
        self.placements = ordered(run["placement"] for run in raw["runs"])
        self.clients = [client for client in CLIENTS if self.select(client=client)]

    def select(self, **wanted):
        """The runs that have these properties."""
        return [run for run in self.raw["runs"]
                if all(run[key] == value for key, value in wanted.items())]

    def variants(self, workload):
        return ordered(run["variant"] for run in self.select(workload=workload))

    def rates(self, **wanted):
        """Operations per second, of every round."""
        return [run["operations"] / run["seconds"] for run in self.select(**wanted)]

    def median(self, measure, **wanted):
        """The median of what measure tells of each run; None where there is none."""
        values = [measure(run) for run in self.select(**wanted)]
        return statistics.median(values) if values else None

    def ratio(self, client, **wanted):
        """Throughput in relation to plain libpq; None where one of both was not measured."""
        own, base = self.rates(client=client, **wanted), self.rates(client=BASE, **wanted)
        return statistics.median(own) / statistics.median(base) if own and base else None

    def is_whole(self):
        """Whether everything was measured, in full size."""
        measured = {(run["workload"], run["variant"], run["client"]) for run in self.raw["runs"]}
        return all((case.workload, case.variant, client) in measured
                   for case in cases(1) for client in case.clients)


def cpu_microseconds(run):
    """Of the client, for one operation."""
    return (run["user"] + run["system"]) / run["operations"] * 1e6


def peak_mib(run):
    return run["peak_kib"] / 1024

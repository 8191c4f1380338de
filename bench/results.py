# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The results of a run, as tables and plots ask for them."""

import statistics

from clients import CLIENTS
from workloads import PLACEMENTS, ROUNDS, cases

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

    def values(self, measure, **wanted):
        """What measure tells of each of the runs."""
        return [measure(run) for run in self.select(**wanted)]

    def median(self, measure, **wanted):
        """The median of the values; None where there is none."""
        values = self.values(measure, **wanted)
        return statistics.median(values) if values else None

    def by_round(self, measure, **wanted):
        """What measure tells of the one run of each round."""
        return {run["round"]: measure(run) for run in self.select(**wanted)}

    def ratios(self, client, **wanted):
        """Throughput in relation to plain libpq's in the same round, for each that has both."""
        own = self.by_round(rate, client=client, **wanted)
        base = self.by_round(rate, client=BASE, **wanted)
        return [own[one] / base[one] for one in own if one in base]

    def ratio(self, client, **wanted):
        """The median of the ratios; None where there is none."""
        ratios = self.ratios(client, **wanted)
        return statistics.median(ratios) if ratios else None

    def rounds(self, **wanted):
        """How many rounds were run, not how many were wanted."""
        return len({run["round"] for run in self.select(**wanted)})

    def is_whole(self):
        """Whether everything was measured, in full size and often enough."""
        return self.raw["scale"] == 1 and all(
            self.has_all_rounds(case, client, placement)
            for case in cases(1) for client in case.clients for placement in PLACEMENTS)

    def has_all_rounds(self, case, client, placement):
        rounds = self.rounds(workload=case.workload, variant=case.variant, client=client,
                             placement=placement)
        return rounds >= min(ROUNDS, case.most_rounds)


def rate(run):
    """Operations per second."""
    return run["operations"] / run["seconds"]


def cpu_microseconds(run):
    """Of the client, for one operation."""
    return (run["user"] + run["system"]) / run["operations"] * 1e6


def peak_mib(run):
    return run["peak_kib"] / 1024

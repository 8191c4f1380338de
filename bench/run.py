# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""Runs the programs in turn and checks what each of them has read or written."""

import contextlib
import json
import os
import subprocess
import sys

from clients import CLIENTS, environment
from workloads import PLACEMENTS, checksum_sql, inserted_sql, tables

CLIENT_SECONDS = 600


class Failure(Exception):
    """A program failed, or gave a wrong answer."""


def placements():
    """Where things run: the cores of each placement. One core is the last, as the first serves the
    machine's interrupts."""
    free = os.sched_getaffinity(0)
    return dict(zip(PLACEMENTS, ({max(free)}, free)))


class Bench:
    """Runs cases on one server."""

    def __init__(self, server, cases, clients, sizes):
        self.server, self.cases, self.clients, self.sizes = server, cases, clients, sizes

    def measure(self, rounds, keep):
        """Gives the runs of each round to keep, one dictionary for each run."""
        with contextlib.closing(self.server.connect()) as self.connection:
            for statement in tables(self.sizes):
                self.query(statement)
            self.expected = {case: self.checksum(checksum_sql(case)) for case in self.cases}
            for number in range(rounds):
                keep(self.round(number))

    def query(self, sql):
        with self.connection.cursor() as cursor:
            cursor.execute(sql)
            return cursor.fetchone() if cursor.description else None

    def checksum(self, sql):
        return int(self.query(sql)[0]) % 2**64

    def round(self, number):
        free = os.sched_getaffinity(0)
        runs = []
        for placement, cores in placements().items():
            self.server.pin(cores)
            os.sched_setaffinity(0, cores)  # the programs inherit it
            runs += self.placed_round(number, placement)
            os.sched_setaffinity(0, free)
        return runs

    def placed_round(self, number, placement):
        runs = []
        for case in self.cases:
            for client in self.clients:
                if client in case.clients and number < case.most_rounds:
                    run = self.measure_client(case, client)
                    runs.append({**run, "round": number, "placement": placement})
                    tell(runs[-1])
        return runs

    def measure_client(self, case, client):
        if case.operation == "insert":
            self.query("TRUNCATE inserted")
        run = {**self.program(case, client), "workload": case.workload, "variant": case.variant,
               "client": client}
        found = run.pop("checksum")
        if case.operation == "insert":
            found = self.checksum(inserted_sql(case))
        if (found, run["operations"]) != (self.expected[case], case.count):
            raise Failure(f"{case.workload}, {client}: {run['operations']} operations in place of "
                          f"{case.count}, checksum {found} in place of {self.expected[case]}")
        return run

    def program(self, case, client):
        done = subprocess.run(
            CLIENTS[client].arguments(case, self.server), env=environment(self.server),
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=CLIENT_SECONDS,
            check=False)
        if done.returncode != 0:
            raise Failure(f"{case.workload}, {client}: status {done.returncode}\n{done.stderr}")
        return json.loads(done.stdout)


def tell(run):
    rate = run["operations"] / run["seconds"]
    line = "{round} {placement:8} {workload} {variant:<8} {client:8} {seconds:8.3f} s {0:9.0f}/s"
    print("bench:", line.format(rate, **run), file=sys.stderr, flush=True)

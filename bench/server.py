# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The private PostgreSQL server that everything is measured on."""

import contextlib
import os
import pathlib
import sys

import psycopg2

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from tests.support.privateserver import LOOPBACK, ROOT, USER, PrivateServer  # noqa: E402

DATABASE = "postgres"

SETTINGS = {
    "shared_buffers": "512MB",
    "synchronous_commit": "off",
    "jit": "off",
    "max_parallel_workers_per_gather": "0",
    "autovacuum": "off",
    "timezone": "UTC",
}


def children(pid):
    """The processes that one has started; a backend starts none."""
    listed = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii")
    return [int(child) for child in listed.split()]


class Server(PrivateServer):
    """Runs while it is entered."""

    def __init__(self):
        super().__init__(SETTINGS)

    def connect(self):
        connection = psycopg2.connect(
            host=self.folder, port=self.port, user=USER, dbname=DATABASE)
        connection.autocommit = True
        return connection

    def version(self):
        with contextlib.closing(self.connect()) as connection, connection.cursor() as cursor:
            cursor.execute("SHOW server_version")
            return cursor.fetchone()[0]

    def pin(self, cores):
        """Keeps the server, and the backends that it will start, to these cores."""
        os.sched_setaffinity(self.pid, cores)
        for pid in children(self.pid):
            with contextlib.suppress(ProcessLookupError):  # it has ended since it was listed
                os.sched_setaffinity(pid, cores)

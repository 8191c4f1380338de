# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The programs that are measured, one for each way to talk to PostgreSQL."""

import dataclasses
import os
import re

from server import DATABASE, LOOPBACK, ROOT, USER
from workloads import PAGE_ROWS

BUILD = ROOT / "build/bench"
PROGRAMS = BUILD / "bench"
PGJDBC = f"{PROGRAMS}/bench_pgjdbc.jar:/usr/share/java/postgresql.jar"


@dataclasses.dataclass(frozen=True)
class Client:
    command: tuple
    question_marks: bool = False  # for parameters, in place of $1
    tcp: bool = False

    def arguments(self, case, server):
        sql = re.sub(r"\$\d+", "?", case.sql) if self.question_marks else case.sql
        host = LOOPBACK if self.tcp else server.folder
        return [*map(str, self.command), case.operation, host, str(server.port), USER, DATABASE,
                sql, case.kinds, str(case.count), str(case.keys), str(case.threads),
                str(PAGE_ROWS)]


CLIENTS = {
    "libpq": Client((PROGRAMS / "bench_libpq",)),
    "dorvy": Client((PROGRAMS / "bench_qtsql", "DORVY"), question_marks=True),
    "odbc": Client((PROGRAMS / "bench_qtsql", "QODBC"), question_marks=True),
    "libpqxx": Client((PROGRAMS / "bench_libpqxx",)),
    "pgjdbc": Client(("java", "-cp", PGJDBC, "Pgjdbc"), question_marks=True, tcp=True),
    "psycopg2": Client(("/usr/bin/python3", ROOT / "bench/clients/psycopg.py")),
}


def environment(server):
    """What the programs run in: UTC, as Qt reads the zone's file for each local time otherwise; the
    plugin of the build; and for ODBC a folder without configuration, in place of the system's."""
    return {**os.environ, "TZ": "UTC", "QT_PLUGIN_PATH": f"{BUILD}/plugins",
            "ODBCSYSINI": server.folder, "ODBCINI": f"{server.folder}/odbc.ini"}

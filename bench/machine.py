# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The machine and the versions of what is measured on it."""

import os
import pathlib
import platform
import re
import subprocess

from server import ROOT

PACKAGES = ("libpq5", "libqt5sql5", "libqt5sql5-odbc", "odbc-postgresql",
            "libodbc2", "libpqxx-6.4", "libpostgresql-jdbc-java", "python3-psycopg2", "python3",
            "gcc")
KIB_PER_GIB = 1024 * 1024


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def field(file, pattern):
    return re.search(pattern, pathlib.Path(file).read_text(encoding="utf-8")).group(1)


def machine():
    memory = int(field("/proc/meminfo", r"MemTotal:\s+(\d+)")) / KIB_PER_GIB
    return {
        "Processor": field("/proc/cpuinfo", r"model name\s*: (.*)"),
        "Cores": str(len(os.sched_getaffinity(0))),
        "Memory": f"{memory:.0f} GiB",
        "System": field("/etc/os-release", 'PRETTY_NAME="(.*)"'),
        "Kernel": platform.release(),
    }


def versions(server):
    """What is measured on this server. It and Java need not be Debian's; they tell themselves."""
    listed = output("dpkg-query", "-W", "-f", "${Package} ${Version}\n", *PACKAGES)
    return {"DORVY": output("git", "-C", str(ROOT), "describe", "--always", "--dirty"),
            "PostgreSQL": server.version(),
            "Java": output("java", "--version").splitlines()[0],
            **dict(line.split() for line in listed.splitlines())}

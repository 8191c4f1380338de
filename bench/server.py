# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The private PostgreSQL server that everything is measured on."""

import contextlib
import os
import pathlib
import socket
import subprocess
import tempfile
import time

import psycopg2

ROOT = pathlib.Path(__file__).resolve().parent.parent
USER = "dorvy"
DATABASE = "postgres"
LOOPBACK = "127.0.0.1"
START_SECONDS = 60
POLL_SECONDS = 0.05

SETTINGS = {
    "shared_buffers": "512MB",
    "fsync": "off",
    "synchronous_commit": "off",
    "jit": "off",
    "max_parallel_workers_per_gather": "0",
    "autovacuum": "off",
    "timezone": "UTC",
}


def free_port():
    with socket.socket() as probe:
        probe.bind((LOOPBACK, 0))
        return probe.getsockname()[1]


def children(pid):
    """The processes that one has started; a backend starts none."""
    listed = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii")
    return [int(child) for child in listed.split()]


class Server:
    """Runs while it is entered. The keeper stops it and removes its folder when its input ends,
    whichever way this process does."""

    def __enter__(self):
        bindir = os.environ.get("DORVY_TEST_PGBIN", "/usr/lib/postgresql/15/bin")
        self.folder = tempfile.mkdtemp(prefix="dorvy-")
        self.keeper = subprocess.Popen(
            ["setsid", ROOT / "scripts/keep-cluster", bindir, self.folder, "--locale=C.UTF-8"],
            cwd="/", stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.keeper.stdin.close()
        self.keeper.wait()

    def start(self):
        answer = self.keeper.stdout.readline().strip()
        if answer != "ready":
            raise RuntimeError(f"no private PostgreSQL: {answer}")
        self.port = free_port()
        self.configure()
        print(f"start {self.port}", file=self.keeper.stdin, flush=True)
        self.pid = int(self.keeper.stdout.readline().split()[1])
        self.await_start()

    def configure(self):
        lines = [f"{name} = '{value}'\n" for name, value in SETTINGS.items()]
        lines.append(f"listen_addresses = '{LOOPBACK}'\n")
        lines.append(f"unix_socket_directories = '{self.folder}'\n")
        with open(f"{self.folder}/data/postgresql.conf", "a", encoding="ascii") as file:
            file.writelines(lines)

    def await_start(self):
        end = time.monotonic() + START_SECONDS
        while True:
            try:
                return self.connect().close()
            except psycopg2.OperationalError:
                if time.monotonic() > end:
                    raise
                time.sleep(POLL_SECONDS)

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

# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""A private PostgreSQL server for programs in Python."""

import os
import pathlib
import socket
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
USER = "dorvy"
LOOPBACK = "127.0.0.1"
START_SECONDS = 60
POLL_SECONDS = 0.05


def hold_port():
    """A socket whose port nobody else is given as long as it is bound. As it does not listen, a server
    may, which like PostgreSQL's asks for SO_REUSEADDR."""
    holder = socket.socket()
    holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    holder.bind((LOOPBACK, 0))
    return holder


class PrivateServer:
    """Runs while it is entered: its user is USER, a superuser who needs no password; it listens on
    LOOPBACK and in its folder, at .port. The keeper stops it and removes its folder when its input
    ends, whichever way this process does.

    The server's programs come from the folder in DORVY_TEST_PGBIN, or are Debian's."""

    def __init__(self, settings=None):
        self.settings = {
            "fsync": "off",
            "lc_messages": "C",
            "listen_addresses": LOOPBACK,
            **(settings or {}),
        }

    def __enter__(self):
        self.port_holder = hold_port()
        self.port = self.port_holder.getsockname()[1]
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
        self.port_holder.close()

    def start(self):
        answer = self.keeper.stdout.readline().strip()
        if answer != "ready":
            raise RuntimeError(f"no private PostgreSQL: {answer}")
        self.configure()
        print(f"start {self.port}", file=self.keeper.stdin, flush=True)
        self.pid = int(self.keeper.stdout.readline().split()[1])
        self.await_start()

    def configure(self):
        settings = {**self.settings, "unix_socket_directories": self.folder}
        with open(f"{self.folder}/data/postgresql.conf", "a", encoding="ascii") as file:
            file.writelines(f"{name} = '{value}'\n" for name, value in settings.items())

    def await_start(self):
        log = pathlib.Path(self.folder, "server.log")
        end = time.monotonic() + START_SECONDS
        log.touch()
        while "ready to accept connections" not in log.read_text(errors="replace"):
            if time.monotonic() > end:
                raise RuntimeError(f"PostgreSQL does not start:\n{log.read_text(errors='replace')}")
            time.sleep(POLL_SECONDS)

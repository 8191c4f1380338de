# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""What the code of a document finds round it: a system with the driver installed that nothing can harm, an
empty folder, a server."""

import contextlib
import os
import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What installing something, or building in the source tree, may write to.
LAYERED = ("/etc", "/opt", "/usr", "/var")


def enter_namespace(arguments):
    """Replaces this process by root's in a mount namespace of its own."""
    as_root = [] if os.geteuid() == 0 else ["sudo"]
    command = [*as_root, "unshare", "--mount", "--propagation", "private", *arguments]
    os.execvp(command[0], command)


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def mounts_below(folder):
    """What is mounted there, in the order of mounting."""
    lines = pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines()
    points = (re.sub(r"\\([0-7]{3})", lambda code: chr(int(code[1], 8)), line.split()[4])
              for line in lines)
    return [point for point in points if point.startswith(f"{folder}/")]


def lay_over(folder, before, upper):
    """What is written into folder goes into upper; before is what is there."""
    for part in ("changes", "work"):
        (upper / part).mkdir(parents=True)
    mount("-t", "overlay", "overlay", "-o",
          f"lowerdir={before},upperdir={upper}/changes,workdir={upper}/work", folder)


def lay_over_tree(folder, layers):
    """Lays over a folder and what is mounted below, which its layer would hide: a container's /etc/hosts, say."""
    below = mounts_below(folder)
    before = layers / "before"
    before.mkdir(parents=True)
    mount("--rbind", folder, str(before))
    lay_over(folder, before, layers / "0")
    for number, point in enumerate(below, 1):
        covered = before / os.path.relpath(point, folder)
        if covered.is_dir():
            # A file system that cannot be laid over, as some that are none of a disk, stays hidden.
            with contextlib.suppress(subprocess.CalledProcessError):
                lay_over(point, covered, layers / str(number))
        elif covered.is_file():
            shutil.copyfile(covered, point)


class World:
    """Lies in an empty folder, and vanishes with the mount namespace; .folder is where the blocks run."""

    def __init__(self, place, build, server_port, in_source_tree):
        mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", place)
        place = pathlib.Path(place)
        for folder in (*LAYERED, str(ROOT)):
            lay_over_tree(folder, place / "layers" / folder.strip("/").replace("/", "-"))
        self.scratch = place / "scratch"
        self.home = place / "home"
        self.build = place / "build"
        for folder in (self.scratch, self.home, self.build):
            folder.mkdir()
        self.folder = ROOT if in_source_tree else self.scratch
        self.environment = self._environment(server_port)
        self._install(build)

    def _environment(self, port):
        return {
            "DEBIAN_FRONTEND": "noninteractive",
            "HOME": str(self.home),
            "LC_ALL": "C.UTF-8",
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "PGDATABASE": "postgres",
            "PGHOST": "localhost",
            "PGPASSWORD": "secret",
            "PGPORT": str(port),
            "PGUSER": "dorvy",
            "QT_QPA_PLATFORM": "offscreen",
            "TZ": "UTC",
        }

    def _install(self, build):
        # Where the machine has another driver for PostgreSQL, its reader has not.
        for other in pathlib.Path("/usr/lib").glob("*/qt5/plugins/sqldrivers/libqsqlpsql.so"):
            other.unlink()
        self.run(["cmake", "--install", build], cwd=ROOT)
        sudo = pathlib.Path("/usr/bin/sudo")
        if not sudo.exists():
            sudo.write_text('#!/bin/sh\nexec "$@"\n', encoding="ascii")
            sudo.chmod(0o755)

        # The documents' server is nowhere, and not looked for.
        with open("/etc/hosts", "a", encoding="ascii") as hosts:
            hosts.write("\n127.0.0.2 db.example\n")

        # What apt asks, a reader answers.
        apt = pathlib.Path("/etc/apt/apt.conf.d/99documents")
        apt.write_text('APT::Get::Assume-Yes "true";\n', encoding="ascii")

    def run(self, command, cwd=None, text=None, seconds=600):
        """Runs a command to its end and returns its output, both streams as they came; raises if it
        fails."""
        done = subprocess.run(
            command, cwd=cwd or self.folder, env=self.environment, input=text or "", text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=seconds, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"ended with {done.returncode}:\n{done.stdout}")
        return done.stdout

    def write(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

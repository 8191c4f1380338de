# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""What the code of a document finds round it: a system with the driver installed that nothing can harm, an
empty folder, a server."""

import os
import pathlib
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
    points = (line.split()[4].replace("\\040", " ") for line in lines)
    return [point for point in points if point.startswith(f"{folder}/")]


def lay_over(folder, upper):
    """What is written into folder goes into upper. The layer is on one file system and would hide what is
    mounted below: a container's /etc/hosts, say. Files of those are copied, folders are there as they were."""
    for part in ("changes", "work", "before"):
        (upper / part).mkdir(parents=True)
    mount("--rbind", folder, f"{upper}/before")
    hidden = mounts_below(folder)
    mount("-t", "overlay", "overlay", "-o",
          f"lowerdir={folder},upperdir={upper}/changes,workdir={upper}/work", folder)
    for point in hidden:
        before = upper / "before" / os.path.relpath(point, folder)
        if before.is_dir():
            mount("--bind", str(before), point)
        else:
            shutil.copyfile(before, point)


class World:
    """Lies in an empty folder, and vanishes with the mount namespace; .folder is where the blocks run."""

    def __init__(self, place, build, server_port, in_source_tree):
        mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", place)
        place = pathlib.Path(place)
        for folder in (*LAYERED, str(ROOT)):
            lay_over(folder, place / "layers" / folder.strip("/").replace("/", "-"))
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
            hosts.write("127.0.0.2 db.example\n")

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

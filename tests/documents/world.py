# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""What the code of a document finds round it: a system with the driver installed that nothing can harm, an
empty folder, a server."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What installing something, or building in the source tree, may write to.
LAYERED = ("/etc", "/opt", "/usr", "/var")
SCRATCH = pathlib.Path("/mnt/dorvy-documents")


def enter_namespace(arguments):
    """Replaces this process by one in a mount namespace of its own, where it is root."""
    as_root = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    os.execvp("unshare", ["unshare", *as_root, "--mount", "--propagation", "private", *arguments])


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def lay_over(folder, upper):
    """What is written into folder goes into upper."""
    for part in ("changes", "work"):
        (upper / part).mkdir(parents=True)
    mount("-t", "overlay", "overlay", "-o",
          f"lowerdir={folder},upperdir={upper}/changes,workdir={upper}/work", str(folder))


class World:
    """Its folders vanish with the mount namespace; .folder is where the blocks run."""

    def __init__(self, build, server_port, in_source_tree):
        mount("-t", "tmpfs", "tmpfs", "/mnt")
        layers = SCRATCH / "layers"
        for folder in (*LAYERED, str(ROOT)):
            lay_over(folder, layers / folder.strip("/").replace("/", "-"))
        self.scratch = SCRATCH / "scratch"
        self.home = SCRATCH / "home"
        self.build = SCRATCH / "build"
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
        self.run(["cmake", "--install", build], cwd=ROOT)
        sudo = pathlib.Path("/usr/bin/sudo")
        if not sudo.exists():
            sudo.write_text('#!/bin/sh\nexec "$@"\n', encoding="ascii")
            sudo.chmod(0o755)

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

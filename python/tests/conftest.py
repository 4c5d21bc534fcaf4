"""Fixtures of the tests, which run as root of a private namespace: tests/support/in_namespace."""
from __future__ import annotations

import os
import pathlib
import signal
import subprocess
import sys
import textwrap
from collections.abc import Iterator
from typing import Any

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
HELPER = pathlib.Path("/usr/varnis/stowline/bin/ixfs")
LOOPBACK = HELPER.with_name("ixfs-loopback")
STORE = pathlib.Path("/usr/varnis/var/ixfs-loopback")
MOUNT_BASE = pathlib.Path("/usr/varnis/var/ixfs")
MOUNT_CRED = "mount-secret"
UNMOUNT_CRED = "unmount-secret"


class Host:
    """The namespace, with the stand-in helper and its store."""

    def arguments(self, server: str = "media1", **changes: Any) -> dict[str, Any]:
        """The arguments that mount() and prepare() share. The server exists afterwards."""
        (STORE / server / "backups").mkdir(parents=True, exist_ok=True)
        return {"server": server, "port": 40100, "mount_cred": MOUNT_CRED,
                "unmount_cred": UNMOUNT_CRED, "timeout": 0, **changes}

    def control(self, name: str, text: str) -> None:
        """Sets a control file of the stand-in, such as "umount/status"."""
        file = STORE / ".control" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text + "\n")

    def calls(self) -> list[str]:
        """The commands that the helper was called with: "mount" or "umount"."""
        file = STORE / ".control/calls"
        return [line.split()[0] for line in file.read_text().splitlines()] if file.exists() else []

    def script(self, lines: str) -> None:
        """Runs lines of a shell in front of the stand-in. $1 is the command."""
        HELPER.unlink()
        HELPER.write_text(f"#!/bin/sh\n{textwrap.dedent(lines)}\nexec {LOOPBACK} \"$@\"\n")
        HELPER.chmod(0o755)

    def mounts(self) -> list[str]:
        """What is mounted below the mount base."""
        table = pathlib.Path("/proc/self/mountinfo").read_text()
        points = [line.split()[4] for line in table.splitlines()]
        return [point for point in points if point.startswith(f"{MOUNT_BASE}/")]

    def clear(self) -> None:
        for point in reversed(self.mounts()):
            subprocess.run(["umount", "--lazy", point], check=True)
        subprocess.run(["rm", "-rf", STORE / ".control", *STORE.glob("media*"), HELPER, MOUNT_BASE],
                       check=True)
        HELPER.symlink_to(LOOPBACK)


@pytest.fixture(scope="session", autouse=True)
def _private_namespace() -> None:
    if not (os.geteuid() == 0 and HELPER.exists() and STORE.is_dir()):
        pytest.exit("run this with tests/support/in_namespace --helper IXFS_LOOPBACK", returncode=2)
    if not LOOPBACK.exists():
        HELPER.rename(LOOPBACK)
        HELPER.symlink_to(LOOPBACK)


@pytest.fixture
def host() -> Iterator[Host]:
    """A host on which nothing is mounted, before the test and after it."""
    host = Host()
    host.clear()
    yield host
    host.clear()


class Sample:
    """The sample VM's image on a server of its own."""

    server = "sample"

    def __init__(self) -> None:
        made = subprocess.run([ROOT / "tests/support/make_sample_image", "--small",
                               STORE / self.server], check=True, capture_output=True, text=True)
        self.backup_id, *self.disks = made.stdout.splitlines()
        self.image = STORE / self.server / self.disks[0].partition("] ")[2].partition("/vm1")[0]

    def arguments(self, **changes: Any) -> dict[str, Any]:
        return {"server": self.server, "port": 40100, "schedule": 0, "timeout": 0,
                "mount_cred": MOUNT_CRED, "unmount_cred": UNMOUNT_CRED,
                "backup_id": self.backup_id, "disks": self.disks, **changes}


@pytest.fixture(scope="session")
def sample_image() -> Sample:
    return Sample()


@pytest.fixture
def sample(host: Host, sample_image: Sample) -> Iterator[Sample]:
    """The sample VM, without a view."""
    yield sample_image
    subprocess.run(["rm", "-rf", sample_image.image / "_vmir"], check=True)


class Program:
    """A Python program that runs to its end, and what it printed."""

    def __init__(self, source: str, *arguments: str) -> None:
        # SIGINT is at its default, whatever the tests' caller ignores.
        run = subprocess.run([sys.executable, "-c", textwrap.dedent(source), *arguments],
                             capture_output=True, text=True, timeout=60, check=False,
                             preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        self.status = run.returncode
        self.output = run.stdout
        self.errors = run.stderr

"""A host on which a test brings about what operators see, and runs the commands of a page.

In a namespace of its own (tests/support/in_namespace), with ixfs-loopback as the mount helper and the
tools in the PATH.
"""
import contextlib
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

import documented_commands

ROOT = pathlib.Path(__file__).resolve().parents[2]
HELPER = pathlib.Path("/usr/varnis/stowline/bin/ixfs")
MOUNTS = pathlib.Path("/usr/varnis/var/ixfs")
STORE = pathlib.Path("/usr/varnis/var/ixfs-loopback")
CONTROL = STORE / ".control"
SERVER = "media1"
MASTER = "master"  # the image that each test gets a copy of
DEADLINE = 60  # seconds; only a test that fails waits that long


def wait_until(condition, what):
    end = time.monotonic() + DEADLINE
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited in vain: {what}")
        time.sleep(0.01)
    return result


def is_mounted():
    table = pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8")
    return any(line.split()[4] == str(MOUNTS / SERVER) for line in table.splitlines())


def helpers(command=""):
    """The processes that run the mount helper, or a command of it, in this mount namespace."""
    front = f"{HELPER}\0{command}".encode()
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):  # it has ended
            if (process / "cmdline").read_bytes().startswith(front) and \
                    os.readlink(process / "ns/mnt") == os.readlink("/proc/self/ns/mnt"):
                found.append(int(process.name))
    return found


class TroubledHost(unittest.TestCase):
    maxDiff = None
    page: pathlib.Path

    @classmethod
    def setUpClass(cls):
        cls.helper = HELPER.read_bytes()
        if not (STORE / MASTER).exists():
            subprocess.run([ROOT / "tests/support/make_sample_image", "--small", STORE / MASTER],
                           check=True, capture_output=True)
        cls.image = next((STORE / MASTER).glob("backups/*/allusers/full/*")).relative_to(
            STORE / MASTER)
        cls.backup_id = f"{cls.image.parts[1]}_{cls.image.name}"
        cls.blocks = documented_commands.read_blocks(cls.page)

    def setUp(self):
        self.values = {"SERVER": SERVER}
        self.disks = [f"[nfs_ds] {self.image}/{name}.vmdk.desc"
                      for name in ("vm1/disk", "vm1_1/disk", "vm1/data-000001")]
        self.files = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.addCleanup(self.clear)
        shutil.copytree(STORE / MASTER, STORE / SERVER)
        for command in "mount", "umount":
            (CONTROL / command).mkdir(parents=True)
            (self.files / command).write_text(f"{command}-secret\n", encoding="utf-8")
        self.processes = contextlib.ExitStack()
        self.addCleanup(self.processes.close)

    def clear(self):
        for helper in helpers():
            os.kill(helper, signal.SIGKILL)
        wait_until(lambda: not helpers(), "helpers end")
        while is_mounted():
            subprocess.run(["umount", MOUNTS / SERVER], check=True)
        for folder in MOUNTS, STORE / SERVER, CONTROL:
            if folder.is_dir():
                shutil.rmtree(folder)
            else:
                folder.unlink(missing_ok=True)
        HELPER.unlink(missing_ok=True)  # one that still ends cannot be written to
        HELPER.write_bytes(self.helper)
        HELPER.chmod(0o755)

    def control(self, file, text):
        """Steers the helper; see the README.md of ixfs-loopback."""
        (CONTROL / file).write_text(f"{text}\n", encoding="utf-8")

    def image_options(self):
        return ["--server", SERVER, "--port", "40100", "--schedule", "full",
                "--backup-id", self.backup_id, "--timeout", "0",
                "--mount-cred-file", str(self.files / "mount"),
                "--unmount-cred-file", str(self.files / "umount")]

    def disk_options(self):
        return [word for disk in self.disks for word in ("--disk", disk)]

    def start(self, *more):
        """A preparation, in a process group of its own, that ends with the test."""
        process = subprocess.Popen(["ixfs-prepare", *self.image_options(), *self.disk_options(), *more], text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   stdin=subprocess.DEVNULL, start_new_session=True)
        self.processes.callback(process.stdout.close)
        self.processes.callback(process.wait)
        self.processes.callback(process.kill)
        return process

    def prepare(self, *more):
        """Returns exit status and output of a preparation."""
        process = self.start(*more)
        output, _ = process.communicate(timeout=DEADLINE)
        return process.returncode, output

    def run_documented(self, case, exit_status):
        """Runs the commands that the page gives for a case, and checks what they print."""
        block, = (block for block in self.blocks if block.case == case)
        self.run_block(block, exit_status)

    def run_block(self, block, exit_status):
        self.values["IMAGE"] = shlex.join(self.image_options())
        self.values["DISKS"] = shlex.join(self.disk_options())
        result = subprocess.run(["bash", "-c", block.script(self.values)], text=True, check=False,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                stdin=subprocess.DEVNULL, timeout=DEADLINE)
        about = f"\n{block.commands}printed, with exit status {result.returncode}:\n{result.stdout}"
        self.assertEqual(result.returncode, exit_status, about)
        missing = block.missing_line(result.stdout, self.values)
        self.assertIsNone(missing, f"not printed, or not there: {missing}{about}")

"""Brings about each symptom of docs/troubleshooting.md, runs the commands that the page gives for
it, and checks that they print what the page shows, and that they help."""
import ctypes
import os
import signal
import subprocess
import unittest
from pathlib import Path

from troubled_host import CONTROL, HELPER, MOUNTS, ROOT, SERVER, STORE
from troubled_host import TroubledHost, helpers, is_mounted, wait_until


def use_up_semaphores():
    """All but one set, which is enough for the mount mutex."""
    private, only_owner = 0, 0o600
    library = ctypes.CDLL(None)
    while (semaphores := library.semget(private, 1, only_owner)) != -1:
        last = semaphores
    subprocess.run(["ipcrm", "--semaphore-id", str(last)], check=True)


def shows(*cases):
    """Marks a test with the cases of the page that it runs."""
    def mark(test):
        test.cases = set(cases)
        return test
    return mark


def descendants(pid):
    found = []
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/children", encoding="ascii") as children:
            for child in map(int, children.read().split()):
                found += [child, *descendants(child)]
    return found


def sleeps(pid):
    nanosleep, clock_nanosleep = "35", "230"
    return Path(f"/proc/{pid}/syscall").read_text().split()[0] in (nanosleep, clock_nanosleep)


class Troubleshooting(TroubledHost):
    page = ROOT / "docs/troubleshooting.md"

    def prepare_fails(self, status):
        exit_status, output = self.prepare()
        self.assertEqual(exit_status, 1, output)
        self.assertIn(f"status {status}", output)

    def prepare_succeeds(self):
        exit_status, output = self.prepare()
        self.assertEqual(exit_status, 0, output)

    def start_hanging(self, command):
        """Returns a preparation whose helper hangs."""
        self.control(f"{command}/hang", 1000)
        preparation = self.start()
        wait_until(lambda: any(map(sleeps, helpers(command))), f"the helper's {command} hangs")
        (CONTROL / command / "hang").unlink()
        return preparation

    @shows("waits: look", "waits: end")
    def test_waits(self):
        first = self.start_hanging("mount")
        second = self.start()
        # "waits" only once it is in the semaphore's queue, which the line before does not tell.
        wait_until(lambda: "wait" in subprocess.run(
            ["ixfsctl", "status"], capture_output=True, text=True, check=False).stdout,
            "the second preparation waits")
        self.run_documented("waits: look", 0)
        self.values["PID"], = map(str, helpers())
        self.run_documented("waits: end", 0)
        self.assertIn("status 11", first.communicate()[0])
        output = second.communicate()[0]
        self.assertEqual(second.returncode, 0, output)

    @shows("11")
    def test_11(self):
        HELPER.unlink()
        self.prepare_fails(11)
        self.run_documented("11", 0)

    @shows("20: look", "20: put right")
    def test_20(self):
        self.prepare_succeeds()
        self.disks[:2] = reversed(self.disks[:2])
        self.prepare_fails(20)
        self.run_documented("20: look", 0)
        self.run_documented("20: put right", 0)

    @shows("29")
    def test_29(self):
        self.control("mount/status", 20)
        self.run_documented("29", 0)

    @shows("35")
    def test_35(self):
        if MOUNTS.is_dir():
            MOUNTS.rmdir()
        MOUNTS.touch()
        self.prepare_fails(35)
        self.run_documented("35", 0)

    @shows("142")
    def test_142(self):
        (STORE / SERVER / self.image / "vm1_1/disk.vmdk").unlink()
        self.run_documented("142", 1)

    @shows("158")
    def test_158(self):
        self.addCleanup(subprocess.run, ["ipcrm", "--all=sem"], check=True)
        use_up_semaphores()
        self.prepare_fails(158)
        self.run_documented("158", 0)

    @shows("still mounted")
    def test_still_mounted(self):
        self.control("umount/keep", "")
        exit_status, output = self.prepare("--json")
        self.assertEqual(exit_status, 3, output)
        self.assertIn('"still_mounted": true', output)
        self.run_documented("still mounted", 0)
        self.assertFalse(is_mounted())

    @shows("disk: look", "disk: put right")
    def test_disk(self):
        self.prepare_succeeds()
        del self.disks[0]
        self.prepare_fails(20)
        self.run_documented("disk: look", 0)
        self.run_documented("disk: put right", 0)

    @shows("already exists")
    def test_already_exists(self):
        exit_status, output = self.prepare()
        self.assertEqual(exit_status, 0, output)
        line = f"INF - Create mount dir {MOUNTS}/{SERVER} already exists."
        self.assertIn(line, output)
        self.run_documented("already exists", 0)

    @shows("killed: look", "killed: clean")
    def test_killed(self):
        for command in "mount", "umount":
            with self.subTest(command):
                preparation = self.start_hanging(command)
                family = {preparation.pid, *descendants(preparation.pid)}
                for pid in family - set(helpers()):
                    os.kill(pid, signal.SIGKILL)
                preparation.wait()
                self.run_documented("killed: look", 1)
                self.run_documented("killed: clean", 0)
                self.prepare_succeeds()

    def test_each_block_of_the_page_is_run(self):
        tests = (getattr(self, name) for name in dir(self) if name.startswith("test_"))
        tested = set().union(*(getattr(test, "cases", set()) for test in tests))
        self.assertEqual({block.case for block in self.blocks}, tested)


if __name__ == "__main__":
    unittest.main()

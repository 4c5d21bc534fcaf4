"""ixfs-prepare@.service as it is installed: what it starts, where the result lies, how it stops.

    service_test.py BUILD_DIR     in a namespace with the stand-in helper
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

from service_manager import Service, read_unit

ROOT = pathlib.Path(__file__).resolve().parents[3]
STORE = pathlib.Path("/usr/varnis/var/ixfs-loopback")
CONTROL = STORE / ".control"
MOUNT_BASE = "/usr/varnis/var/ixfs/"
SETTINGS = pathlib.Path("/etc/ixfs/prepare")
RESULTS = pathlib.Path("/run/ixfs-prepare")

# systemd.exec(5): with these the service would have a mount or IPC namespace of its own.
NAMESPACE_SETTINGS = {
    "BindPaths", "BindReadOnlyPaths", "DynamicUser", "ExecPaths", "ExtensionDirectories",
    "ExtensionImages", "InaccessiblePaths", "IPCNamespacePath", "LogNamespace", "MountFlags",
    "MountImages", "NoExecPaths", "PrivateDevices", "PrivateIPC", "PrivateMounts",
    "PrivateNetwork", "PrivateTmp", "PrivateUsers", "ProcSubset", "ProtectControlGroups",
    "ProtectHome", "ProtectHostname", "ProtectKernelLogs", "ProtectKernelModules",
    "ProtectKernelTunables", "ProtectProc", "ProtectSystem", "ReadOnlyPaths", "ReadWritePaths",
    "RootDirectory", "RootImage", "TemporaryFileSystem", "User"}


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def wait_until(condition):
    last = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < last, "it did not come true"
        time.sleep(0.002)


def take_folders():
    """Gives this namespace an /etc and a /run of its own, on which nothing is seen outside."""
    run("mount", "-t", "tmpfs", "-o", "mode=755", "service_test", "/run")
    for folder in ("/run/upper", "/run/work"):
        os.mkdir(folder)
    run("mount", "-t", "overlay", "-o", "lowerdir=/etc,upperdir=/run/upper,workdir=/run/work",
        "service_test", "/etc")


def install(prefix):
    """The installed unit, and the folder of results as systemd makes it when the host starts."""
    run("cmake", "--install", sys.argv[1], "--component", "runtime", "--prefix", prefix)
    run("cmake", "--install", sys.argv[1], "--component", "tools", "--prefix", prefix)
    (unit,) = pathlib.Path(prefix).rglob("ixfs-prepare@.service")
    (folders,) = pathlib.Path(prefix).rglob("tmpfiles.d/ixfs-prepare.conf")
    run("systemd-tmpfiles", "--create", folders)
    return unit


def mounts():
    table = pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8")
    return [line for line in table.splitlines() if line.split()[4].startswith(MOUNT_BASE)]


def calls():
    file = CONTROL / "calls"
    return [line.split()[0] for line in file.read_text().splitlines()] if file.exists() else []


def helpers():
    """Processes that run the helper."""
    found = []
    for file in pathlib.Path("/proc").glob("[0-9]*/exe"):
        try:
            if os.readlink(file) == "/usr/varnis/stowline/bin/ixfs" and os.path.samefile(
                    f"/proc/{file.parent.name}/ns/mnt", "/proc/self/ns/mnt"):
                found.append(file.parent.name)
        except OSError:
            continue
    return found


class ServiceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        take_folders()
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.unit = install(folder.name)
        backup_id, *disks = run(ROOT / "tests/support/make_sample_image", "--small",
                                STORE / "media1").splitlines()
        cls.vm = {"server": "media1", "port": 4010, "schedule": "full", "backup_id": backup_id,
                  "disks": disks}

    def setUp(self):
        SETTINGS.mkdir(parents=True)
        self.addCleanup(run, "rm", "-rf", SETTINGS, CONTROL)
        self.write("web.json", json.dumps(self.vm))
        self.write("web.mount-cred", "m0unt")
        self.write("web.unmount-cred", "unm0unt")
        for command, credential in (("mount", "m0unt"), ("umount", "unm0unt")):
            self.control(f"{command}/credential", credential)
        self.service = Service(self.unit, "web")
        self.addCleanup(self.service.kill)

    def tearDown(self):
        self.assertEqual(mounts(), [])
        self.assertEqual(helpers(), [])

    def write(self, name, line):
        (SETTINGS / name).write_text(line + "\n", encoding="utf-8")

    def control(self, name, text):
        (CONTROL / name).parent.mkdir(parents=True, exist_ok=True)
        (CONTROL / name).write_text(text + "\n", encoding="utf-8")

    def results(self, instance="web"):
        text = (RESULTS / f"{instance}.jsonl").read_text(encoding="utf-8")
        return [json.loads(line) for line in text.splitlines()]

    def run_service(self):
        self.service.start()
        return self.service.wait()

    def test_systemd_finds_no_fault(self):
        found = subprocess.run(["systemd-analyze", "verify", "--man=no", self.unit],
                               capture_output=True, text=True, check=False)
        self.assertEqual((found.returncode, found.stdout + found.stderr), (0, ""))

    def test_mounts_and_locks_are_those_of_the_host(self):
        self.assertEqual(read_unit(self.unit)["Service"].keys() & NAMESPACE_SETTINGS, set())

    def test_prepares_the_vm(self):
        status, errors = self.run_service()
        self.assertEqual(status, 0, errors)
        result, summary = self.results()
        self.assertEqual((result["status"], len(result["paths"])), (0, len(self.vm["disks"])))
        self.assertEqual(summary["summary"]["prepared"], 1)
        self.assertEqual(calls(), ["mount", "umount"])

    def test_nobody_else_reads_the_result(self):
        self.assertEqual(RESULTS.stat().st_mode & 0o777, 0o700)

    def test_the_log_has_neither_times_nor_credentials(self):
        _, errors = self.run_service()
        self.assertRegex(errors.splitlines()[0], r"^INF \[media1 ")
        self.assertNotIn("m0unt", errors)

    def test_a_new_start_replaces_the_result(self):
        self.run_service()
        self.control("mount/status", "29")
        status, errors = self.run_service()
        self.assertEqual(status, 1, errors)
        result, _ = self.results()
        self.assertEqual(result["status"], 29)

    def test_a_stop_while_it_mounts_unmounts_and_is_no_success(self):
        hang = CONTROL / "mount/hang"
        os.mkfifo(hang)
        self.service.start()
        wait_until(lambda: calls() == ["mount"])
        with open(hang, "w", encoding="ascii") as seconds:
            self.service.stop()
            wait_until(lambda: "finishing; the image will be unmounted" in self.service.errors())
            seconds.write("0\n")
        status, errors = self.service.wait()
        self.assertEqual(status, 143, errors)
        result, _ = self.results()
        self.assertEqual((result["status"], result["signal"]), (0, 15))
        self.assertEqual(calls(), ["mount", "umount"])

    def test_a_mount_that_stays_is_a_failure(self):
        self.control("umount/keep", "")
        status, errors = self.run_service()
        self.assertEqual(status, 3, errors)
        self.assertIn("ixfsctl clean --server media1", errors)
        run("umount", MOUNT_BASE + "media1")

    def test_only_exit_status_0_is_a_success(self):
        settings = read_unit(self.unit)["Service"].keys()
        self.assertFalse({name for name in settings if name.startswith("SuccessExit")})

    def test_an_empty_credential_is_refused(self):
        self.write("web.unmount-cred", "")
        status, errors = self.run_service()
        self.assertEqual(status, 2, errors)
        self.assertEqual((self.results(), calls()), ([], []))

    def test_settings_reach_no_shell(self):
        self.write("web.json", json.dumps({**self.vm, "server": "media1;touch${IFS}/run/x"}))
        status, errors = self.run_service()
        self.assertEqual(status, 2, errors)
        self.assertEqual(calls(), [])

    def test_a_name_that_systemd_escapes_names_the_files(self):
        instance = run("systemd-escape", "web server").strip()
        for kind in ("json", "mount-cred", "unmount-cred"):
            (SETTINGS / f"web.{kind}").rename(SETTINGS / f"{instance}.{kind}")
        self.service = Service(self.unit, instance)
        status, errors = self.run_service()
        self.assertEqual(status, 0, errors)
        self.assertEqual(self.results(instance)[0]["status"], 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

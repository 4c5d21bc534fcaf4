"""The examples, run as their readers run them."""
import os
import signal
import subprocess
import sys

import pytest
from conftest import MOUNT_CRED, ROOT, STORE, UNMOUNT_CRED, Host, Sample


def run(name: str, *arguments: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, ROOT / "examples" / name, *arguments], text=True,
                          input=f"{MOUNT_CRED}\n{UNMOUNT_CRED}\n", capture_output=True, check=False)


def test_mount_lists_the_clients(host: Host) -> None:
    host.arguments()
    (STORE / "media1/backups/vm2").mkdir()
    (STORE / "media1/backups/vm1").mkdir()
    ran = run("mount.py", "media1", "40100")
    assert (ran.returncode, ran.stdout, ran.stderr) == (0, "vm1\nvm2\n", "")
    assert host.calls() == ["mount", "umount"]


def test_mount_unmounts_when_it_is_terminated(host: Host) -> None:
    host.arguments()
    host.script('[ "$1" != mount ] || kill -TERM "$(cat /usr/varnis/pid)"')
    shell = 'echo $$ >/usr/varnis/pid; exec "$0" "$@"'
    ran = subprocess.run(["sh", "-c", shell, sys.executable, ROOT / "examples/mount.py", "media1",
                          "40100"], text=True, input="a\nb\n", capture_output=True, check=False,
                         preexec_fn=lambda: signal.signal(signal.SIGTERM, signal.SIG_DFL))
    os.unlink("/usr/varnis/pid")
    assert (ran.returncode, ran.stdout, ran.stderr) == (143, "", "")
    assert host.calls() == ["mount", "umount"]
    assert host.mounts() == []


def test_prepare_prints_configuration_and_paths(host: Host, sample: Sample) -> None:
    ran = run("prepare.py", "sample", "40100", sample.backup_id, *sample.disks)
    configuration = (sample.image / "^^.^VIRTUAL_FILE_FSMAP").read_text().rstrip("\0")
    view = "[nfs_ds] backups/sample-client/allusers/full/1700000000/_vmir"
    assert (ran.returncode, ran.stderr) == (0, "")
    assert ran.stdout == configuration + "".join(
        f"{view}/{name}.vmdk\n" for name in ("disk", "disk(1)", "data"))


@pytest.mark.parametrize("arguments", [["mount.py"], ["prepare.py", "vm1_1", "[d] backups/a"]])
def test_both_refuse_what_the_shell_would_run(host: Host, arguments: list[str]) -> None:
    name, *image = arguments
    ran = run(name, "media1;touch${IFS}/usr/varnis/ran", "40100", *image)
    assert ran.returncode == 2
    assert ran.stderr.startswith("refused: server: only letters")
    assert not os.path.exists("/usr/varnis/ran")
    assert host.calls() == []


@pytest.mark.parametrize("arguments", [["mount.py"], ["prepare.py", "vm1_1", "[d] backups/a"]])
def test_both_tell_where_they_look_for_the_library(
        monkeypatch: pytest.MonkeyPatch, arguments: list[str]) -> None:
    monkeypatch.setenv("IXFS_LIBRARY", "/nowhere/libixfs.so.1")
    name, *image = arguments
    ran = run(name, "media1", "40100", *image)
    assert ran.returncode == 1
    assert ran.stderr.startswith("not ")
    assert "set LD_LIBRARY_PATH to its folder" in ran.stderr
    assert "Traceback" not in ran.stderr


@pytest.mark.parametrize("name, status", [("mount.py", 1), ("prepare.py", 1)])
def test_both_tell_a_failure_without_a_credential(
        host: Host, sample: Sample, name: str, status: int) -> None:
    host.control("mount/status", "20")
    host.script(f'echo "ERR {MOUNT_CRED} {UNMOUNT_CRED}"')
    image = [sample.backup_id, *sample.disks] if name == "prepare.py" else []
    ran = run(name, "sample", "40100", *image)
    assert ran.returncode == status
    assert "mount helper failed (status 29)" in ran.stderr
    assert "-secret" not in ran.stderr


@pytest.mark.parametrize("name", ["mount.py", "prepare.py"])
def test_both_tell_what_is_still_mounted(host: Host, sample: Sample, name: str) -> None:
    host.control("umount/keep", "")
    image = [sample.backup_id, *sample.disks] if name == "prepare.py" else []
    ran = run(name, "sample", "40100", *image)
    assert ran.returncode == 3
    assert "still mounted: /usr/varnis/var/ixfs/sample" in ran.stderr

"""examples/mass-recovery on two hosts, which are namespaces of this machine.

    mass_recovery_test.py IXFS_LOOPBACK IXFS_PREPARE
"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

LOOPBACK, PREPARE = sys.argv[1:3]
ROOT = pathlib.Path(__file__).resolve().parents[2]
SUPPORT = ROOT / "tests/support"
SECRETS = ["mount-secret", "unmount-secret", "mount-secret-2", "unmount-secret-2"]

# Notes how the job keeps its credentials. Kills the whole job instead of the mount that the file
# "deadly" counts down to.
HELPER = """#!/bin/bash
store=/usr/varnis/var/ixfs-loopback
stat --format=%a /run/ixfs-mass-recovery >>"$store/modes"
ls /run/ixfs-mass-recovery >>"$store/beside"
grep -rs secret HOME/.ansible /run >>"$store/files"
job=() pid=$PPID
while ((pid > 1)); do
    read -r _ name _ parent _ <"/proc/$pid/stat"
    if [[ $name == "(ixfs-prepare)" || $name == "(flock)" ]]; then
        job=("$pid" "${job[@]}") # the first process first: it would replace a worker that dies
        cat "/proc/$pid/cmdline" >>"$store/commands"
    fi
    pid=$parent
done
if [[ $1 == mount && -e $store/deadly ]]; then
    left=$(<"$store/deadly")
    echo $((left - 1)) >"$store/deadly"
    if ((left == 1)); then
        kill -KILL "${job[@]}"
        exit 1
    fi
fi
exec LOOPBACK "$@"
"""


ODD = "{{7*6}}"  # a client's name that Ansible must not take for a template


class Host:
    """A namespace with the stand-in helper, a store and a /run of its own."""

    def __init__(self, folder, images):
        self.store = folder / "store"
        shutil.copytree(images, self.store)
        helper = folder / "helper"
        helper.write_text(HELPER.replace("LOOPBACK", LOOPBACK).replace("HOME", str(folder.parent)))
        self._holder = subprocess.Popen(
            [SUPPORT / "in_namespace", "--helper", helper, "--store", self.store, "sh", "-c",
             "mount -t tmpfs run /run && echo ready && exec sleep infinity"],
            stdout=subprocess.PIPE)
        assert self._holder.stdout.readline() == b"ready\n"
        user = [] if os.geteuid() == 0 else ["--user", "--preserve-credentials"]
        self._enter = ["nsenter", f"--target={self._holder.pid}", *user, "--mount", "--ipc"]
        self.python = folder / "python3"
        self.python.write_text("#!/bin/sh\nexec " + " ".join(self._enter) + ' /usr/bin/python3 "$@"\n')
        self.python.chmod(0o755)

    def close(self):
        self._holder.stdout.close()
        self._holder.kill()
        self._holder.wait()

    def run(self, *command):
        return subprocess.run([*self._enter, *command], stdout=subprocess.PIPE, text=True,
                              check=False).stdout

    def mounts(self):
        """Server and credential of each mount since the last call, in their order."""
        calls = self.store / ".control/calls"
        lines = calls.read_text().splitlines() if calls.exists() else []
        calls.unlink(missing_ok=True)
        calls = [line.split() for line in lines if line.startswith("mount")]
        return [(words[2], words[words.index("-cred") + 1]) for words in calls]


def make_images(folder):
    """VMs of three servers. Returns the list, which also has one of media3, where nothing is."""
    output = subprocess.run([SUPPORT / "make_sample_image", "--small", folder / "media1"],
                            stdout=subprocess.PIPE, text=True, check=True).stdout
    backup_id, disk = output.splitlines()[:2]
    backups = folder / "media1/backups"
    shutil.copytree(backups / "sample-client", backups / "second")
    shutil.copytree(backups / "second", backups / ODD)
    shutil.copytree(folder / "media1", folder / "media2")
    shutil.copytree(backups / "second", folder / "media2/backups/third")
    shutil.copytree(backups / "second", folder / "copy/backups/second")
    vms = []
    for server, clients in (("media1", ["sample-client", "second"]),
                            ("media2", ["sample-client", "second", "third"]),
                            ("media3", [ODD]), ("copy", ["second"])):  # Python's dictionaries have a copy
        for client in clients:
            vms.append({"server": server, "backup_id": backup_id.replace("sample-client", client),
                        "disks": [disk.replace("sample-client", client)], "timeout": 0})
    return vms


class MassRecovery(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        images = self.folder / "images"
        images.mkdir()
        self.vms = make_images(images)
        self.hosts = []
        for name in ("first", "second"):
            (self.folder / name).mkdir()
            self.hosts.append(Host(self.folder / name, images))
            self.addCleanup(self.hosts[-1].close)
        self.write_settings()

    def write_settings(self):
        no_ssh = self.folder / "no_ssh"
        no_ssh.write_text("#!/bin/sh\nexit 255\n")
        no_ssh.chmod(0o755)
        hosts = {"gone": {"ansible_connection": "ssh", "ansible_ssh_executable": str(no_ssh)}}
        for name, host in zip(("first", "second"), self.hosts):
            hosts[name] = {"ansible_connection": "local",
                           "ansible_python_interpreter": str(host.python)}
        (self.folder / "inventory.json").write_text(json.dumps({"recovery": {"hosts": hosts}}))
        (self.folder / "vms.jsonl").write_text("".join(json.dumps(vm) + "\n" for vm in self.vms))
        credentials = {"default": {"mount": SECRETS[0], "unmount": SECRETS[1]},
                       "media2": {"mount": SECRETS[2], "unmount": SECRETS[3]}}
        (self.folder / "settings.json").write_text(json.dumps({
            "ixfs_credentials": credentials, "ixfs_prepare": PREPARE, "jobs": 1,
            "vm_list": str(self.folder / "vms.jsonl"),
            "results_file": str(self.folder / "results.jsonl")}))
        (self.folder / "results.jsonl.hosts").write_text('{"copy second_1700000000": "gone"}')

    def recover(self, *arguments):
        """Exit status and output of the playbook."""
        environment = os.environ | {
            "HOME": str(self.folder), "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_REMOTE_TMP": str(self.folder / ".ansible/tmp"),
            "LC_ALL": "C.UTF-8", "ANSIBLE_DEPRECATION_WARNINGS": "0"}
        result = subprocess.run(
            ["/usr/bin/ansible-playbook", "-vvv", "--diff", "-i", self.folder / "inventory.json",
             "-e", f"@{self.folder / 'settings.json'}", *arguments,
             ROOT / "examples/mass-recovery/recover.yml"],
            env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return result.returncode, result.stdout

    def results(self):
        lines = (self.folder / "results.jsonl").read_text().splitlines()
        return [json.loads(line) for line in lines]

    def outcome(self):
        return [(entry["server"], entry["backup_id"].split("_")[0], entry["status"], entry["host"])
                for entry in self.results()]

    def assert_credentials_stay_hidden(self, output):
        for secret in SECRETS:
            self.assertNotIn(secret, output)
        for host in self.hosts:
            self.assertEqual(set((host.store / "modes").read_text().split()), {"700"})
            self.assertEqual(set((host.store / "beside").read_text().split()), {"lock", "results"})
            self.assertNotIn("secret", (host.store / "commands").read_text())
            self.assertEqual((host.store / "files").read_text(), "")
            self.assertEqual(host.run("ls", "/run/ixfs-mass-recovery"), "lock\n")

    def test_refuses_what_would_leave_hosts_out(self):
        for arguments in (["--check"], ["--limit", "first"]):
            status, output = self.recover(*arguments)
            self.assertEqual(status, 2, output)
            self.assertIn("works neither with --check nor with --limit", output)
        (self.folder / "inventory.json").write_text('{"recovery": {"hosts": {}}}')
        status, output = self.recover()
        self.assertEqual(status, 2, output)
        self.assertIn("no host in the group", output)
        self.assertEqual([host.mounts() for host in self.hosts], [[], []])

    def test_what_a_dying_host_leaves_is_done_by_another(self):
        first, second = self.hosts
        (first.store / "deadly").write_text("2\n")
        status, output = self.recover()
        self.assertEqual(status, 2, output)
        self.assertNotIn("reserved name", output)  # of a variable
        self.assertIn(f"media3 {ODD}_1700000000: mount helper failed (29) on first", output)
        self.assertIn("copy second_1700000000: in doubt, its host may still be at work", output)
        self.assertEqual(self.outcome(), [
            ("media1", "sample-client", 0, "second"), ("media1", "second", 0, "second"),
            ("media2", "sample-client", 0, "first"), ("media2", "second", 0, "second"),
            ("media2", "third", 0, "second"), ("media3", ODD, 29, "first")])
        ours, theirs = "mount-secret", "mount-secret-2"
        self.assertEqual(first.mounts(), [("media2", theirs), ("media3", ours)])
        self.assertEqual(second.mounts(), [("media1", ours), ("media1", ours), ("media3", ours),
                                           ("media2", theirs), ("media2", theirs)])
        self.assert_credentials_stay_hidden(output)

        for host in self.hosts:
            shutil.copytree(self.folder / "images/media1", host.store / "media3")
        status, output = self.recover("-e", '{"dead_hosts": ["gone"]}')
        self.assertEqual(status, 0, output)
        self.assertEqual([entry[2] for entry in self.outcome()], [0] * len(self.vms))
        self.assertEqual(sorted(first.mounts() + second.mounts()),
                         [("copy", ours), ("media3", ours)])
        self.assert_credentials_stay_hidden(output)


if __name__ == "__main__":
    del sys.argv[1:]
    unittest.main()

#!/usr/bin/python3
"""What a user might write in place of the library: prepares a VM's disks in Python.

    prepare.py HELPER SERVER PORT BACKUP_ID < DISKS

Standard input holds the disks in datastore form, one a line. Prints those of the view. It checks
nothing and locks nothing.
"""
import os
import re
import subprocess
import sys

EXTENT = re.compile(rb"^(RW .*?) VMFS .*\n", re.MULTILINE)
SNAPSHOT_SUFFIX = re.compile(r"-.{6}$")


def run_helper(*arguments):
    run = subprocess.run(arguments, stdout=subprocess.PIPE, text=True, check=True)
    return dict(line.split("=", 1) for line in run.stdout.splitlines() if "=" in line)


def unique(base, used):
    name, number = base, 0
    while name in used:
        number += 1
        name = f"{base}({number})"
    used.add(name)
    return name


def copy_descriptor(old, new, data_name):
    with open(old, "rb") as file:
        text = file.read()
    extent = rb'\1 VMFS "' + data_name.encode() + b'"\r\n'
    with open(new, "wb") as file:
        file.write(EXTENT.sub(extent, text, count=1))


def main():
    helper, server, port, backup_id = sys.argv[1:]
    client, _, time = backup_id.rpartition("_")
    image = f"backups/{client}/allusers/full/{time}"
    directory = f"/usr/varnis/var/ixfs/{server}"

    os.makedirs(directory, exist_ok=True)
    connection = ["-server", server, "-port", port, "-cred"]
    answers = run_helper(helper, "mount", *connection, "mount-cred", directory)
    mount_point = answers["MOUNTPOINT"]
    view = f"{mount_point}/{image}/_vmir"
    os.makedirs(view, exist_ok=True)
    used = set()
    for disk in sys.stdin.read().splitlines():
        datastore = disk[: disk.index("]") + 1]
        descriptor = disk[disk.index("backups", len(datastore)) :]
        base = os.path.basename(descriptor).removesuffix(".vmdk.desc")
        name = unique(SNAPSHOT_SUFFIX.sub("", base), used)
        data_name = f"{name}-flat.vmdk"
        copy_descriptor(f"{mount_point}/{descriptor}", f"{view}/{name}.vmdk", data_name)
        os.link(f"{mount_point}/{descriptor.removesuffix('.desc')}", f"{view}/{data_name}")
        print(f"{datastore} {image}/_vmir/{name}.vmdk")
    run_helper(helper, "umount", "-f", *connection, "unmount-cred", mount_point)


main()

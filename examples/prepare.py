#!/usr/bin/python3
"""Prepares a VM for instant recovery:

    prepare.py SERVER PORT BACKUP_ID DISK... < CREDENTIALS

Standard input holds the credential for the mount and that for the unmount, one a line. A DISK is a
descriptor in datastore form: "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc".
"""
import logging
import sys

import ixfs


def main() -> int:
    try:
        server, port, backup_id, *disks = sys.argv[1:]
        mount_cred, unmount_cred = sys.stdin.read().splitlines()
    except ValueError:
        print("usage: prepare.py SERVER PORT BACKUP_ID DISK... < CREDENTIALS", file=sys.stderr)
        return 2
    # Each line tells whose it is, and its level is right also where its severity misleads.
    # Credentials are masked.
    logging.basicConfig(level=logging.WARNING, format="%(levelname)s %(message)s")
    try:
        prepared = ixfs.prepare(server=server, port=int(port), schedule=ixfs.Schedule.FULL,
                                mount_cred=mount_cred, unmount_cred=unmount_cred,
                                backup_id=backup_id, disks=disks, new_disk_uuids=True, timeout=30)
    except ValueError as error:  # such as a server name that the shell would run
        print(f"refused: {error}", file=sys.stderr)
        return 2
    except ixfs.UnmountError as error:  # the VM is prepared: error.result
        print(f"prepared, but {error}", file=sys.stderr)
        return 3
    except (ixfs.IxfsError, ixfs.LibraryNotFound) as error:
        print(f"not prepared: {error}", file=sys.stderr)
        return 1
    sys.stdout.buffer.write(prepared.configuration)
    print(*prepared.paths, sep="\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())

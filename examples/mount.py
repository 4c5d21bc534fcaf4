#!/usr/bin/python3
"""Mounts a server's backup image, lists the clients that it holds backups of, and unmounts it:

    mount.py SERVER PORT < CREDENTIALS

Standard input holds the credential for the mount and that for the unmount, one a line.
"""
import logging
import signal
import sys

import ixfs


def main() -> int:
    try:
        server, port = sys.argv[1:]
        mount_cred, unmount_cred = sys.stdin.read().splitlines()
    except ValueError:
        print("usage: mount.py SERVER PORT < CREDENTIALS", file=sys.stderr)
        return 2
    logging.basicConfig(level=logging.WARNING, format="%(levelname)s %(message)s")
    # SIGTERM ends the block, too, and so unmounts; SIGINT does by itself.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        with ixfs.mount(server=server, port=int(port), mount_cred=mount_cred,
                        unmount_cred=unmount_cred, timeout=30) as path:
            for client in sorted((path / "backups").iterdir()):
                print(client.name)
    except ValueError as error:  # such as a server name that the shell would run
        print(f"refused: {error}", file=sys.stderr)
        return 2
    except ixfs.UnmountError as error:
        print(f"not unmounted: {error}", file=sys.stderr)
        return 3
    except (ixfs.IxfsError, ixfs.LibraryNotFound) as error:
        print(f"not mounted: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

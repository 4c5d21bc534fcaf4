"""What is mounted in this process's mount namespace."""
import os
import re

_ESCAPE = re.compile(rb"\\([0-7]{3})")


def _mount_points() -> list[str]:
    with open("/proc/self/mountinfo", "rb") as table:
        fields = [line.split(b" ") for line in table]
    return [os.fsdecode(_ESCAPE.sub(lambda code: bytes([int(code[1], 8)]), line[4]))
            for line in fields]


def mounts_in(*folders: str) -> tuple[str, ...]:
    """Returns the mount points at or below the folders, in the kernel's order.

    Reads the table alone: a mount that hangs does not hang this.
    """
    return tuple(point for point in _mount_points()
                 if any(point == folder or point.startswith(folder + "/") for folder in folders))

"""Checks of arguments, before the library is called.

The library passes server name and credentials through the shell unquoted, and makes folders of some
of its arguments. The rules are those of the command ixfs-prepare. No message repeats a value that
may be a secret.
"""
import os
import string
from collections.abc import Iterable

_ALLOWED = frozenset(string.ascii_letters + string.digits + "._:=+/@%-")
_LONGEST_NAME = 255
# The library cuts a helper command line at 1,023 bytes. The rest of it comes to less than 123.
_LONGEST_COMMAND_PART = 900
_LONGEST_TIMEOUT = 2**32 - 1


def _text(name: str, value: object) -> str:
    if not isinstance(value, str):
        raise TypeError(f"{name} must be a str, not {type(value).__name__}")
    if not value:
        raise ValueError(f"{name} must not be empty")
    if "\0" in value:
        raise ValueError(f"{name} must not hold a NUL")
    return value


def _helper_argument(name: str, value: object) -> str:
    text = _text(name, value)
    if text.startswith("-"):
        raise ValueError(
            f'{name} must not begin with "-", which the mount helper would take for an option')
    if not _ALLOWED.issuperset(text):
        raise ValueError(f"{name}: only letters, digits and ._:=+/@%- are allowed, since the mount "
                         "helper is run through the shell")
    return text


def check_server(value: object) -> str:
    name = _helper_argument("server", value)
    if name in (".", "..") or "/" in name:
        raise ValueError('server must not be "." or ".." or hold a "/", since it becomes the name '
                         "of the mount directory")
    if "=" in name:
        raise ValueError('server must not hold a "=", since the mount helper reports it as a part '
                         "of the mount point, which begins behind the last one")
    if len(name) > _LONGEST_NAME:
        raise ValueError(
            f"server is longer than a directory name may be ({_LONGEST_NAME} bytes)")
    return name


def check_credential(name: str, value: object, server: str) -> str:
    credential = _helper_argument(name, value)
    if 2 * len(server) + len(credential) > _LONGEST_COMMAND_PART:
        raise ValueError(f"server and {name} are too long for the helper's command line: twice the "
                         f"one and the other must not exceed {_LONGEST_COMMAND_PART} bytes")
    return credential


def check_number(name: str, value: object, lowest: int, highest: int) -> int:
    if not isinstance(value, int) or isinstance(value, bool):
        raise TypeError(f"{name} must be an int, not {type(value).__name__}")
    if not lowest <= value <= highest:
        raise ValueError(f"{name} must be from {lowest} to {highest}")
    return value


def check_port(value: object) -> int:
    return check_number("port", value, 1, 65535)


def check_timeout(value: object) -> int:
    return check_number("timeout", value, 0, _LONGEST_TIMEOUT)


def check_backup_id(value: object) -> bytes:
    text = _text("backup_id", value)
    if "/" in text:
        raise ValueError('backup_id must not hold a "/", since it becomes a directory name')
    if text.startswith(".._"):
        raise ValueError('the client of backup_id must not be "..", which leads out of the backups')
    return os.fsencode(text)


def _check_disk(name: str, value: object) -> bytes:
    text = _text(name, value)
    behind_datastore = text.partition("]")[2].lstrip(" ")
    if ".." in text.split("/") or ".." in behind_datastore.split("/"):
        raise ValueError(f'{name} must not hold a ".." segment')
    return os.fsencode(text)


def check_disks(values: object) -> list[bytes]:
    if isinstance(values, (str, bytes)) or not isinstance(values, Iterable):
        raise TypeError(f"disks must be a list of str, not {type(values).__name__}")
    disks = [_check_disk(f"disks[{index}]", disk) for index, disk in enumerate(values)]
    if not disks:
        raise ValueError("disks must not be empty")
    if len(set(disks)) < len(disks):
        again = next(index for index, disk in enumerate(disks) if disk in disks[:index])
        raise ValueError(f"disks[{again}] is given twice")
    return disks

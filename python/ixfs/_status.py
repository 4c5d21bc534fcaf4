"""The library's statuses."""
import enum

from . import _library


class Status(enum.IntEnum):
    """What a call of the library came to. The numbers are those of ec_status in ixfs.h."""

    OK = 0
    FOLDER_NOT_CREATED = 1
    NO_MEMORY = 10
    SYSTEM_ERROR = 11
    FILE_NOT_OPENED = 12
    FILE_NOT_READ = 13
    FILE_NOT_COPIED = 14
    INVALID_PARAMETER = 20
    SERVER_BUSY = 25
    HELPER_FAILED = 29
    MOUNT_DIRECTORY = 35
    VIEW_NOT_CREATED = 36
    NO_HANDLE = 103
    FILE_NOT_FOUND = 142
    VIEW_NOT_LOCKED = 158
    INVALID_SCHEDULE = 223
    ALREADY_MOUNTED = 226

    @property
    def text(self) -> str:
        """The status in words, such as "file not found". Loads the library."""
        return text_of(self)


def text_of(number: int) -> str:
    """Returns a status in words, also one that this package does not know."""
    text: bytes | None = _library.load().ixfs_status_text(number)
    return f"unknown status {number}" if text is None else text.decode("ascii")


def known(number: int) -> int:
    """Returns the Status with this number; the number itself if there is none."""
    try:
        return Status(number)
    except ValueError:
        return number

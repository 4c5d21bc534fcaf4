"""What the package raises when the library fails."""
from __future__ import annotations

from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from ._log import LogLine
    from ._prepare import Prepared


class LibraryNotFound(OSError):
    """libixfs cannot be loaded. The text says what to do."""


class IxfsError(Exception):
    """A call of the library failed.

    what           what was tried, such as "mount of media1"
    status         the library's status: a Status, or a plain int that Status does not have
    text           the status in words
    log_lines      the last lines that were logged during the call (at most 1,000), credentials
                   masked
    still_mounted  what the mount table shows after the call: mount points at or below the server's
                   mount directory. Something else may have mounted there, too. Look at it with
                   `findmnt PATH`; unmount what nobody uses with `umount PATH`
    """

    def __init__(self, what: str, status: int, text: str, log_lines: tuple[LogLine, ...] = (),
                 still_mounted: tuple[str, ...] = ()) -> None:
        super().__init__(what, status, text, log_lines, still_mounted)
        self.what = what
        self.status = status
        self.text = text
        self.log_lines = log_lines
        self.still_mounted = still_mounted

    def __str__(self) -> str:
        told = f"{self.what}: {self.text} (status {int(self.status)})"
        problems = [line for line in self.log_lines if line.is_error]
        if problems:
            told += f"; last error logged: {problems[-1]}"
        if self.still_mounted:
            told += "; still mounted: " + ", ".join(self.still_mounted)
        return told


class MountError(IxfsError):
    """Nothing was mounted for the caller.

    A helper that fails may leave its mount behind, which nothing here can take off: see
    still_mounted.
    """


class UnmountError(IxfsError):
    """The unmount failed, or the mount table shows something mounted after it.

    In the second case the status may be Status.OK: the library takes some failed unmounts for
    success. After a preparation `result` is what it came to; else it is None.
    """

    result: Prepared | None = None


class PrepareError(IxfsError):
    """The VM was not prepared."""

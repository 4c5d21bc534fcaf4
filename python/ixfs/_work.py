"""What the library is busy with for this process: mounts that are open, calls that run.

Whatever is noted here is kept, with its callback, until the library is done with it; and it is
ended when the interpreter exits.
"""
import atexit
import itertools
import os
import threading

from ._errors import IxfsError

_numbers = itertools.count(1)
_all: dict[int, "Work"] = {}
_exiting = False


class _Process:
    """Stands for this process; a forked child has another one."""


_this_process = _Process()


def _begin_child() -> None:
    global _this_process
    _this_process = _Process()


class Work:
    """One handle of the library, or a call that makes its own.

    `lock` is held while the library works on it: one thread uses a handle at a time.
    """

    def __init__(self) -> None:
        self.number = next(_numbers)
        self.lock = threading.Lock()
        self._process = _this_process

    @property
    def is_inherited(self) -> bool:
        """Whether it is a parent's. Then the lock says nothing: its holder may not be here."""
        return self._process is not _this_process

    def keep(self) -> None:
        """Notes the work. Raises RuntimeError if the interpreter exits: nothing would end it."""
        _all[self.number] = self
        if _exiting:
            self.forget()
            raise RuntimeError("the interpreter is exiting, nothing can be mounted any more")

    def forget(self) -> None:
        _all.pop(self.number, None)

    def end(self) -> IxfsError | None:
        """Waits for a call that runs, and unmounts. Returns what went wrong. May be called again,
        and on any thread."""
        with self.lock:
            return None


def _end_all() -> None:
    global _exiting
    _exiting = True
    failures = [work.end() for work in list(_all.values()) if not work.is_inherited]
    told = [failure for failure in failures if failure is not None]
    if told:
        # Of a group that leaves here, Python shows the text alone.
        raise ExceptionGroup("; ".join(map(str, told)), told)


os.register_at_fork(after_in_child=_begin_child)
atexit.register(_end_all)

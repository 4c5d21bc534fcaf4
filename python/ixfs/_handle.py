"""A handle of the library with its mount."""
import os

from . import _library
from ._connection import Connection
from ._errors import MountError, UnmountError
from ._log import Log
from ._signals import handlers_deferred
from ._status import Status, known, text_of
from ._work import Work


class Handle(Work):
    """Made before the mount, so that whatever happens to the caller, somebody owns the mount."""

    def __init__(self, connection: Connection) -> None:
        super().__init__()
        self._connection = connection
        self._library = _library.load()
        self._log = Log(self.number, connection.server, connection.secrets)
        self._pointer: int | None = None
        self._mount_point: str | None = None
        self.failure: UnmountError | None = None  # of the unmount

    @property
    def is_open(self) -> bool:
        return self._pointer is not None

    def mount(self) -> str:
        """Mounts, and returns the mount point. Raises MountError."""
        with handlers_deferred(), self.lock:
            self.keep()
            try:
                self._mount_point = self._mount()
            except BaseException:
                self._free()
                raise
            return self._mount_point

    def _mount(self) -> str:
        it = self._connection
        self._pointer = self._library.ixfs_init(_library.FLAG_UNMOUNT_CRED, None,
                                                self._log.callback, None, None)
        if self._pointer is None:
            raise MemoryError("no memory for a handle of libixfs")
        mount_point: bytes | None = self._library.ixfs_mount(
            self._pointer, it.mount_cred.encode(), it.unmount_cred.encode(), it.port,
            it.server.encode(), it.timeout, None)
        if mount_point is None:
            status = known(self._library.ixfs_last_error(self._pointer))
            raise MountError(f"mount of {it.server}", status, text_of(status), self._log.lines(),
                             it.still_mounted())
        return os.fsdecode(mount_point)

    def end(self) -> UnmountError | None:
        """Unmounts, looks whether it did, and frees the handle. In a forked child only frees it."""
        if self.is_inherited:
            self._free()
            return None
        with handlers_deferred(), self.lock:
            if self._pointer is not None:
                try:
                    self.failure = self._unmount()
                finally:
                    self._free()
        return self.failure

    def _unmount(self) -> UnmountError | None:
        it = self._connection
        self._log.begin_call()
        status = known(self._library.ixfs_unmount(self._pointer))
        left = it.still_mounted(self._mount_point)
        if status == Status.OK and not left:
            return None
        text = text_of(status) if status != Status.OK else "still mounted"
        return UnmountError(f"unmount of {it.server}", status, text, self._log.lines(), left)

    def _free(self) -> None:
        # A child that is forked meanwhile must not free it once more.
        pointer, self._pointer = self._pointer, None
        if pointer is not None:
            self._library.ixfs_term(pointer)
        # Only now does the library call the callback no more.
        self.forget()

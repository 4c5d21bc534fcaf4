"""Mounting an image for as long as a `with` block runs."""
import _thread
import pathlib
import warnings
from types import TracebackType

from ._connection import Connection
from ._errors import UnmountError
from ._handle import Handle


class Mount:
    """A context manager that mount() makes. It is entered once."""

    def __init__(self, connection: Connection) -> None:
        self._connection = connection
        self._handle: Handle | None = None

    def __repr__(self) -> str:
        return f"<ixfs.Mount {self._connection!r}>"

    def __enter__(self) -> pathlib.Path:
        """Mounts. Returns the mount point; raises MountError."""
        if self._handle is not None:
            raise RuntimeError("a Mount can be entered only once; call ixfs.mount() again")
        self._handle = Handle(self._connection)
        try:
            return pathlib.Path(self._handle.mount())
        except BaseException as error:
            # Such as KeyboardInterrupt, when the mount was just made.
            self._end(error)
            raise

    def __exit__(self, _kind: type[BaseException] | None, error: BaseException | None,
                 _trace: TracebackType | None) -> None:
        """Unmounts. Raises UnmountError, or adds it as a note to the block's exception."""
        failure = self._end(error)
        if failure is not None and error is None:
            raise failure

    def _end(self, error: BaseException | None) -> UnmountError | None:
        assert self._handle is not None
        try:
            failure = self._handle.end()
        except BaseException as interruption:
            # A signal's handler came in when the unmount was over. What that came to is told, too.
            if self._handle.failure is not None:
                interruption.add_note(str(self._handle.failure))
            raise
        if failure is not None and error is not None:
            error.add_note(str(failure))
        return failure

    def __del__(self) -> None:
        """Unmounts what no `with` block ended: an exception of a signal's handler can come before
        __exit__ has begun."""
        handle = getattr(self, "_handle", None)
        if handle is None or not handle.is_open:
            return
        if handle.is_inherited:
            handle.end()
            return
        warnings.warn(f"{self!r} was not ended; unmounting it", ResourceWarning, source=self)
        try:
            # Not here: garbage is collected anywhere, also in a log handler that holds its lock.
            _thread.start_new_thread(_end_and_tell, (handle,))
        except RuntimeError:
            pass  # no thread to be had: the exit unmounts


def _end_and_tell(handle: Handle) -> None:
    failure = handle.end()
    if failure is not None:
        raise failure  # sys.unraisablehook shows it


def mount(*, server: str, port: int, mount_cred: str, unmount_cred: str,
          timeout: int = 60) -> Mount:
    """Returns a context manager that mounts a server's backup image.

        with ixfs.mount(server="media1", port=4010, mount_cred=a, unmount_cred=b) as path:
            ...  # path is a pathlib.Path: the mount point; the images are in path / "backups"

    server        the media server's name
    port          1 to 65535
    mount_cred    the credential for the mount
    unmount_cred  the credential for the unmount
    timeout       for how many seconds to try again while the server is too busy: 0 means one try,
                  more than 60 counts as 60. It does not end a helper that hangs

    Server name and credentials go through the shell: letters, digits and ._:=+/@%- are allowed, no
    "-" in front, in a server name neither "=" nor "/". The function raises ValueError or TypeError
    for other arguments. It mounts nothing: entering the block does.

    Entering raises MountError, or LibraryNotFound. Leaving the block unmounts, whatever ended it,
    and then reads the mount table. It raises UnmountError if the unmount failed or something is
    still mounted on the server's mount directory; while another exception is on its way, that one
    gets a note instead. Allow one mount per server and host at a time: all share one directory.

    While the mount is open, a thread of the library looks every 300 seconds whether it still holds
    "backups", and logs that.
    """
    return Mount(Connection(server, port, mount_cred, unmount_cred, timeout))

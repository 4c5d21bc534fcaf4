"""Preparing a VM for instant recovery."""
import ctypes
import dataclasses
import enum
import os
from collections.abc import Iterable

from . import _library
from ._checks import check_backup_id, check_disks, check_number
from ._connection import Connection
from ._errors import PrepareError, UnmountError
from ._log import Log, shown
from ._signals import handlers_deferred
from ._status import Status, known, text_of
from ._work import Work


class Schedule(enum.IntEnum):
    """The kind of backup that made an image. The library takes 4 for incremental, too."""

    FULL = 0
    INCREMENTAL = 1


@dataclasses.dataclass(frozen=True)
class Prepared:
    """A VM that is prepared.

    configuration  the VM's configuration, the bytes of the image's file up to its first NUL. If it
                   is XML, its first line names the encoding: xml.etree.ElementTree.fromstring takes
                   it as it is
    paths          the new descriptors in datastore form, in the order of the disks
    """

    configuration: bytes
    paths: tuple[str, ...]


def _check_schedule(value: object) -> int:
    number = check_number("schedule", value, 0, 4)
    if number not in (0, 1, 4):
        raise ValueError("schedule must be Schedule.FULL or Schedule.INCREMENTAL")
    return number


def _result_of(record: _library.PrepareResult) -> Prepared:
    configuration = ctypes.string_at(record.configuration, record.configuration_length)
    return Prepared(configuration,
                    tuple(os.fsdecode(record.paths[index]) for index in range(record.path_count)))


def _request(connection: Connection, schedule: int, backup_id: bytes, disks: list[bytes],
             new_disk_uuids: bool, log: Log) -> _library.PrepareRequest:
    return _library.PrepareRequest(
        size=ctypes.sizeof(_library.PrepareRequest),
        server=connection.server.encode(),
        mount_cred=connection.mount_cred.encode(),
        unmount_cred=connection.unmount_cred.encode(),
        backup_id=backup_id,
        disks=(ctypes.c_char_p * len(disks))(*disks),
        disk_count=len(disks),
        port=connection.port,
        schedule_type=schedule,
        timeout=connection.timeout,
        new_disk_uuids=int(new_disk_uuids),
        log_callback=log.callback,
    )


class _Preparation(Work):
    """One call of the library, which makes and ends its own handle."""

    def __init__(self, connection: Connection) -> None:
        super().__init__()
        self._connection = connection
        self._library = _library.load()
        self.log = Log(self.number, connection.server, connection.secrets)

    def run(self, request: _library.PrepareRequest) -> Prepared:
        with handlers_deferred(), self.lock:
            self.keep()
            try:
                record = self._library.ixfs_prepare(ctypes.byref(request))
            finally:
                self.forget()
            if not record:
                raise MemoryError("no memory for a preparation's result")
            try:
                return self._look_at(record.contents)
            finally:
                self._library.ixfs_prepare_result_free(record)

    def _look_at(self, record: _library.PrepareResult) -> Prepared:
        server = self._connection.server
        status = known(record.status)
        left = self._connection.still_mounted()
        if status != Status.OK:
            reason = self.log.mask(shown(record.error or b""))
            raise PrepareError(f"preparation from {server}", status,
                               reason or text_of(status), self.log.lines(), left)
        result = _result_of(record)
        if left:
            failure = UnmountError(f"unmount of {server}", status, "still mounted",
                                   self.log.lines(), left)
            failure.result = result
            raise failure
        return result


def prepare(*, server: str, port: int, schedule: int, mount_cred: str, unmount_cred: str,
            backup_id: str, disks: Iterable[str], new_disk_uuids: bool = False,
            timeout: int = 60) -> Prepared:
    """Prepares a VM for instant recovery.

    Mounts the image, reads the VM's configuration, builds the view of its disks in the image,
    unmounts.

    schedule        the kind of backup that made the image, a Schedule
    backup_id       the image, "<client>_<time>"
    disks           the disks' descriptors in datastore form, such as
                    "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc"
    new_disk_uuids  whether each new descriptor gets a disk UUID of its own

    The other arguments are those of mount(). Wrong ones raise ValueError or TypeError; so do a "/"
    in the backup id, a ".." segment in a disk, and a disk that is given twice. Nothing is mounted
    then.

    Returns what is prepared; the view stays in the image, in its folder "_vmir".

    Raises PrepareError with the status of the first step that failed. If a disk failed, the whole
    view folder is gone. Raises UnmountError if all went well, but something is mounted on the
    server's mount directory afterwards: its `result` is what is prepared. Raises LibraryNotFound.

    Waits without a limit while another mount or unmount of the host is in progress, and up to 20
    seconds for the configuration to appear in the image. See ixfs_prepare_vmir in ixfs_vmir.h.
    """
    connection = Connection(server, port, mount_cred, unmount_cred, timeout)
    checked = _check_schedule(schedule), check_backup_id(backup_id), check_disks(disks)
    preparation = _Preparation(connection)
    return preparation.run(_request(connection, *checked, bool(new_disk_uuids), preparation.log))

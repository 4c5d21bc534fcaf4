"""Reads stored backup images and prepares VMs for instant recovery, through libixfs.

    with ixfs.mount(server="media1", port=4010, mount_cred=..., unmount_cred=...) as path:
        print(sorted(os.listdir(path / "backups")))

    prepared = ixfs.prepare(server="media1", port=4010, schedule=ixfs.Schedule.FULL,
                            mount_cred=..., unmount_cred=..., backup_id="vm1_1700000000",
                            disks=["[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc"])
    print(prepared.configuration, prepared.paths)

A failure is an IxfsError with the status, its text and the log lines of the call. A wrong argument
is a ValueError or TypeError, before anything is done. No exception, log line or repr of this
package shows a credential of four characters or more.

Log lines go to the logger "ixfs" while the call runs, and later from the library's own thread. Each
record has the attributes `handle` (a number that no other mount or preparation of this process
has), `server`, `tag` and `severity`. Nothing is shown until the program sets up logging. A handler
or filter must not call this package; and a program that holds a lock while a mount begins or ends
must not take the same lock in a handler.

Threads: every function may be called on any thread, several at once. The calls wait without a limit
while another mount or unmount of the host is in progress. They release the interpreter's lock.

Signals: a call is never cut short. Python's signal handlers, and so KeyboardInterrupt, come when it
is over; a mount that was just made is then unmounted.

Exit: mounts that are open when the interpreter exits are unmounted, and preparations on daemon
threads are waited for. A process that a signal kills does not exit: its mounts stay. A program that
is to unmount after SIGTERM sets a handler for it that raises, such as
`signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))`.

Fork: a mount belongs to the process that made it. A forked child may read in it, and unmounts
nothing, neither where its `with` ends nor when it exits.
"""
from ._errors import IxfsError, LibraryNotFound, MountError, PrepareError, UnmountError
from ._library import library_version
from ._log import LogLine
from ._mount import Mount, mount
from ._prepare import Prepared, Schedule, prepare
from ._status import Status

__all__ = [
    "IxfsError",
    "LibraryNotFound",
    "LogLine",
    "Mount",
    "MountError",
    "Prepared",
    "PrepareError",
    "Schedule",
    "Status",
    "UnmountError",
    "library_version",
    "mount",
    "prepare",
]

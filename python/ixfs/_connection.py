"""How to reach a server: the arguments that a mount and a preparation share."""
import os
from typing import Final

from ._checks import check_credential, check_port, check_server, check_timeout
from ._mount_table import mounts_in

_MOUNT_BASE: Final = "/usr/varnis/var/ixfs"


class Connection:
    """A server and the credentials for it, checked. Its repr shows no credential."""

    def __init__(self, server: object, port: object, mount_cred: object, unmount_cred: object,
                 timeout: object) -> None:
        self.server = check_server(server)
        self.port = check_port(port)
        self.mount_cred = check_credential("mount_cred", mount_cred, self.server)
        self.unmount_cred = check_credential("unmount_cred", unmount_cred, self.server)
        self.timeout = check_timeout(timeout)

    def __repr__(self) -> str:
        return f"server={self.server!r}, port={self.port}"

    @property
    def secrets(self) -> tuple[str, str]:
        return self.mount_cred, self.unmount_cred

    def still_mounted(self, mount_point: str | None = None) -> tuple[str, ...]:
        """Returns what is mounted at or below the server's mount directory and the mount point."""
        directory = os.path.join(_MOUNT_BASE, self.server)
        return mounts_in(directory, mount_point or directory)

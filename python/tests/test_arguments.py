"""Wrong arguments are refused before anything is done."""
from typing import Any

import pytest
from conftest import Host, Sample

import ixfs


@pytest.mark.parametrize("change, told", [
    ({"server": ""}, "server must not be empty"),
    ({"server": "media1;id"}, "through the shell"),
    ({"server": "media1 -cred"}, "through the shell"),
    ({"server": "m\u00e9dia"}, "through the shell"),
    ({"server": "media1\n"}, "through the shell"),
    ({"server": "media\0"}, "server must not hold a NUL"),
    ({"server": "-f"}, "option"),
    ({"server": "."}, "mount directory"),
    ({"server": ".."}, "mount directory"),
    ({"server": "site/media1"}, "mount directory"),
    ({"server": "media1=data"}, "mount point"),
    ({"server": "m" * 256}, "directory name"),
    ({"port": 0}, "port must be from 1 to 65535"),
    ({"port": 65536}, "port must be from 1 to 65535"),
    ({"timeout": -1}, "timeout must be from 0"),
    ({"timeout": 2**32}, "timeout must be from 0"),
    ({"mount_cred": ""}, "mount_cred must not be empty"),
    ({"mount_cred": "hush$(id)"}, "mount_cred: only letters"),
    ({"unmount_cred": "-hush"}, "unmount_cred must not begin"),
    ({"unmount_cred": "hu\0sh"}, "unmount_cred must not hold a NUL"),
    ({"unmount_cred": "hush" * 300}, "too long for the helper's command line"),
])
def test_values_that_are_refused(host: Host, change: dict[str, Any], told: str) -> None:
    arguments = host.arguments() | change
    with pytest.raises(ValueError, match=told) as caught:
        ixfs.mount(**arguments)
    assert "hush" not in str(caught.value)
    with pytest.raises(ValueError, match=told) as caught:
        ixfs.prepare(**arguments, schedule=0, backup_id="a_1", disks=["[d] backups/b.vmdk.desc"])
    assert "hush" not in str(caught.value)
    assert host.calls() == []


@pytest.mark.parametrize("change", [
    {"server": b"media1"}, {"port": "40100"}, {"port": True}, {"timeout": 1.5},
    {"mount_cred": b"hush"}, {"unmount_cred": None},
])
def test_types_that_are_refused(host: Host, change: dict[str, Any]) -> None:
    with pytest.raises(TypeError, match=f"{next(iter(change))} must be") as caught:
        ixfs.mount(**host.arguments() | change)
    assert "hush" not in str(caught.value)


@pytest.mark.parametrize("change, error, told", [
    ({"schedule": 2}, ValueError, "schedule must be Schedule.FULL"),
    ({"schedule": "full"}, TypeError, "schedule must be an int"),
    ({"backup_id": ""}, ValueError, "backup_id must not be empty"),
    ({"backup_id": "../x_1"}, ValueError, "backup_id must not hold"),
    ({"backup_id": ".._1"}, ValueError, "client of backup_id"),
    ({"disks": []}, ValueError, "disks must not be empty"),
    ({"disks": "[d] backups/a.vmdk.desc"}, TypeError, "disks must be a list"),
    ({"disks": [b"[d] backups/a.vmdk.desc"]}, TypeError, r"disks\[0\] must be a str"),
    ({"disks": ["a", "b\0"]}, ValueError, r"disks\[1\] must not hold a NUL"),
    ({"disks": ["a", ""]}, ValueError, r"disks\[1\] must not be empty"),
    ({"disks": ["[d] backups/../a"]}, ValueError, r"disks\[0\] must not hold a \"..\" segment"),
    ({"disks": ["[d] ../backups/a"]}, ValueError, r"disks\[0\] must not hold a \"..\" segment"),
    ({"disks": ["a", "b", "a"]}, ValueError, r"disks\[2\] is given twice"),
])
def test_images_that_are_refused(host: Host, sample: Sample, change: dict[str, Any],
                                 error: type[Exception], told: str) -> None:
    with pytest.raises(error, match=told):
        ixfs.prepare(**sample.arguments() | change)
    assert host.calls() == []


def test_values_at_the_edges_are_taken(host: Host) -> None:
    server = "media1"
    longest = "c" * (900 - 2 * len(server))
    with ixfs.mount(**host.arguments(server, unmount_cred=longest, port=65535)):
        pass
    with ixfs.mount(**host.arguments(server, mount_cred="a.B_9:=+/@%-", timeout=2**32 - 1)):
        pass

"""prepare(), on the sample image."""
import pytest
from conftest import MOUNT_CRED, UNMOUNT_CRED, Host, Sample
from test_mount import shown

import ixfs
from ixfs import _library
from ixfs._connection import Connection
from ixfs._prepare import _Preparation


def test_returns_configuration_and_paths(host: Host, sample: Sample) -> None:
    prepared = ixfs.prepare(**sample.arguments())
    stored = (sample.image / "^^.^VIRTUAL_FILE_FSMAP").read_bytes()
    assert stored.endswith(b"\0")
    assert prepared.configuration == stored.rstrip(b"\0")
    view = "[nfs_ds] backups/sample-client/allusers/full/1700000000/_vmir"
    assert prepared.paths == (f"{view}/disk.vmdk", f"{view}/disk(1).vmdk", f"{view}/data.vmdk")
    assert (sample.image / "_vmir/data-flat.vmdk").samefile(sample.image / "vm1/data-000001.vmdk")
    assert host.mounts() == []


@pytest.mark.parametrize("new", [False, True])
def test_gives_new_disk_uuids_where_asked(host: Host, sample: Sample, new: bool) -> None:
    def uuid_of(descriptor: str) -> list[str]:
        text = (sample.image / descriptor).read_text()
        return [line.strip() for line in text.splitlines() if line.startswith("ddb.uuid")]

    ixfs.prepare(**sample.arguments(), new_disk_uuids=new)
    assert len(uuid_of("_vmir/disk.vmdk")) == 1
    assert (uuid_of("_vmir/disk.vmdk") != uuid_of("vm1/disk.vmdk.desc")) == new


def test_takes_any_iterable_of_disks(host: Host, sample: Sample) -> None:
    assert len(ixfs.prepare(**sample.arguments(disks=iter(sample.disks[:1]))).paths) == 1


def test_names_of_any_bytes_go_there_and_back(host: Host, sample: Sample) -> None:
    name = "\udcff\udcfeA"  # bytes that are no UTF-8, as os.fsdecode shows them
    for ending in (".vmdk", ".vmdk.desc"):
        original = sample.image / f"vm1/disk{ending}"
        (sample.image / f"vm1/{name}{ending}").write_bytes(original.read_bytes())
    disk = sample.disks[0].replace("vm1/disk", f"vm1/{name}")
    try:
        prepared = ixfs.prepare(**sample.arguments(disks=[disk]))
        assert prepared.paths[0].endswith(f"/_vmir/{name}.vmdk")
    finally:
        for file in (sample.image / "vm1").glob(f"{name}*"):
            file.unlink()


def test_a_failure_has_status_text_and_lines(host: Host, sample: Sample) -> None:
    disk = sample.disks[0].replace("vm1/disk", "vm1/missing")
    with pytest.raises(ixfs.PrepareError) as caught:
        ixfs.prepare(**sample.arguments(disks=[disk]))
    assert caught.value.status is ixfs.Status.FILE_NOT_FOUND
    assert "file not found" in str(caught.value)
    assert any("vm1/missing.vmdk" in line.message for line in caught.value.log_lines)
    assert host.mounts() == []


def test_the_librarys_own_words_are_kept(host: Host) -> None:
    """It has some where the cause is no status, such as an exception beneath."""
    preparation = _Preparation(Connection("media1", 1, MOUNT_CRED, UNMOUNT_CRED, 0))
    words = f"no random numbers for {MOUNT_CRED}".encode()
    with pytest.raises(ixfs.PrepareError) as caught:
        preparation._look_at(_library.PrepareResult(status=11, error=words))
    assert caught.value.status is ixfs.Status.SYSTEM_ERROR
    assert caught.value.text == "no random numbers for ***"


def test_a_mount_that_fails_is_a_failure_of_the_preparation(host: Host, sample: Sample) -> None:
    host.control("mount/status", "20")
    host.script(f'echo "no access with {MOUNT_CRED} or {UNMOUNT_CRED}"')
    with pytest.raises(ixfs.PrepareError) as caught:
        ixfs.prepare(**sample.arguments())
    assert caught.value.status is ixfs.Status.HELPER_FAILED
    text = shown(caught.value)
    assert "no access with *** or ***" in text
    assert MOUNT_CRED not in text
    assert UNMOUNT_CRED not in text


def test_an_image_that_stays_mounted_is_raised_with_the_result(host: Host, sample: Sample) -> None:
    host.control("umount/keep", "")
    with pytest.raises(ixfs.UnmountError) as caught:
        ixfs.prepare(**sample.arguments())
    assert caught.value.status is ixfs.Status.OK
    assert caught.value.still_mounted == ("/usr/varnis/var/ixfs/sample",)
    assert caught.value.result is not None
    assert len(caught.value.result.paths) == 3

"""mount(): what is mounted, what is raised, what is left."""
import os
import pathlib
import pickle
import traceback

import pytest
from conftest import MOUNT_BASE, MOUNT_CRED, STORE, UNMOUNT_CRED, Host

import ixfs


def shown(error: BaseException) -> str:
    """All that a program is likely to show of an exception."""
    lines = getattr(error, "log_lines", ())
    return "".join([*traceback.format_exception(error), repr(error), repr(error.args), repr(lines)])


def test_shows_the_image_until_the_block_ends(host: Host) -> None:
    arguments = host.arguments()
    (STORE / "media1/backups/vm1").mkdir()
    with ixfs.mount(**arguments) as path:
        assert isinstance(path, pathlib.Path)
        assert path == MOUNT_BASE / "media1"
        assert os.listdir(path / "backups") == ["vm1"]
        assert host.mounts() == [str(path)]
    assert host.mounts() == []
    assert host.calls() == ["mount", "umount"]


def test_unmounts_after_an_exception_and_lets_it_through(host: Host) -> None:
    with pytest.raises(KeyError) as caught, ixfs.mount(**host.arguments()):
        raise KeyError("the block's")
    assert host.mounts() == []
    assert not hasattr(caught.value, "__notes__")


def test_mounts_nothing_before_it_is_entered(host: Host) -> None:
    ixfs.mount(**host.arguments())
    assert host.calls() == []


def test_can_be_entered_once(host: Host) -> None:
    mount = ixfs.mount(**host.arguments())
    with mount:
        with pytest.raises(RuntimeError, match="only once"):
            mount.__enter__()
        assert len(host.mounts()) == 1
    with pytest.raises(RuntimeError, match="only once"):
        mount.__enter__()
    assert host.mounts() == []


def test_a_failed_mount_has_status_text_and_lines(host: Host) -> None:
    host.control("mount/status", "142")
    with pytest.raises(ixfs.MountError) as caught:
        with ixfs.mount(**host.arguments()):
            pytest.fail("entered")
    error = caught.value
    assert error.status is ixfs.Status.HELPER_FAILED
    assert error.text == "mount helper failed"
    assert error.still_mounted == ()
    # This helper reports no mount point with a failure.
    assert ixfs.LogLine(2, "ixfs_mount()", "INF - response - EXIT_STATUS=142") in error.log_lines
    assert str(error) == ("mount of media1: mount helper failed (status 29); "
                          "last error logged: ixfs_mount(): ERR - command failed")


def test_a_failed_mount_tells_what_its_helper_left(host: Host) -> None:
    host.script("""
        if [ "$1" = mount ]; then
            mount -t tmpfs left /usr/varnis/var/ixfs/media1
            echo EXIT_STATUS=5
            exit 1
        fi""")
    with pytest.raises(ixfs.MountError) as caught:
        ixfs.mount(**host.arguments()).__enter__()
    assert caught.value.still_mounted == (f"{MOUNT_BASE}/media1",)


def test_a_failed_unmount_is_raised(host: Host) -> None:
    host.control("mount/leave-out", "MNTPATH")
    host.control("umount/status", "11")
    with pytest.raises(ixfs.UnmountError) as caught:
        with ixfs.mount(**host.arguments()):
            pass
    assert caught.value.status is ixfs.Status.HELPER_FAILED
    assert caught.value.still_mounted == ()  # the library has unmounted it itself
    # Of the unmount alone.
    assert {line.tag for line in caught.value.log_lines} >= {"ixfs_unmount()", "_ixfs_umount()"}
    assert not any("ixfs_mount()" in line.tag for line in caught.value.log_lines)


def test_what_is_still_mounted_is_raised_though_the_status_is_0(host: Host) -> None:
    host.control("umount/keep", "")
    with pytest.raises(ixfs.UnmountError) as caught:
        with ixfs.mount(**host.arguments()):
            pass
    assert caught.value.status is ixfs.Status.OK
    assert caught.value.text == "still mounted"
    assert caught.value.still_mounted == (f"{MOUNT_BASE}/media1",)


def test_another_servers_mount_is_not_taken_for_ones_own(host: Host) -> None:
    with ixfs.mount(**host.arguments("media10")):
        with ixfs.mount(**host.arguments("media1")):
            pass
        assert host.mounts() == [f"{MOUNT_BASE}/media10"]


def test_the_blocks_exception_gets_a_note_of_the_failed_unmount(host: Host) -> None:
    host.control("umount/keep", "")
    with pytest.raises(KeyError) as caught, ixfs.mount(**host.arguments()):
        raise KeyError("the block's")
    notes = getattr(caught.value, "__notes__")
    assert len(notes) == 1
    assert "still mounted: /usr/varnis/var/ixfs/media1" in notes[0]


def test_no_exception_shows_a_credential(host: Host) -> None:
    host.script(f'echo "no access with {MOUNT_CRED} or {UNMOUNT_CRED}"')
    host.control("mount/status", "20")
    mount = ixfs.mount(**host.arguments())
    with pytest.raises(ixfs.MountError) as caught:
        mount.__enter__()
    text = shown(caught.value) + repr(mount)
    assert "no access with *** or ***" in text
    assert "-cred *** " in text
    assert MOUNT_CRED not in text
    assert UNMOUNT_CRED not in text


def test_exceptions_go_from_process_to_process(host: Host) -> None:
    host.control("umount/keep", "")
    with pytest.raises(ixfs.UnmountError) as caught, ixfs.mount(**host.arguments()):
        pass
    again = pickle.loads(pickle.dumps(caught.value))
    assert type(again) is ixfs.UnmountError
    assert str(again) == str(caught.value)
    assert again.log_lines == caught.value.log_lines
    assert again.still_mounted == caught.value.still_mounted

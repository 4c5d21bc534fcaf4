"""Log lines: which handle's they are, their levels, and the callbacks they come through."""
import gc
import logging
import sys
import threading
from typing import Any

import pytest
from conftest import MOUNT_CRED, UNMOUNT_CRED, Host, Program, Sample

import ixfs
from ixfs._log import Masking


class Records(logging.Handler):
    """Keeps the records of the logger "ixfs"."""

    def __init__(self) -> None:
        super().__init__()
        self.kept: list[Any] = []

    def emit(self, record: logging.LogRecord) -> None:
        self.kept.append(record)


@pytest.fixture
def records() -> Any:
    logger = logging.getLogger("ixfs")
    handler = Records()
    logger.addHandler(handler)
    logger.setLevel(logging.DEBUG)
    yield handler.kept
    logger.removeHandler(handler)
    logger.setLevel(logging.NOTSET)


def test_records_carry_handle_server_tag_and_severity(host: Host, records: list[Any]) -> None:
    with ixfs.mount(**host.arguments()):
        pass
    waiting = next(record for record in records
                   if "waiting for mount mutex..." in record.getMessage())
    assert (waiting.server, waiting.tag, waiting.severity) == ("media1", "ixfs_mount()", 2)
    assert waiting.getMessage() == (f"media1#{waiting.handle} ixfs_mount(): "
                                    "INF - waiting for mount mutex...")
    assert {record.handle for record in records} == {waiting.handle}


def test_lines_of_severity_0_that_are_no_problems_are_information(
        host: Host, records: list[Any]) -> None:
    with ixfs.mount(**host.arguments()):
        pass
    assert any(record.severity == 0 for record in records)
    assert {record.levelno for record in records} == {logging.INFO}


def test_problems_are_errors(host: Host, records: list[Any]) -> None:
    host.control("mount/status", "11")
    with pytest.raises(ixfs.MountError), ixfs.mount(**host.arguments()):
        pass
    problems = [record for record in records if record.levelno == logging.ERROR]
    messages = [record.getMessage().partition("(): ")[2] for record in problems]
    assert "ERR - command failed" in messages


@pytest.mark.parametrize("severity, message, level", [
    (0, "ERR - command failed", logging.ERROR),
    (0, "INF - Event terminated...", logging.INFO),
    (2, "ERR - ACE_OS::mkdir(): Could not create", logging.ERROR),
    (0, "caller's own", logging.ERROR),
    (1, "caller's own", logging.WARNING),
    (2, "caller's own", logging.INFO),
    (7, "caller's own", logging.INFO),
])
def test_levels(severity: int, message: str, level: int) -> None:
    assert ixfs.LogLine(severity, "tag", message).level == level


def test_two_handles_lines_are_told_apart_in_threads(host: Host, records: list[Any]) -> None:
    both_mounted = threading.Barrier(2, timeout=30)

    def work(server: str) -> None:
        with ixfs.mount(**host.arguments(server)):
            both_mounted.wait()

    threads = [threading.Thread(target=work, args=(f"media{index}",)) for index in (1, 2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    handles = {}
    for server in ("media1", "media2"):
        of_server = [record for record in records if record.server == server]
        assert any(f"/{server}" in record.getMessage() for record in of_server)
        other = "media2" if server == "media1" else "media1"
        assert not any(other in record.getMessage() for record in of_server)
        handles[server] = {record.handle for record in of_server}
        assert len(handles[server]) == 1
    assert handles["media1"] != handles["media2"]


def test_no_record_shows_a_credential(host: Host, sample: Sample, records: list[Any]) -> None:
    host.script(f'echo "no access with {MOUNT_CRED} or {UNMOUNT_CRED}"')
    with ixfs.mount(**host.arguments()):
        pass
    ixfs.prepare(**sample.arguments())
    text = "\n".join(record.getMessage() for record in records)
    assert text.count("no access with *** or ***") == 4
    assert "-cred *** " in text
    assert "-secret" not in text


def test_an_exception_keeps_the_last_lines(host: Host) -> None:
    host.control("mount/status", "11")
    host.script("seq 1 2000")
    with pytest.raises(ixfs.MountError) as caught, ixfs.mount(**host.arguments()):
        pass
    messages = [line.message for line in caught.value.log_lines]
    assert len(messages) == 1000
    assert "INF - response - 2000" in messages
    assert "INF - response - 1000" not in messages


@pytest.mark.parametrize("text, masked", [
    ("mount -server m -port 1 -cred secret /dir", "mount -server m -port 1 -cred *** /dir"),
    ("umount -cred secr", "umount -cred ***"),  # cut by the library
    ("said secret-too and secret", "said *** and ***"),
    ("abc is too short", "abc is too short"),
    ("-cred abc is not", "-cred *** is not"),
])
def test_masking(text: str, masked: str) -> None:
    assert Masking(["secret", "secret-too", "abc"])(text) == masked


def test_control_characters_and_odd_bytes_are_escaped(host: Host, records: list[Any]) -> None:
    host.script(r"printf 'bell \007 and \377\n'")
    with ixfs.mount(**host.arguments()):
        pass
    assert any(r"INF - response - bell \x07 and \xff" in record.getMessage() for record in records)
    assert not any("\n" in record.getMessage() for record in records)


def test_nothing_is_shown_until_logging_is_set_up(host: Host) -> None:
    host.control("mount/status", "11")
    program = Program("""
import ixfs, sys
try:
    ixfs.mount(**eval(sys.argv[1])).__enter__()
except ixfs.MountError:
    sys.exit(7)
""", repr(host.arguments()))
    assert (program.status, program.output, program.errors) == (7, "", "")


def test_the_callback_is_not_collected_while_in_use(host: Host, sample: Sample) -> None:
    collections: list[int] = []

    class Collector(logging.Handler):
        def emit(self, record: logging.LogRecord) -> None:
            collections.append(gc.collect())

    logger = logging.getLogger("ixfs")
    collector = Collector()
    logger.addHandler(collector)
    logger.setLevel(logging.DEBUG)
    gc.freeze()  # what is there already need not be looked at again and again
    try:
        for _ in range(3):
            with ixfs.mount(**host.arguments()):
                gc.collect()
            ixfs.prepare(**sample.arguments())
    finally:
        gc.unfreeze()
        logger.removeHandler(collector)
        logger.setLevel(logging.NOTSET)
    assert len(collections) > 100


def test_an_exception_in_a_log_handler_does_not_disturb_the_call(
        host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    told: list[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda info: told.append(info.exc_value))

    class Failing(logging.Handler):
        def emit(self, record: logging.LogRecord) -> None:
            raise KeyError("the handler's")

    logger = logging.getLogger("ixfs")
    failing = Failing()
    logger.addHandler(failing)
    logger.setLevel(logging.DEBUG)
    try:
        with ixfs.mount(**host.arguments()):
            assert len(host.mounts()) == 1
    finally:
        logger.removeHandler(failing)
        logger.setLevel(logging.NOTSET)
    assert host.mounts() == []
    assert told
    assert {type(error) for error in told} == {KeyError}


def test_the_unmount_waits_for_a_callback_of_the_validation_thread(host: Host) -> None:
    """The end of the handle releases the interpreter's lock, which that callback needs."""
    entered = threading.Event()
    leave = threading.Event()
    unmounted = threading.Event()

    class Holding(logging.Handler):
        def emit(self, record: Any) -> None:
            if record.tag == "_ixfs_mount_validate_thread()" and "starting" in record.getMessage():
                entered.set()
                assert leave.wait(timeout=30)

        def createLock(self) -> None:
            self.lock = None  # other threads' lines go on

    def work() -> None:
        with ixfs.mount(**host.arguments()):
            assert entered.wait(timeout=30)
        unmounted.set()

    logger = logging.getLogger("ixfs")
    holding = Holding()
    logger.addHandler(holding)
    logger.setLevel(logging.DEBUG)
    worker = threading.Thread(target=work)
    try:
        worker.start()
        assert entered.wait(timeout=30)
        # The helper has unmounted; what remains is to wait for the callback.
        while host.calls() != ["mount", "umount"] or host.mounts():
            threading.Event().wait(0.001)
        assert not unmounted.is_set()
        leave.set()
        worker.join(timeout=30)
        assert unmounted.is_set()
    finally:
        leave.set()
        logger.removeHandler(holding)
        logger.setLevel(logging.NOTSET)

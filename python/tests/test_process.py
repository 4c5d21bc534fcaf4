"""What becomes of mounts when the process is interrupted, forks or exits."""
import gc
import os
import signal
import sys
import threading
from collections.abc import Iterator
from typing import Any

import pytest
from conftest import Host, Program, Sample

import ixfs
from ixfs._signals import handlers_deferred

SENDS_INTERRUPT = 'if [ "$1" = {} ]; then kill -INT "$(cat /usr/varnis/pid)"; fi'

ARGUMENTS = """
import os, pathlib, signal, sys, threading
import ixfs
arguments = dict(server="media1", port=40100, mount_cred="mount-secret",
                 unmount_cred="unmount-secret", timeout=0)
def mounted():
    return "/usr/varnis/var/ixfs/media1 " in pathlib.Path("/proc/self/mountinfo").read_text()
"""


@pytest.fixture
def held_mount(host: Host) -> Iterator[None]:
    """The helper holds each mount: it begins to write to the FIFO "in", then reads from "go"."""
    fifos = ["/usr/varnis/in", "/usr/varnis/go"]
    for fifo in fifos:
        os.mkfifo(fifo)
    host.script('if [ "$1" = mount ]; then : >/usr/varnis/in; : </usr/varnis/go; fi')
    yield
    for fifo in fifos:
        os.unlink(fifo)


@pytest.fixture
def interrupting(host: Host) -> Any:
    """Lets the helper send SIGINT to this process during a command of it."""
    def prepare(command: str) -> None:
        with open("/usr/varnis/pid", "w") as file:
            file.write(str(os.getpid()))
        host.script(SENDS_INTERRUPT.format(command))

    previous = signal.signal(signal.SIGINT, signal.default_int_handler)
    yield prepare
    assert signal.getsignal(signal.SIGINT) is signal.default_int_handler
    signal.signal(signal.SIGINT, previous)


def test_an_interrupt_during_the_mount_leaves_no_mount(host: Host, interrupting: Any) -> None:
    interrupting("mount")
    with pytest.raises(KeyboardInterrupt):
        with ixfs.mount(**host.arguments()):
            pytest.fail("entered")
    assert host.mounts() == []
    assert host.calls() == ["mount", "umount"]


def test_an_interrupt_during_the_unmount_comes_after_it(host: Host, interrupting: Any) -> None:
    interrupting("umount")
    with pytest.raises(KeyboardInterrupt) as caught, ixfs.mount(**host.arguments()):
        pass
    assert host.mounts() == []
    assert not hasattr(caught.value, "__notes__")


def test_an_interrupt_does_not_hide_a_failed_unmount(host: Host, interrupting: Any) -> None:
    interrupting("umount")
    host.control("umount/keep", "")
    with pytest.raises(KeyboardInterrupt) as caught, ixfs.mount(**host.arguments()):
        pass
    assert "still mounted" in getattr(caught.value, "__notes__")[0]


def test_an_interrupt_during_a_preparation_comes_after_it(
        host: Host, sample: Sample, interrupting: Any) -> None:
    interrupting("mount")
    with pytest.raises(KeyboardInterrupt):
        ixfs.prepare(**sample.arguments())
    assert host.mounts() == []
    assert (sample.image / "_vmir/disk.vmdk").exists()


def test_every_handler_that_raises_is_held_up(host: Host, interrupting: Any) -> None:
    def leave(number: int, _frame: Any) -> None:
        sys.exit(128 + number)

    interrupting("mount")
    host.script(SENDS_INTERRUPT.format("mount").replace("INT", "TERM"))
    previous = signal.signal(signal.SIGTERM, leave)
    try:
        with pytest.raises(SystemExit) as caught, ixfs.mount(**host.arguments()):
            pytest.fail("entered")
        assert caught.value.code == 143
        assert signal.getsignal(signal.SIGTERM) is leave
    finally:
        signal.signal(signal.SIGTERM, previous)
    assert host.mounts() == []


def test_all_handlers_come_back_though_one_raises_meanwhile(
        monkeypatch: pytest.MonkeyPatch) -> None:
    """A signal can come when its handler is back and others are not."""
    def leave(_number: int, _frame: Any) -> None:
        raise KeyError("the handler's")

    set_handler = signal.signal

    def set_and_send(number: int, handler: Any) -> Any:
        previous = set_handler(number, handler)
        if handler is leave and number == signal.SIGUSR1:
            signal.raise_signal(number)
        return previous

    numbers = [signal.SIGHUP, signal.SIGUSR1, signal.SIGUSR2]
    before = [set_handler(number, leave) for number in numbers]
    try:
        with pytest.raises(KeyError), handlers_deferred():
            monkeypatch.setattr(signal, "signal", set_and_send)
        assert [signal.getsignal(number) for number in numbers] == [leave] * 3
    finally:
        for number, handler in zip(numbers, before):
            set_handler(number, handler)


def test_every_signal_that_came_has_its_handler_run() -> None:
    came: list[int] = []

    def note(number: int, _frame: Any) -> None:
        came.append(number)
        raise KeyError(number)

    numbers = [signal.SIGUSR1, signal.SIGUSR2]
    before = [signal.signal(number, note) for number in numbers]
    try:
        with pytest.raises(KeyError), handlers_deferred():
            for number in numbers:
                signal.raise_signal(number)
            assert not came
        assert sorted(came) == numbers
    finally:
        for number, handler in zip(numbers, before):
            signal.signal(number, handler)


def test_a_child_forked_by_another_thread_during_a_call_has_its_handlers(
        host: Host, interrupting: Any, held_mount: None) -> None:
    """The fork is made while the main thread is in the mount."""
    result: list[int] = []

    def fork() -> None:
        open("/usr/varnis/in").close()
        child = os.fork()
        if child == 0:
            os._exit(0 if signal.getsignal(signal.SIGINT) is signal.default_int_handler else 1)
        result.append(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
        open("/usr/varnis/go", "w").close()

    thread = threading.Thread(target=fork)
    thread.start()
    with ixfs.mount(**host.arguments()):
        pass
    thread.join()
    assert result == [0]


def test_a_mount_that_is_dropped_is_unmounted(host: Host) -> None:
    mount = ixfs.mount(**host.arguments())
    mount.__enter__()
    with pytest.warns(ResourceWarning, match="media1"):
        del mount
        gc.collect()
    while host.mounts():  # another thread is at it
        threading.Event().wait(0.001)
    assert host.calls() == ["mount", "umount"]


def test_the_exit_unmounts(host: Host) -> None:
    host.arguments()
    program = Program(ARGUMENTS + """
mount = ixfs.mount(**arguments)
mount.__enter__()
assert mounted()
sys.exit(3)
""")
    assert (program.status, program.errors) == (3, "")
    assert host.calls() == ["mount", "umount"]
    assert host.mounts() == []


def test_the_exit_tells_what_is_still_mounted(host: Host) -> None:
    host.arguments()
    host.control("umount/keep", "")
    program = Program(ARGUMENTS + """
mount = ixfs.mount(**arguments)
mount.__enter__()
""")
    assert "still mounted: /usr/varnis/var/ixfs/media1" in program.errors
    assert "-secret" not in program.errors.replace("mount_cred=", "")


def test_an_interrupted_program_unmounts(host: Host) -> None:
    host.arguments()
    program = Program(ARGUMENTS + """
with ixfs.mount(**arguments):
    signal.raise_signal(signal.SIGINT)
""")
    assert program.status == -signal.SIGINT
    assert program.errors.endswith("KeyboardInterrupt\n")
    assert host.mounts() == []


def test_the_exit_ends_what_a_daemon_thread_has_mounted(host: Host) -> None:
    host.arguments()
    program = Program(ARGUMENTS + """
entered = threading.Event()
def work():
    with ixfs.mount(**arguments):
        entered.set()
        threading.Event().wait()
threading.Thread(target=work, daemon=True).start()
entered.wait()
""")
    assert (program.status, program.errors) == (0, "")
    assert host.calls() == ["mount", "umount"]
    assert host.mounts() == []


def test_the_exit_waits_for_a_daemon_threads_preparation(
        host: Host, sample: Sample, held_mount: None) -> None:
    program = Program("""
import atexit, sys, threading
import ixfs
def let_go():  # at the exit runs before what the package does
    threading.Thread(target=lambda: open("/usr/varnis/go", "w").close(), daemon=True).start()
atexit.register(let_go)
threading.Thread(target=lambda: ixfs.prepare(**eval(sys.argv[1])), daemon=True).start()
open("/usr/varnis/in").close()
""", repr(sample.arguments()))
    assert (program.status, program.errors) == (0, "")
    assert host.calls() == ["mount", "umount"]
    assert (sample.image / "_vmir/data.vmdk").exists()


def test_nothing_is_mounted_after_the_exit_has_begun(host: Host) -> None:
    host.arguments()
    program = Program("import atexit\n@atexit.register\ndef late():\n"
                      "    with ixfs.mount(**arguments): pass\n" + ARGUMENTS)
    assert "RuntimeError: the interpreter is exiting" in program.errors
    assert host.calls() == []


FORKS = {
    "os._exit": """
child = os.fork()
if child == 0:
    os._exit(7 if mounted() else 1)
status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
""",
    "sys.exit": """
child = os.fork()
if child == 0:
    sys.exit(7 if mounted() else 1)
status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
""",
    "end of the block": """
child = os.fork()
if child == 0:
    mount.__exit__(None, None, None)
    sys.exit(7 if mounted() else 1)
status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
""",
    "collection": """
import gc, warnings
child = os.fork()
if child == 0:
    warnings.simplefilter("error")  # it has nothing to warn of
    del mount
    gc.collect()
    sys.exit(7 if mounted() else 1)
status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
""",
    "multiprocessing": """
import multiprocessing
def work():
    sys.exit(7 if mounted() else 1)
child = multiprocessing.get_context("fork").Process(target=work)
child.start()
child.join()
status = child.exitcode
""",
}


@pytest.mark.parametrize("fork", FORKS.values(), ids=FORKS.keys())
def test_a_forked_child_unmounts_nothing(host: Host, fork: str) -> None:
    host.arguments()
    program = Program(f"""{ARGUMENTS}
mount = ixfs.mount(**arguments)
mount.__enter__()
{fork}
assert status == 7, status
assert mounted()
helper_calls = pathlib.Path("/usr/varnis/var/ixfs-loopback/.control/calls").read_text()
assert helper_calls.count("\\n") == 1, helper_calls
mount.__exit__(None, None, None)
assert not mounted()
""")
    assert (program.status, program.errors) == (0, "")
    assert host.calls() == ["mount", "umount"]


def test_a_child_forked_during_a_preparation_can_exit(
        host: Host, sample: Sample, held_mount: None) -> None:
    program = Program(ARGUMENTS + """
thread = threading.Thread(target=lambda: ixfs.prepare(**eval(sys.argv[1])))
thread.start()
open("/usr/varnis/in").close()
child = os.fork()
if child == 0:
    sys.exit(7)
status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
open("/usr/varnis/go", "w").close()
thread.join()
sys.exit(status)
""", repr(sample.arguments()))
    assert (program.status, program.errors) == (7, "")
    assert host.calls() == ["mount", "umount"]


def test_a_forked_child_has_mounts_of_its_own(host: Host) -> None:
    host.arguments("media1")
    host.arguments("media2")
    program = Program(ARGUMENTS + """
with ixfs.mount(**arguments):
    child = os.fork()
    if child == 0:
        with ixfs.mount(**arguments | {"server": "media2"}) as path:
            assert "backups" in os.listdir(path)
        with ixfs.mount(**arguments | {"server": "media2"}) as path:
            sys.exit(7)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
    assert mounted()
    assert "/media2" not in pathlib.Path("/proc/self/mountinfo").read_text()
""")
    assert (program.status, program.errors) == (0, "")
    assert host.calls() == ["mount", "mount", "umount", "mount", "umount", "umount"]

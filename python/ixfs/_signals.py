"""Holds up Python's signal handlers while the library works."""
import contextlib
import os
import signal
import threading
from collections.abc import Callable, Iterator
from types import FrameType
from typing import Any

_Handler = Callable[[int, FrameType | None], Any]

_replaced: dict[int, _Handler] = {}  # by the main thread's outermost block


def _restore() -> None:
    while _replaced:
        number, handler = next(iter(_replaced.items()))
        try:
            signal.signal(number, handler)
        finally:  # also when a handler that is back has raised in here
            if signal.getsignal(number) is handler:
                _replaced.pop(number, None)
            _restore()


def _raise_again(numbers: set[int]) -> None:
    while numbers:
        try:
            signal.raise_signal(numbers.pop())
        finally:
            _raise_again(numbers)


@contextlib.contextmanager
def handlers_deferred() -> Iterator[None]:
    """In the block no handler of Python runs; those of signals that came run at its end.

    Without it, a handler would run in the log callback that the library happens to call, where an
    exception such as KeyboardInterrupt is lost: it cannot pass through the library. Handlers run on
    the main thread alone. On others, and in a block within a block, this does nothing.
    """
    if threading.current_thread() is not threading.main_thread() or _replaced:
        yield
        return
    noted: set[int] = set()

    def note(number: int, _frame: FrameType | None) -> None:
        noted.add(number)

    try:
        for number in signal.valid_signals():
            handler = signal.getsignal(number)
            if callable(handler) and not isinstance(handler, signal.Handlers):
                _replaced[number] = handler
                signal.signal(number, note)
        yield
    finally:
        _restore()
        _raise_again(noted)


# A child of another thread does not have the thread that would end the block.
os.register_at_fork(after_in_child=_restore)

"""Log lines of the library: kept for exceptions, and handed to `logging`."""
import collections
import dataclasses
import logging
import re
from collections.abc import Iterable

from . import _library

LOGGER = logging.getLogger("ixfs")
LOGGER.addHandler(logging.NullHandler())

_LEVELS = {0: logging.ERROR, 1: logging.WARNING, 2: logging.INFO}
_MOST_LINES = 1000
_CREDENTIAL = re.compile(r"(-cred )\S+")
_CONTROL = re.compile(r"[\x00-\x08\x0a-\x1f\x7f]")
# Shorter ones could stand in every line by chance.
_SHORTEST_SECRET = 4


@dataclasses.dataclass(frozen=True)
class LogLine:
    """One line of the library's log.

    severity  0 error, 1 warning, 2 information, as the library gives it
    tag       the operation, such as "ixfs_mount()"
    message   one line without a newline; credentials are masked, control characters escaped
    """

    severity: int
    tag: str
    message: str

    @property
    def level(self) -> int:
        """The level for `logging`.

        Some lines of severity 0 are no problems: their messages begin with "INF -". Some failures
        have severity 2: theirs begin with "ERR -".
        """
        if self.message.startswith("INF -"):
            return logging.INFO
        if self.message.startswith("ERR -"):
            return logging.ERROR
        return _LEVELS.get(self.severity, logging.INFO)

    @property
    def is_error(self) -> bool:
        return self.level >= logging.ERROR

    def __str__(self) -> str:
        return f"{self.tag}: {self.message}"


class Masking:
    """Takes credentials out of texts."""

    def __init__(self, secrets: Iterable[str]) -> None:
        hidden = {secret for secret in secrets if len(secret) >= _SHORTEST_SECRET}
        # The longest first: one may be a part of the other.
        self._secrets = sorted(hidden, key=len, reverse=True)

    def __call__(self, text: str) -> str:
        # Whole, or cut by the library: what stands behind the option is one.
        text = _CREDENTIAL.sub(r"\1***", text)
        for secret in self._secrets:
            text = text.replace(secret, "***")
        return text


def shown(text: bytes) -> str:
    """Returns bytes of unknown encoding as one line of text."""
    line = text.decode("utf-8", "backslashreplace").removesuffix("\n")
    return _CONTROL.sub(lambda found: f"\\x{ord(found[0]):02x}", line)


class Log:
    """Receives the lines of one handle.

    The library's callback has no argument that would tell whose line it is. So each handle gets a
    callback of its own. Whoever gives `callback` to the library keeps this object until the library
    calls it no more.
    """

    def __init__(self, number: int, server: str, secrets: Iterable[str]) -> None:
        self.mask = Masking(secrets)
        self._lines: collections.deque[LogLine] = collections.deque(maxlen=_MOST_LINES)
        extra = {"handle": number, "server": server}
        label = f"{server}#{number}"

        # What it raises, ctypes reports through sys.unraisablehook; nothing reaches the library.
        def receive(severity: int, tag: bytes, message: bytes) -> None:
            line = LogLine(severity, shown(tag), self.mask(shown(message)))
            self._lines.append(line)
            LOGGER.log(line.level, "%s %s", label, line,
                       extra={**extra, "tag": line.tag, "severity": severity})

        self.callback = _library.LogCallback(receive)

    def begin_call(self) -> None:
        """Forgets the lines of the call before."""
        self._lines.clear()

    def lines(self) -> tuple[LogLine, ...]:
        """Returns the call's last lines."""
        return tuple(self._lines.copy())  # a copy is made at once, whichever thread adds a line

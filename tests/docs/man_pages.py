"""The man pages, read from their mdoc sources.

A comment in front of a literal display tells what stands in it:

    .\\" Declares: HEADER          declarations of HEADER, without their comments
    .\\" Example: file NAME        a file; a program in C or C++ is built as NAME without its ending
    .\\" Example: run              commands; with ", fails" they fail, and standard error counts
    .\\" Example: output           what the commands or the program in front of it print
    .\\" Example: none, REASON     neither run nor compared
"""
import dataclasses
import pathlib
import re
import shlex

ESCAPES = {r"\e": "\\", r"\(aq": "'", r"\(ga": "`", r"\(ha": "^", r"\(ti": "~", r"\&": "",
           r"\-": "-", r"\ ": " "}
MARKER = re.compile(r'\.\\" (Declares|Example): (.*)')
TYPESET = re.compile("['`^~]")  # which groff turns into others


@dataclasses.dataclass(frozen=True)
class Display:
    kind: str  # the marker's first word
    subject: str  # and what follows it
    text: str


@dataclasses.dataclass(frozen=True)
class Prototype:
    header: str
    result: str
    name: str
    arguments: tuple[str, ...]


def unescape(line: str) -> str:
    def plain(found: re.Match[str]) -> str:
        if found[0] not in ESCAPES:
            raise ValueError(f"unknown escape {found[0]!r} in: {line}")
        return ESCAPES[found[0]]
    return re.sub(r"\\(?:\(..|.)", plain, line)


def words(line: str) -> list[str]:
    """The arguments of a macro's line, and its own name in front."""
    lexer = shlex.shlex(line[1:], posix=True)
    lexer.whitespace_split, lexer.commenters, lexer.quotes, lexer.escape = True, "", '"', ""
    return list(lexer)


class Page:
    def __init__(self, file_name: str, source: str):
        self.file_name = file_name
        self.name, self.section = file_name.rsplit(".", 1)
        self.source = source
        self.lines = source.splitlines()
        self.macros = [words(line) for line in self.lines if re.match(r"\.[A-Z]", line)]

    @classmethod
    def read(cls, file: pathlib.Path) -> "Page":
        return cls(file.name, file.read_text(encoding="ascii"))

    def part(self, heading: str) -> list[list[str]]:
        """The macros of a section ("Sh NAME") or a subsection ("Ss Subcommand status")."""
        found, inside = [], False
        for macro in self.macros:
            if macro[0] in ("Sh", "Ss"):
                inside = " ".join(macro) == heading or \
                    inside and macro[0] == "Ss" and heading.startswith("Sh")
            elif inside:
                found.append(macro)
        return found

    def names(self) -> list[str]:
        return [macro[1] for macro in self.part("Sh NAME") if macro[0] == "Nm"]

    def references(self) -> set[tuple[str, str]]:
        return {(macro[at + 1], macro[at + 2]) for macro in self.macros
                for at, word in enumerate(macro) if word == "Xr"}

    def prototypes(self) -> list[Prototype]:
        found = []
        header = result = name = ""
        arguments: list[str] = []
        for kind, *rest in self.part("Sh SYNOPSIS"):
            if kind == "In":
                header = rest[0]
            elif kind == "Ft":
                result = rest[0]
            elif kind == "Fo":
                name, arguments = rest[0], []
            elif kind == "Fa":
                arguments += rest
            elif kind == "Fc":
                found.append(Prototype(header, result, name, tuple(arguments)))
            elif kind == "Fn":
                found.append(Prototype(header, result, rest[0], tuple(rest[1:])))
        return found

    def displays(self) -> list[Display]:
        """The literal displays. Raises ValueError for one without a marker, or with what would not
        be shown as it is written."""
        found = []
        marker = opened = text = None
        for line in self.lines:
            if line.startswith(".Bd -literal"):
                if marker is None:
                    raise ValueError(f"{self.file_name}: no marker in front of {line!r}")
                opened, text = marker, ""
            elif line == ".Ed":
                found.append(Display(opened[1], opened[2], text))
                text = None
            elif text is not None:
                if TYPESET.search(re.sub(r"\\\(..", "", line)) or line.startswith("."):
                    raise ValueError(f"{self.file_name}: not shown as it stands: {line}")
                text += unescape(line) + "\n"
            marker = MARKER.fullmatch(line)
        return found

"""The numbers and paths in the documents are those of the sources. What is wrong in altered copies is
seen to be found."""
import dataclasses
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PATTERNS = ("*.md", "docs/*.md", "docs/architecture/*.dot", "docs/architecture/*.msc", "docs/man/*.[1-9]",
            "examples/*/*.md", "include/*.h", "python/*.md", "tests/*.md", "tests/*/*.md",
            "tools/*/README.md")
# It tells what was, too.
OUT_OF_DATE = {"CHANGELOG.md"}
WORDS = {"two": 2, "three": 3, "four": 4, "five": 5, "ten": 10}


def read(path: str) -> str:
    return (ROOT / path).read_text(encoding="utf-8")


def in_one_line(text: str) -> str:
    """Without what begins the lines of comments and of mdoc."""
    return re.sub(r"\n\s*(?:\*|//|\.(?:Pp|Nm|Fl|Fn|Pa)\b)?\s*|\s+", " ", text)


def constant(path: str, pattern: str) -> str:
    found = re.search(pattern, read(path))
    assert found, f"{path} has no {pattern}"
    return found[1]


def number_in(path: str, pattern: str) -> int:
    return int(constant(path, pattern))


@dataclasses.dataclass(frozen=True)
class Fact:
    value: int
    phrases: tuple[str, ...]  # each with the number as its group


LIBRARY = "src/ixfs_lib_util"
VALIDATION = number_in(f"{LIBRARY}/mount_watch.cpp", r"seconds_between_validations = (\d+)")
TIMEOUT = number_in(f"{LIBRARY}/mount_record.cpp", r"longest_timeout = (\d+)")
ATTEMPTS = number_in(f"{LIBRARY}/view_lock.cpp", r"most_attempts = (\d+)")
ETIME = number_in(f"{LIBRARY}/etime_retry.h", r"most_calls_on_etime = (\d+)")
TEXT = number_in(f"{LIBRARY}/bounded_text.h", r" text_size = (\d+)")
MESSAGE = number_in(f"{LIBRARY}/bounded_text.h", r"log_message_size = (\d+)")
SEMAPHORES = number_in(f"{LIBRARY}/semaphore_set.cpp", r"set_size = (\d+)")
FOREIGN = number_in(f"{LIBRARY}/semaphore_set.cpp", r"most_foreign_sets = (\d+)")
LOOKS = number_in("src/ixfs_vmir/configuration.cpp", r"most_checks = (\d+)")
PAUSE = number_in("src/ixfs_vmir/configuration.cpp", r"pause = \{(\d+), 0\}")
PORT = number_in("tools/ixfs-prepare/values.h", r"highest_port = (\d+)")
JOBS = number_in("tools/ixfs-prepare/option_table.cpp", r"highest_jobs = (\d+)")
DEFAULT = number_in("tools/ixfs-prepare/request.h", r"timeout = (\d+)")
ARGUMENTS = number_in("tools/support/helper_argument.cpp", r"max_variable_length = (\d+)")
LINES = number_in("tools/ixfs-prepare/phase.h", r"most_helper_lines = (\d+)")
SLOW = number_in("tools/ixfsctl/status_command.h", r"slow_after = (\d+)")
UNIT = "tools/ixfs-prepare/ixfs-prepare@.service.in"

FACTS = (
    Fact(VALIDATION, (r"every (\d+) s\b", r"every (\d+) seconds", r"(\d+) seconds at a time",
                      r"waits (\d+) s\b")),
    Fact(TIMEOUT, (r"[Mm]ore than (\d+) is taken", r"is taken as (\d+)", r"more counts as (\d+)",
                   r"(\d+) seconds at most", r"[Aa]t most (\d+) are used",
                   r"tried again for at most (\d+) seconds")),
    Fact(ATTEMPTS, (r"(\d+) attempts failed", r"up to (\d+) numbers are tried")),
    Fact(ATTEMPTS - 1, (r"the attempt, 0 to (\d+)", r"number 0, 1, \.\.\. (\d+)")),
    Fact(ETIME, (r"tried up to (\d+) times", r"repeated up to (\d+) times", r"up to (\d+) calls in all",
                 r"time-outs: up to (\d+)", r"checks of (\d+) time-outs", r"can take (\d+) time-outs")),
    Fact(TEXT - 1, (r"(?:are|is not cut\), \w+) cut at ([\d,]+) bytes", r"of more than ([\d,]+) bytes",
                    r"longer than ([\d,]+) bytes", r"has at most ([\d,]+) bytes",
                    r"into the extent line; cut at ([\d,]+) bytes")),
    Fact(MESSAGE - 1, (r"message is cut at ([\d,]+) bytes",)),
    Fact(FOREIGN, (r"creates it again ([\d,]+) times",)),
    Fact(SEMAPHORES, (r"first of the (\w+) semaphores",)),
    Fact(LOOKS, (r"after (\w+) looks", r"looks (\w+) times", r"up to (\w+) looks",
                 r"can take (\d+) checks")),
    Fact(PAUSE, (r"(\d+) s apart", r"(\d+) seconds apart", r"pauses of (\d+) seconds",
                 r"those of (\d+) seconds for the configuration", r"`wait_for_file` \| (\d+) seconds")),
    Fact(PAUSE * (LOOKS - 1), (r"(\d+) seconds in all", r"up to (\d+) seconds for the configuration")),
    Fact(PORT, (r"port,? 1 to (\d+)",)),
    Fact(JOBS, (r"servers to work on at once, 1 to (\d+)",)),
    Fact(DEFAULT, (r"too busy; the default is (\d+)", r"too busy; (\d+) if not given")),
    Fact(ARGUMENTS, (r"at most (\d+) bytes, because the helper", r"credential within (\d+) bytes")),
    Fact(LINES, (r"`last_lines` are its last lines, at most (\w+)",)),
    Fact(SLOW, (r"a running helper counts as wrong; (\d+) if not",)),
    Fact(SLOW // 60, (r"runs for more than (\w+) minutes",)),
    Fact(number_in("tools/ixfsctl/process_end.cpp", r"patience_with_process\((\d+)\)"),
         (r"(\w+) seconds later by SIGKILL",)),
    Fact(number_in(UNIT, r"TimeoutStopSec=(\d+)min"), (r"(\w+) minutes after the stop",)),
)
PRODUCT = "tools/support/product.h"
PLACES = (constant(PRODUCT, r'helper_path = "(.*?)"'), constant(PRODUCT, r'mount_base = "(.*?)"'),
          constant("tools/ixfs-loopback/main.cpp", r'store = "(.*?)"'))
DOCUMENTS = {str(file.relative_to(ROOT)): file.read_text(encoding="utf-8")
             for pattern in PATTERNS for file in ROOT.glob(pattern)
             if file.name not in OUT_OF_DATE}


def number(text: str) -> int | None:
    digits = text.replace(",", "")
    return int(digits) if digits.isdigit() else WORDS.get(text)


def wrong_numbers(documents: dict[str, str]) -> list[str]:
    texts = {name: in_one_line(text) for name, text in documents.items()}
    problems = []
    for fact in FACTS:
        for phrase in fact.phrases:
            found = [(name, match) for name, text in texts.items()
                     for match in re.finditer(phrase, text)]
            problems += [] if found else [f"nowhere: {phrase}"]
            problems += [f"{name}: {match[0]!r} instead of {fact.value}" for name, match in found
                         if number(match[1]) != fact.value]
    return problems


def wrong_places(documents: dict[str, str]) -> list[str]:
    """A place's own path, one below it, or a folder around it."""
    def is_right(path: str) -> bool:
        return any(path == place or path.startswith(place + "/") or place.startswith(path + "/")
                   for place in PLACES)
    return [f"{name}: {path}" for name, text in documents.items()
            for path in re.findall(r"/usr/varnis(?:/[\w.-]*\w)*", text) if not is_right(path)]


def missing_files(documents: dict[str, str]) -> list[str]:
    folders = "|".join(re.escape(file.name) for file in ROOT.iterdir() if file.is_dir() and file.name != "build")
    name = re.compile(rf"(?<![\w/.>$-])(?:{folders})/[\w.@-]+(?:/[\w.@-]+)*")
    return [f"{document}: {path}" for document, text in documents.items()
            for path in (found.rstrip(".") for found in name.findall(text))
            if not (ROOT / path).exists()]


def wrong_options(documents: dict[str, str]) -> list[str]:
    """The tables in the README and the man page have the same; the page is compared with the tool."""
    rows = re.findall(r"^\| (`--.*?) \|", documents["tools/ixfs-prepare/README.md"], re.MULTILINE)
    of_readme = re.findall(r"--[\w-]+", " ".join(rows))
    page = documents["docs/man/ixfs-prepare.1"]
    of_page = [f"-{option}" for option in re.findall(r"^\.It Fl .*?(-[\w-]+)", page, re.MULTILINE)]
    return [f"ixfs-prepare: {option} is not in both"
            for option in sorted(set(of_readme) ^ set(of_page))]


def wrong_exit_statuses(documents: dict[str, str]) -> list[str]:
    """A tool's README and its man page name the same; the page is compared with the tool."""
    problems = []
    for tool in ("ixfs-prepare", "ixfsctl"):
        table = documents[f"tools/{tool}/README.md"].partition("\n## Exit status\n")[2]
        of_readme = re.findall(r"^\| ([\d, ]+) \|", table.partition("\n## ")[0], re.MULTILINE)
        page = documents[f"docs/man/{tool}.1"].partition("\n.Sh EXIT STATUS\n")[2]
        of_page = re.findall(r"^\.It ([\d, ]+)$", page.partition("\n.Sh ")[0], re.MULTILINE)
        if not of_page or of_readme != [statuses.replace(" ,", ",") for statuses in of_page]:
            problems.append(f"{tool}: exit statuses {of_readme} and {of_page}")
    return problems


class Facts(unittest.TestCase):
    def test_are_those_of_the_sources(self) -> None:
        for check in (wrong_numbers, wrong_places, missing_files, wrong_options,
                      wrong_exit_statuses):
            with self.subTest(check.__name__):
                self.assertEqual(check(DOCUMENTS), [])

    def test_are_found_where_they_are_wrong(self) -> None:
        for check, name, old, new in (
                (wrong_numbers, "docs/man/ixfs.7", "300 seconds", "30 seconds"),
                (wrong_numbers, "docs/architecture/locks.dot", "waits 300 s", "waits 200 s"),
                (wrong_numbers, "include/ixfs.h", "more than 60 is taken", "more than 90 is taken"),
                (wrong_numbers, "include/ixfs_vmir.h", "at most 60 are", "at most 90 are"),
                (wrong_numbers, "docs/hazards.md", "up to 100 calls", "up to 10 calls"),
                (wrong_numbers, "tools/ixfsctl/README.md", "two seconds later", "three seconds later"),
                (wrong_numbers, "docs/man/libixfs.3", "1,023 bytes", "1,024 bytes"),
                (wrong_places, "docs/glossary.md", "/usr/varnis/var/ixfs", "/usr/varnis/ixfs"),
                (missing_files, "docs/man/ixfs-prepare.1", "docs/ixfs-prepare.schema.json",
                 "docs/prepare.schema.json"),
                (wrong_options, "tools/ixfs-prepare/README.md", "`--new-disk-uuids` | g", "| g"),
                (wrong_exit_statuses, "tools/ixfs-prepare/README.md", "\n| 3 |", "\n| 4 |")):
            with self.subTest(new):
                assert old in DOCUMENTS[name], f"{name} has no {old!r}"
                altered = DOCUMENTS | {name: DOCUMENTS[name].replace(old, new, 1)}
                self.assertEqual(len(check(altered)), 1)


if __name__ == "__main__":
    unittest.main()

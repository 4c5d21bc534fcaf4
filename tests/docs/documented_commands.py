"""The commands that a page gives, and what it says they print.

A block of commands has the name of its case in front, and may have its output behind it:

    <!-- still mounted -->
    ```sh
    ixfsctl status
    ```
    ```text
    ...
    ```

Words in capitals stand for what the caller puts in their place. In output "..." stands for any text,
and the numbers of processes, semaphore sets and seconds for any other.
"""
import dataclasses
import pathlib
import re

BLOCK = re.compile(
    r"(?:^<!-- (?P<case>[^>]+) -->\n)?^```sh\n(?P<commands>.*?)^```\n"
    r"(?:\n?^```text\n(?P<output>.*?)^```\n)?",
    re.DOTALL | re.MULTILINE,
)

ANY_NUMBER = re.compile(r"(?<=PID\\ )\d+|(?<=set\\ )\d+|(?<=running\\ for\\ )\d+")


@dataclasses.dataclass(frozen=True)
class Block:
    case: str | None
    commands: str
    output: str

    def script(self, values: dict[str, str]) -> str:
        """The commands, with what their placeholders stand for."""
        return replace_words(self.commands, values)

    def missing_line(self, printed: str, values: dict[str, str]) -> str | None:
        """The first line of the documented output that was not printed, or not behind the lines
        before it; None where all were."""
        at = 0
        for line in self.output.splitlines():
            if line.strip() == "...":
                continue
            pattern = re.escape(replace_words(line, values)).replace(r"\.\.\.", ".*")
            pattern = ANY_NUMBER.sub(r"\\d+", pattern)
            found = re.compile(f"^{pattern}$", re.MULTILINE).search(printed, at)
            if found is None:
                return line
            at = found.end()
        return None


def replace_words(text: str, values: dict[str, str]) -> str:
    for word, value in values.items():
        text = re.sub(rf"(?<![\w.]){re.escape(word)}(?![\w.])", lambda _: value, text)
    return text


def read_blocks(page: pathlib.Path) -> list[Block]:
    return [
        Block(found["case"], found["commands"], found["output"] or "")
        for found in BLOCK.finditer(page.read_text(encoding="utf-8"))
    ]

"""The commands that a page gives, and what it says they print.

A block of commands has the name of its case in front, and may have its output behind it:

    <!-- still mounted -->
    ```sh
    ixfsctl status
    ```
    ```text
    ...
    ```

In commands and output words in capitals, and "...", stand for what the caller puts in their place.
"""
import dataclasses
import pathlib
import re

BLOCK = re.compile(
    r"(?:^<!-- (?P<case>[^>]+) -->\n)?^```sh\n(?P<commands>.*?)^```\n"
    r"(?:\n?^```text\n(?P<output>.*?)^```\n)?",
    re.DOTALL | re.MULTILINE,
)


@dataclasses.dataclass(frozen=True)
class Block:
    case: str | None
    commands: str
    output: str

    def script(self, values: dict[str, str]) -> str:
        """The commands, with what their placeholders stand for."""
        return replace_words(self.commands, values)

    def missing_line(self, printed: str, values: dict[str, str]) -> str | None:
        """The first line of the documented output that is not in what was printed, or not there;
        None where all are, in this order. "..." stands for any text, and NUMBER for any number."""
        at = 0
        for line in self.output.splitlines():
            if line.strip() == "...":
                continue
            pattern = re.escape(replace_words(line, values))
            pattern = pattern.replace(r"\.\.\.", ".*").replace("NUMBER", r"\d+")
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

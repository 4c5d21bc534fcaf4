"""What the public headers declare."""
import pathlib
import re

from man_pages import Prototype


def tokens(text: str) -> str:
    """The text, however it is laid out."""
    return " ".join(re.findall(r"\w+|\.\.\.|[^\w\s]", text))


def without_comments(text: str) -> str:
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", text, flags=re.DOTALL)
    return re.sub(r"^[ \t]*#(?:[^\\\n]|\\\n)*", "", text, flags=re.MULTILINE)


def split_arguments(text: str) -> tuple[str, ...]:
    """At the commas that no bracket holds."""
    parts, depth = [""], 0
    for character in text:
        depth += {"<": 1, "(": 1, ">": -1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += character
    return tuple(part.strip() or "void" for part in parts)


class Headers:
    def __init__(self, texts: dict[str, str], framework: dict[str, str]):
        """Of the text of each header, and of those of the framework."""
        self.sources = {name: without_comments(text) for name, text in texts.items()}
        self.macros = set(re.findall(r"^#define (\w+)", "\n".join(texts.values()), re.MULTILINE))
        # Classes and functions that the library exports.
        exported = r"^(?:class LMF_API (\w+)|LMF_API [^;{]*\b(\w+)\()"
        self.framework = {name: {found[1] or found[2]
                                 for found in re.finditer(exported, text, re.MULTILINE)}
                          for name, text in framework.items() if "LMF_API" in text}

    @classmethod
    def read(cls, root: pathlib.Path) -> "Headers":
        return cls(*({file.name: file.read_text(encoding="utf-8")
                      for file in (root / folder).glob("*.h")}
                     for folder in ("include", "framework")))

    def declarations(self) -> list[tuple[str, str]]:
        """Of functions and variables, each with its header."""
        return [(header, re.sub(r"\s*\bIXFS_PRINTF\([^)]*\)", "", found))
                for header, text in self.sources.items()
                for found in re.findall(r"^IXFS_API\s+([^;{]*);", text, re.MULTILINE)]

    def prototypes(self) -> list[Prototype]:
        found = []
        for header, text in self.declarations():
            function = re.fullmatch(r"(.*?)(\w+)\s*\((.*)\)\s*", text, re.DOTALL)
            if function:
                found.append(Prototype(header, function[1], function[2],
                                       split_arguments(function[3])))
        return found

    def variables(self) -> dict[str, str]:
        """Each with its declaration."""
        return {found[1]: text for _, text in self.declarations()
                if (found := re.fullmatch(r"extern .*?(\w+)(?:\[\w*\])?", text))}

    def classes(self) -> set[str]:
        return set(re.findall(r"^class IXFS_API (\w+)", "\n".join(self.sources.values()),
                              re.MULTILINE))

    def constants(self) -> dict[str, str]:
        """Each with its value."""
        return dict(re.findall(r"\b((?:EC|IXFS)_\w+) = (\w+)", "\n".join(self.sources.values())))

    def declares(self, header: str, text: str) -> bool:
        return tokens(text) in tokens(self.sources[header])
